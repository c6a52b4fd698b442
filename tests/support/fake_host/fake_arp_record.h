// The fake of host/arp_record.h.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/arp_record.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakeArpProcess final : public CArpProcess {
 public:
  explicit FakeArpProcess(std::shared_ptr<HostCore> hostCore) : core(std::move(hostCore)) {}
  std::uint64_t GetProcessId() override;
  void SetProcessId(std::uint64_t processId) override;
  void SetSessionId(std::uint32_t sessionId) override;
  void SetNarrowInfo(const std::string& text) override;
  void SetIdentityText(const std::string& text) override;

 private:
  std::shared_ptr<HostCore> core;
  std::uint64_t processId = 0;
};

class FakeArpRecord final : public CArpRecord {
 public:
  explicit FakeArpRecord(std::shared_ptr<HostCore> hostCore);
  const std::shared_ptr<CArpProcess>& ProcessPart() override;
  void Mark() override;
  std::wstring& GetPath(std::wstring& out) override;
  std::shared_ptr<CBuf> GetContextData() override;
  std::uint32_t GetPathSource() override;
  std::string& Describe(std::string& out) override;
  void SetPath(const std::wstring& path) override;
  void SetSecondPath(const std::wstring& path) override;
  void SetEventType(std::uint32_t type) override;
  void SetCategory(std::uint32_t category) override;
  void SetSource(std::uint32_t source) override;
  void SetExtraData(const std::shared_ptr<CBuf>& data) override;
  void SetPort(std::uint16_t port) override;
  void SetIpv6(bool ipv6) override;
  void SetIpv4Address(std::uint32_t address) override;
  void SetIpv6Address(const std::array<std::uint8_t, 16>& address) override;
  void SetRemoteFlag(bool remote) override;
  void SetWord0(std::uint64_t word) override;
  void SetWord1(std::uint64_t word) override;
  void SetWord2(std::uint64_t word) override;
  void SetWord3(std::uint64_t word) override;
  void SetValueA(std::uint32_t value) override;
  void SetValueB(std::uint32_t value) override;
  void SetWideInfo(const std::wstring& text) override;

  // The record's fields, readable without a host call.
  std::wstring path;
  std::wstring secondPath;
  std::uint32_t eventType = 0;
  std::uint32_t category = 0;

 private:
  std::shared_ptr<HostCore> core;
  std::shared_ptr<CArpProcess> process;
  std::shared_ptr<CArpProcess> noProcess;
  std::shared_ptr<CBuf> contextData;
};

}  // namespace fenlux::testing
