// Buffers and event records that store everything, for hosts that need nothing special. Header only.
#ifndef FENLUX_DEFAULT_RECORD_H
#define FENLUX_DEFAULT_RECORD_H

#include <array>
#include <boost/locale/encoding_utf.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/host.h"

namespace fenlux {

// A buffer that owns its memory, filled with zeros: the module writes only a record's fields, but every byte of the
// buffer goes to the driver, so it must not contain old data.
class DefaultBuffer : public CBuf {
 public:
  // Makes a buffer of `size` zeros.
  explicit DefaultBuffer(std::size_t size) : bytes(size) {}
  // Makes a buffer with a copy of these bytes.
  DefaultBuffer(const void* data, std::size_t size)
      : bytes(static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + size) {}
  virtual ~DefaultBuffer() = default;
  std::uint8_t* GetData() override { return bytes.data(); }
  std::size_t GetSize() override { return bytes.size(); }

 private:
  std::vector<std::uint8_t> bytes;
};

// What the module reported about one operation; see CArpRecord and CArpProcess. What it did not report is empty or 0.
struct Event {
  std::uint64_t processId = 0;                 // CArpProcess::SetProcessId
  std::uint32_t sessionId = kUnknownProcess;   // CArpProcess::SetSessionId
  std::string narrowInfo;                      // CArpProcess::SetNarrowInfo
  std::string identityText;                    // CArpProcess::SetIdentityText
  std::wstring wideInfo;                       // CArpRecord::SetWideInfo
  std::wstring path;                           // CArpRecord::SetPath
  std::wstring secondPath;                     // CArpRecord::SetSecondPath
  std::uint32_t eventType = 0;                 // CArpRecord::SetEventType
  std::uint32_t category = 0;                  // CArpRecord::SetCategory
  std::uint32_t source = 0;                    // CArpRecord::SetSource
  bool marked = false;                         // CArpRecord::Mark
  std::shared_ptr<CBuf> extraData;             // CArpRecord::SetExtraData
  std::uint16_t port = 0;                      // CArpRecord::SetPort
  bool ipv6 = false;                           // CArpRecord::SetIpv6
  std::uint32_t ipv4Address = 0;               // CArpRecord::SetIpv4Address
  std::array<std::uint8_t, 16> ipv6Address{};  // CArpRecord::SetIpv6Address
  bool remote = false;                         // CArpRecord::SetRemoteFlag
  std::array<std::uint64_t, 4> words{};        // CArpRecord::SetWord0 to SetWord3
  std::uint32_t valueA = 0;                    // CArpRecord::SetValueA
  std::uint32_t valueB = 0;                    // CArpRecord::SetValueB
  mutable std::shared_ptr<CBuf> contextData;   // for Decision::kContext: set it in the judge
};

// An event record that stores everything. One thread fills, judges and drops a record, so it needs no lock.
class DefaultRecord : public CArpRecord, public CArpProcess {
 public:
  // Makes a record. Its process part is the record itself and does not own it.
  DefaultRecord() : process(std::shared_ptr<void>(), this) {}
  virtual ~DefaultRecord() = default;
  DefaultRecord(const DefaultRecord&) = delete;
  DefaultRecord& operator=(const DefaultRecord&) = delete;

  Event event;  // what was stored

  const std::shared_ptr<CArpProcess>& ProcessPart() override { return process; }
  void Mark() override { event.marked = true; }
  std::wstring& GetPath(std::wstring& out) override { return out = event.path; }
  std::shared_ptr<CBuf> GetContextData() override { return event.contextData; }
  std::uint32_t GetPathSource() override { return static_cast<std::uint32_t>(event.processId); }
  std::string& Describe(std::string& out) override { return out = boost::locale::conv::utf_to_utf<char>(event.path); }
  void SetPath(const std::wstring& path) override { event.path = path; }
  void SetSecondPath(const std::wstring& path) override { event.secondPath = path; }
  void SetEventType(std::uint32_t type) override { event.eventType = type; }
  void SetCategory(std::uint32_t category) override { event.category = category; }
  void SetSource(std::uint32_t source) override { event.source = source; }
  void SetExtraData(const std::shared_ptr<CBuf>& data) override { event.extraData = data; }
  void SetPort(std::uint16_t port) override { event.port = port; }
  void SetIpv6(bool ipv6) override { event.ipv6 = ipv6; }
  void SetIpv4Address(std::uint32_t address) override { event.ipv4Address = address; }
  void SetIpv6Address(const std::array<std::uint8_t, 16>& address) override { event.ipv6Address = address; }
  void SetRemoteFlag(bool remote) override { event.remote = remote; }
  void SetWord0(std::uint64_t word) override { event.words[0] = word; }
  void SetWord1(std::uint64_t word) override { event.words[1] = word; }
  void SetWord2(std::uint64_t word) override { event.words[2] = word; }
  void SetWord3(std::uint64_t word) override { event.words[3] = word; }
  void SetValueA(std::uint32_t value) override { event.valueA = value; }
  void SetValueB(std::uint32_t value) override { event.valueB = value; }
  void SetWideInfo(const std::wstring& text) override { event.wideInfo = text; }

  std::uint64_t GetProcessId() override { return event.processId; }
  void SetProcessId(std::uint64_t processId) override { event.processId = processId; }
  void SetSessionId(std::uint32_t sessionId) override { event.sessionId = sessionId; }
  void SetNarrowInfo(const std::string& text) override { event.narrowInfo = text; }
  void SetIdentityText(const std::string& text) override { event.identityText = text; }

 private:
  const std::shared_ptr<CArpProcess> process;
};

}  // namespace fenlux

#endif  // FENLUX_DEFAULT_RECORD_H
