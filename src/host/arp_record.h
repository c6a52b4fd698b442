// An event record: what the driver reported, in the form that the host judges.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace fenlux {

class CBuf;

// The source of every event of the driver.
inline constexpr std::uint32_t kDriverEventSource = 1;
// The categories of events.
inline constexpr std::uint32_t kEventCategory1 = 1;
inline constexpr std::uint32_t kEventCategory2 = 2;

// The record's view of the process that performed the operation. Delivery thread; one thread per record.
class CArpProcess {
 public:
  // The id that SetProcessId stored.
  virtual std::uint64_t GetProcessId() = 0;
  virtual void SetProcessId(std::uint64_t processId) = 0;
  virtual void SetSessionId(std::uint32_t sessionId) = 0;
  virtual void SetNarrowInfo(const std::string& text) = 0;
  virtual void SetIdentityText(const std::string& text) = 0;

 protected:
  ~CArpProcess() = default;
};

// One record per notification, made by CArpMgmt, filled by the module, judged by CAoArp and then dropped by the
// module; a host that wants it longer keeps a handle. Delivery thread; one thread per record.
class CArpRecord {
 public:
  virtual const std::shared_ptr<CArpProcess>& ProcessPart() = 0;
  // Notes that the event is one of the second file interface's opening events.
  virtual void Mark() = 0;
  // The path stored so far; empty where none is.
  virtual std::wstring& GetPath(std::wstring& out) = 0;
  // What decision 5 sends to the driver along with the verdict; may be empty otherwise.
  virtual std::shared_ptr<CBuf> GetContextData() = 0;
  // What CWinWork::GetProcessWideText turns into a path where the driver sent none.
  virtual std::uint32_t GetPathSource() = 0;
  // A text for the log.
  virtual std::string& Describe(std::string& out) = 0;
  // May be called several times for one event; the last path holds.
  virtual void SetPath(const std::wstring& path) = 0;
  virtual void SetSecondPath(const std::wstring& path) = 0;
  virtual void SetEventType(std::uint32_t type) = 0;
  // 1 or 2; the last one holds.
  virtual void SetCategory(std::uint32_t category) = 0;
  virtual void SetSource(std::uint32_t source) = 0;
  virtual void SetExtraData(const std::shared_ptr<CBuf>& data) = 0;
  virtual void SetPort(std::uint16_t port) = 0;
  virtual void SetIpv6(bool ipv6) = 0;
  virtual void SetIpv4Address(std::uint32_t address) = 0;
  virtual void SetIpv6Address(const std::array<std::uint8_t, 16>& address) = 0;
  virtual void SetRemoteFlag(bool remote) = 0;
  virtual void SetWord0(std::uint64_t word) = 0;
  virtual void SetWord1(std::uint64_t word) = 0;
  virtual void SetWord2(std::uint64_t word) = 0;
  virtual void SetWord3(std::uint64_t word) = 0;
  virtual void SetValueA(std::uint32_t value) = 0;
  virtual void SetValueB(std::uint32_t value) = 0;
  virtual void SetWideInfo(const std::wstring& text) = 0;

 protected:
  ~CArpRecord() = default;
};

}  // namespace fenlux
