// Journals what the module writes into an event record.
#include "tests/support/fake_host/fake_arp_record.h"

#include <cstddef>
#include <optional>
#include <utility>

#include "tests/support/fake_host/fake_buf.h"

namespace fenlux::testing {

namespace {

std::string HexBytes(const std::uint8_t* bytes, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < size; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 15];
  }
  return out;
}

}  // namespace

std::uint64_t FakeArpProcess::GetProcessId() {
  core->gate.Pass("CArpProcess::GetProcessId");
  return processId;
}
void FakeArpProcess::SetProcessId(std::uint64_t newId) {
  core->gate.Pass("CArpProcess::SetProcessId", newId);
  processId = newId;
}
void FakeArpProcess::SetSessionId(std::uint32_t sessionId) { core->gate.Pass("CArpProcess::SetSessionId", sessionId); }
void FakeArpProcess::SetNarrowInfo(const std::string& text) { core->gate.Pass("CArpProcess::SetNarrowInfo", text); }
void FakeArpProcess::SetIdentityText(const std::string& text) { core->gate.Pass("CArpProcess::SetIdentityText", text); }

FakeArpRecord::FakeArpRecord(std::shared_ptr<HostCore> hostCore)
    : core(std::move(hostCore)), process(std::make_shared<FakeArpProcess>(core)) {
  if (core->settings.contextBuffer) {
    contextData = core->settings.contextBuffer();
  } else if (core->settings.contextData) {
    std::optional<Bytes> data = core->settings.contextData();
    if (data) contextData = std::make_shared<FakeBuf>(core, *data);
  }
}

const std::shared_ptr<CArpProcess>& FakeArpRecord::ProcessPart() {
  return core->gate.Pass("CArpRecord::ProcessPart") ? process : noProcess;
}
void FakeArpRecord::Mark() { core->gate.Pass("CArpRecord::Mark"); }
std::wstring& FakeArpRecord::GetPath(std::wstring& out) {
  core->gate.Pass("CArpRecord::GetPath");
  out = path;
  return out;
}
std::shared_ptr<CBuf> FakeArpRecord::GetContextData() {
  return core->gate.Pass("CArpRecord::GetContextData") ? contextData : std::shared_ptr<CBuf>();
}
std::uint32_t FakeArpRecord::GetPathSource() {
  core->gate.Pass("CArpRecord::GetPathSource");
  return core->settings.pathSource;
}
std::string& FakeArpRecord::Describe(std::string& out) {
  core->gate.Pass("CArpRecord::Describe");
  out = core->settings.description;
  return out;
}
void FakeArpRecord::SetPath(const std::wstring& newPath) {
  core->gate.Pass("CArpRecord::SetPath", newPath);
  path = newPath;
}
void FakeArpRecord::SetSecondPath(const std::wstring& newPath) {
  core->gate.Pass("CArpRecord::SetSecondPath", newPath);
  secondPath = newPath;
}
void FakeArpRecord::SetEventType(std::uint32_t type) {
  core->gate.Pass("CArpRecord::SetEventType", Hex{type});
  eventType = type;
}
void FakeArpRecord::SetCategory(std::uint32_t newCategory) {
  core->gate.Pass("CArpRecord::SetCategory", newCategory);
  category = newCategory;
}
void FakeArpRecord::SetSource(std::uint32_t source) { core->gate.Pass("CArpRecord::SetSource", source); }
void FakeArpRecord::SetExtraData(const std::shared_ptr<CBuf>& data) {
  const Bytes bytes = BytesOf(data);
  core->gate.Pass("CArpRecord::SetExtraData", data ? HexBytes(bytes.data(), bytes.size()) : "nothing");
}
void FakeArpRecord::SetPort(std::uint16_t port) {
  core->gate.Pass("CArpRecord::SetPort", static_cast<std::uint32_t>(port));
}
void FakeArpRecord::SetIpv6(bool ipv6) { core->gate.Pass("CArpRecord::SetIpv6", ipv6); }
void FakeArpRecord::SetIpv4Address(std::uint32_t address) {
  core->gate.Pass("CArpRecord::SetIpv4Address", Hex{address});
}
void FakeArpRecord::SetIpv6Address(const std::array<std::uint8_t, 16>& address) {
  core->gate.Pass("CArpRecord::SetIpv6Address", HexBytes(address.data(), address.size()));
}
void FakeArpRecord::SetRemoteFlag(bool remote) { core->gate.Pass("CArpRecord::SetRemoteFlag", remote); }
void FakeArpRecord::SetWord0(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord0", Hex{word}); }
void FakeArpRecord::SetWord1(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord1", Hex{word}); }
void FakeArpRecord::SetWord2(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord2", Hex{word}); }
void FakeArpRecord::SetWord3(std::uint64_t word) { core->gate.Pass("CArpRecord::SetWord3", Hex{word}); }
void FakeArpRecord::SetValueA(std::uint32_t value) { core->gate.Pass("CArpRecord::SetValueA", Hex{value}); }
void FakeArpRecord::SetValueB(std::uint32_t value) { core->gate.Pass("CArpRecord::SetValueB", Hex{value}); }
void FakeArpRecord::SetWideInfo(const std::wstring& text) { core->gate.Pass("CArpRecord::SetWideInfo", text); }

}  // namespace fenlux::testing
