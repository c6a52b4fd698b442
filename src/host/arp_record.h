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
// CArpRecord::SetCategory: notification codes 4096 to 8191, except 4109.
inline constexpr std::uint32_t kEventCategory1 = 1;
// CArpRecord::SetCategory: notification codes from 8192 on, and code 4109.
inline constexpr std::uint32_t kEventCategory2 = 2;

// The process that performs the operation. The module sets what it knows; what is not set stays as the host initialized
// it. Delivery thread; one thread per record.
class CArpProcess {
 public:
  // Returns the id that SetProcessId stored, unchanged: the module reads it back to look the process up.
  virtual std::uint64_t GetProcessId() = 0;
  // Stores the process id as the driver sent it. Called once per record. The module looks the process up by the low 32
  // bits.
  virtual void SetProcessId(std::uint64_t processId) = 0;
  // Stores the result of CWinWork::QueryProcessValue. Not called if the process is unknown. The module only carries the
  // value; a result from the process cache may be one refresh interval old.
  virtual void SetSessionId(std::uint32_t sessionId) = 0;
  // Stores the result of CWinWork::GetProcessNarrowText. Not called if the process is unknown. The module only carries
  // the text; what it says is the host's choice (the reference host: the command line).
  virtual void SetNarrowInfo(const std::string& text) = 0;
  // Stores the result of CWinWork::GetIdentityText. Called, also for an unknown process, if CCfgEx::IsIdentityTextAdded
  // is true and the notification has an identity block. The module only carries the text (the reference host: the
  // account's security identifier, such as "S-1-5-18").
  virtual void SetIdentityText(const std::string& text) = 0;

 protected:
  ~CArpProcess() = default;
};

// One record per notification: created by CArpMgmt, filled by the module, judged by CAoArp, and then released by the
// module. A host that needs it longer keeps a handle. If an operation throws, the driver receives verdict 8. Delivery
// thread; one thread per record.
//
// The module calls the setters in the order of docs/embedding.md, "Calls during a notification". A setter that a
// notification has no value for is not called, so initialize every value. Numbers described below as carried
// mean something to the agent and the driver only: the module passes them on as the driver sent them.
class CArpRecord {
 public:
  // Returns the record's process, the same one every time; never null. The record keeps the handle.
  virtual const std::shared_ptr<CArpProcess>& ProcessPart() = 0;
  // Marks the event as one of notification code 8194. Not called for other codes.
  virtual void Mark() = 0;
  // Writes the last path of SetPath, or an empty text, into `out` and returns `out`. Called for codes 4116 and 8205
  // only, to find out whether the driver sent a path.
  virtual std::wstring& GetPath(std::wstring& out) = 0;
  // Returns the data that decision 5 sends to the driver with the verdict; its format is an agreement between the agent
  // and the driver. The module copies it and appends two bytes that are 0 if CUtility::CreateBuffer zero-fills. Called
  // once, right after CAoArp::Evaluate, and only for that decision. Without data (null, or size 0) the driver receives
  // verdict 8.
  virtual std::shared_ptr<CBuf> GetContextData() = 0;
  // Returns the number that the module passes to CWinWork::GetProcessWideText to get a path. Called for codes 4116 and
  // 8205 only, and only if GetPath gives an empty text. The module only carries the number (the reference host: the
  // process id, so that the image's path stands in for a missing path).
  virtual std::uint32_t GetPathSource() = 0;
  // Writes a description for a log line, in narrow text, into `out` and returns `out`. Called for oplock breaks only,
  // which are not judged.
  virtual std::string& Describe(std::string& out) = 0;
  // Stores the path of the object that the operation is about. May be called more than once; the last path counts.
  // Paths have the form of CUtility::ToRecordString, with two exceptions: the first of the two calls for code 4118
  // passes the driver's form, and a path that GetPathSource gave passes as the host returned it. Not called if the
  // driver sent no path.
  virtual void SetPath(const std::wstring& path) = 0;
  // Stores the second path, in the form of CUtility::ToRecordString. What it is depends on the operation; the module
  // passes on what the driver sent. Not called if there is none.
  virtual void SetSecondPath(const std::wstring& path) = 0;
  // Stores what happened: the event type of the notification's code, see the table "Codes" in docs/protocol.md. The
  // module fixes which code gives which type; what a type means is an agreement between the agent and the driver.
  // Called once, right before CAoArp::Evaluate, and not for oplock breaks.
  virtual void SetEventType(std::uint32_t type) = 0;
  // Stores kEventCategory1 or kEventCategory2. May be called twice, and the last one counts. Several codes of the two
  // categories share an event type, so a judge that distinguishes them needs both.
  virtual void SetCategory(std::uint32_t category) = 0;
  // Stores where the event comes from: always kDriverEventSource.
  virtual void SetSource(std::uint32_t source) = 0;
  // Stores the bytes that the driver attached to the event, in a buffer of CUtility::BufferFromBytes that the record
  // may keep. Carried. Not called if there are none.
  virtual void SetExtraData(const std::shared_ptr<CBuf>& data) = 0;
  // Stores the port of a network endpoint (code 4114), in the byte order of the machine: 443 is 443.
  virtual void SetPort(std::uint16_t port) = 0;
  // Stores the family of a network endpoint's address. Called after SetPort and before the address.
  virtual void SetIpv6(bool ipv6) = 0;
  // Stores the IPv4 address of a network endpoint. The driver sends it in network byte order, and byte 0 of the message
  // is the low byte of `address`: 192.0.2.1 is 0x010200C0.
  virtual void SetIpv4Address(std::uint32_t address) = 0;
  // Stores the IPv6 address of a network endpoint, in network byte order: element 0 is the first byte of the address.
  virtual void SetIpv6Address(const std::array<std::uint8_t, 16>& address) = 0;
  // Stores the remote flag of codes 4116 and 8205: whether the driver's byte is not 0. Carried.
  virtual void SetRemoteFlag(bool remote) = 0;
  // Stores the first of the four numbers of codes 4116 and 8205. Carried.
  virtual void SetWord0(std::uint64_t word) = 0;
  // Stores the second of the four numbers of codes 4116 and 8205. Carried.
  virtual void SetWord1(std::uint64_t word) = 0;
  // Stores the third of the four numbers of codes 4116 and 8205. Carried.
  virtual void SetWord2(std::uint64_t word) = 0;
  // Stores the fourth of the four numbers of codes 4116 and 8205. Carried.
  virtual void SetWord3(std::uint64_t word) = 0;
  // Stores the first of the two numbers of codes 4097 and 8193. Carried.
  virtual void SetValueA(std::uint32_t value) = 0;
  // Stores the second of the two numbers of codes 4097 and 8193. Carried.
  virtual void SetValueB(std::uint32_t value) = 0;
  // Stores the result of CWinWork::GetProcessWideText for the process. Not called if the process is unknown. The module
  // only carries the text; what it says is the host's choice (the reference host: the path of the process's image).
  virtual void SetWideInfo(const std::wstring& text) = 0;

 protected:
  ~CArpRecord() = default;
};

}  // namespace fenlux
