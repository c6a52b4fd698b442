// Event records: what the driver reported, for the host to judge.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

class CBuf;

// CArpRecord::SetSource: the source of every event that the driver reports.
inline constexpr std::uint32_t kDriverEventSource = 1;
// CArpRecord::SetCategory.
inline constexpr std::uint32_t kEventCategory1 = 1;
inline constexpr std::uint32_t kEventCategory2 = 2;

// The process that performs the operation. Delivery thread; one thread per record.
class CArpProcess {
 public:
  // Returns the id that SetProcessId stored.
  virtual std::uint64_t GetProcessId() = 0;
  virtual void SetProcessId(std::uint64_t processId) = 0;
  // CWinWork::QueryProcessValue and GetProcessNarrowText of the process; not called if the process is unknown.
  virtual void SetSessionId(std::uint32_t sessionId) = 0;
  virtual void SetNarrowInfo(const std::string& text) = 0;
  // CWinWork::GetIdentityText; only called if CCfgEx::IsIdentityTextAdded and the notification has an identity.
  virtual void SetIdentityText(const std::string& text) = 0;

 protected:
  ~CArpProcess() = default;
};

// One record per notification: created by CArpMgmt, filled by the module, judged by CAoArp, and then released by the
// module. A host that needs it longer keeps a handle. If an operation throws, the driver receives verdict 8. Delivery
// thread; one thread per record.
class CArpRecord {
 public:
  // Returns the record's process, the same one every time; never null.
  virtual const std::shared_ptr<CArpProcess>& ProcessPart() = 0;
  // Marks the event as one of code 8194, which opens through the second file interface.
  virtual void Mark() = 0;
  // Writes the last path of SetPath, or an empty text, into `out` and returns it.
  virtual std::wstring& GetPath(std::wstring& out) = 0;
  // Returns the data that decision 5 sends to the driver with the verdict. Only called for that decision; without data
  // the driver receives verdict 8.
  virtual std::shared_ptr<CBuf> GetContextData() = 0;
  // Returns the number that CWinWork::GetProcessWideText turns into a path if the driver sent none.
  virtual std::uint32_t GetPathSource() = 0;
  // Writes a description for the log into `out` and returns it. Only called for oplock breaks, which are not judged.
  virtual std::string& Describe(std::string& out) = 0;
  // May be called more than once; the last path counts. Paths have the form of CUtility::ToRecordString, except that
  // the first of the two calls for code 4118 passes the driver's form.
  virtual void SetPath(const std::wstring& path) = 0;
  virtual void SetSecondPath(const std::wstring& path) = 0;
  // What happened: a number of the protocol. Called right before CAoArp::Evaluate.
  virtual void SetEventType(std::uint32_t type) = 0;
  // kEventCategory1 or kEventCategory2; may be called twice, and the last one counts.
  virtual void SetCategory(std::uint32_t category) = 0;
  virtual void SetSource(std::uint32_t source) = 0;
  // Bytes that the driver attached to the event.
  virtual void SetExtraData(const std::shared_ptr<CBuf>& data) = 0;
  // A network endpoint (code 4114): SetPort, SetIpv6, and the address of that family. The port is the number that the
  // driver sent; byte 0 of the message's address is the low byte of `address`.
  virtual void SetPort(std::uint16_t port) = 0;
  virtual void SetIpv6(bool ipv6) = 0;
  virtual void SetIpv4Address(std::uint32_t address) = 0;
  virtual void SetIpv6Address(const std::array<std::uint8_t, 16>& address) = 0;
  // A flag and four numbers of codes 4116 and 8205, as the driver sent them.
  virtual void SetRemoteFlag(bool remote) = 0;
  virtual void SetWord0(std::uint64_t word) = 0;
  virtual void SetWord1(std::uint64_t word) = 0;
  virtual void SetWord2(std::uint64_t word) = 0;
  virtual void SetWord3(std::uint64_t word) = 0;
  // Two numbers of codes 4097 and 8193, as the driver sent them.
  virtual void SetValueA(std::uint32_t value) = 0;
  virtual void SetValueB(std::uint32_t value) = 0;
  // CWinWork::GetProcessWideText of the process; not called if the process is unknown.
  virtual void SetWideInfo(const std::wstring& text) = 0;

 protected:
  ~CArpRecord() = default;
};

}  // namespace fenlux
