// The records that pass between the module and the driver, as layouts of little-endian fields without padding, and the
// protocol's numbers. Includes nothing of the host.
#pragma once

#include <boost/endian/buffers.hpp>
#include <cstddef>
#include <cstdint>

namespace fenlux::records {

using U8 = std::uint8_t;                         // a byte
using U16 = boost::endian::little_uint16_buf_t;  // a number, little-endian and unaligned
using U32 = boost::endian::little_uint32_buf_t;  // a number, little-endian and unaligned
using U64 = boost::endian::little_uint64_buf_t;  // a number, little-endian and unaligned

inline constexpr std::uint64_t kRequestMagic = 0x8f79ffe729a34ae3;  // of a request and a version reply
inline constexpr std::uint64_t kReplyMagic = 0x5365c3b2b13342e4;    // of a reply
inline constexpr std::uint64_t kConnectMagic = 0x2518d52534ac4c62;  // of a connect context

inline constexpr std::uint32_t kRequestSize = 65561;          // of every request, whatever its payload
inline constexpr std::uint32_t kReplyFixedSize = 156;         // of a reply without context data
inline constexpr std::uint32_t kNotificationFixedSize = 156;  // of a notification without items
inline constexpr std::uint32_t kConnectVersion = 200;         // that a connect context states
inline constexpr std::uint32_t kModuleVersion = 19072701;     // one more if the host's version flag is set
inline constexpr std::uint32_t kMaxMessageSize = 196764;      // the largest notification
inline constexpr wchar_t kPortName[] = L"\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E";  // the driver's port
static_assert(sizeof(kPortName) / sizeof(wchar_t) - 1 == 50);

// Commands of the module to the driver.
enum class Command : std::uint32_t {
  kAddMonitorObject = 1,
  kCommitMonitorObjects = 3,
  kGrpmSwitch = 4,
  kGrspSwitch = 6,
  kGrdtoValue = 8,
  kGrharaSwitch = 9,
  kDumpDebugInfo = 11,
  kSpspState = 12,
  kDriverVersion = 13,
  kNetControlMode = 19,
  kSystemProcess = 20,
  kNetItemListBegin = 21,
  kNetItem = 22,
  kNetItemListEnd = 23,
  kDriverConfig = 24,
};

// Verdicts of a reply. The driver defines what each does to the operation. The module only passes them on; of
// verdicts 2, 4 and 5 it fixes only the numbers.
enum class Verdict : std::uint32_t {
  kVerdict2 = 2,
  kPass = 3,  // also for an operation that is not judged
  kVerdict4 = 4,
  kVerdict5 = 5,
  kContext = 6,      // context data follows the fixed part
  kPassClient2 = 7,  // replaces kPass for client type 2
  kUnjudged = 8,     // no decision was made
};
inline constexpr auto kMinVerdict = static_cast<std::uint32_t>(Verdict::kVerdict2);  // the smallest value of Verdict
inline constexpr auto kMaxVerdict = static_cast<std::uint32_t>(Verdict::kUnjudged);  // the largest value of Verdict

// Bytes after the context data of a reply; zero bytes end a UTF-16 text there.
inline constexpr std::uint32_t kContextTerminatorSize = 2;

// Notification codes. The driver sends kMin1 to kMax1 (except kUnused) and kMin2 to kMax2. Apart from kPlain, only
// codes that need more than an event type have names of their own.
namespace code {
inline constexpr std::uint32_t kCategory1Begin = 4096;  // a code below this one is malformed
inline constexpr std::uint32_t kCategory2Begin = 8192;  // category 2 from here on

inline constexpr std::uint32_t kMin1 = 4097;          // the first code of category 1
inline constexpr std::uint32_t kAccess1 = 4097;       // carries access values and conditions
inline constexpr std::uint32_t kPlain = 4098;         // carries nothing special, like all codes without a name
inline constexpr std::uint32_t kCategory2 = 4109;     // counts as category 2, whatever its number
inline constexpr std::uint32_t kNoReply = 4113;       // the driver expects no reply
inline constexpr std::uint32_t kEndpoint = 4114;      // carries an EndpointDetail
inline constexpr std::uint32_t kUnused = 4115;        // never sent
inline constexpr std::uint32_t kRemote1 = 4116;       // carries a RemoteDetail
inline constexpr std::uint32_t kPrefixedPath = 4118;  // item 1 begins with kPathPrefixLength extra characters
inline constexpr std::uint32_t kMax1 = 4118;          // the last code of category 1

inline constexpr std::uint32_t kMin2 = 8193;         // the first code of category 2
inline constexpr std::uint32_t kAccess2 = 8193;      // as kAccess1
inline constexpr std::uint32_t kMarked = 8194;       // marks the record
inline constexpr std::uint32_t kFurtherPath = 8204;  // its path may be in item 4
inline constexpr std::uint32_t kRemote2 = 8205;      // as kRemote1
inline constexpr std::uint32_t kMax2 = 8206;         // the last code of category 2
}  // namespace code
inline constexpr std::size_t kPathPrefixLength = 12;

// Types of monitored objects (commands 1 and 3). The driver defines what they mean; the policy uses 1 or 2.
inline constexpr int kObjectType1 = 1;
inline constexpr int kObjectType2 = 2;  // see kObjectType1
inline constexpr int kObjectType3 = 3;  // never used by the policy

// Client types, in the connect context and in ClientSwitchRequest.
inline constexpr std::uint32_t kClientType1 = 1;
inline constexpr std::uint32_t kClientType2 = 2;  // CCfgEx::GetClientTypeFlag is true
// The client type that CCfgEx::GetClientTypeFlag selects.
constexpr std::uint32_t ClientType(bool clientTypeFlag) { return clientTypeFlag ? kClientType2 : kClientType1; }

// Kinds of system processes (command 20).
enum class SystemProcess : std::uint32_t { kCsrss = 2, kServices = 3 };
// Stands for "no process"; never sent.
inline constexpr std::uint64_t kNoProcess = 0xFFFFFFFFFFFFFFFF;

// Modes of network control (command 19).
enum class NetControlMode : std::uint32_t { kMode1 = 1, kItems = 2, kMode3 = 3, kAlternateItems = 4 };
// Item lists of network control (commands 21 to 23). Modes kItems and kAlternateItems apply list 3.
inline constexpr std::uint32_t kNetItemList1 = 1;
inline constexpr std::uint32_t kNetItemList2 = 2;  // see kNetItemList1
inline constexpr std::uint32_t kNetItemList3 = 3;  // see kNetItemList1

// The beginning of every request.
struct RequestHeader {
  U64 magic;    // kRequestMagic
  U32 command;  // Command
};
static_assert(sizeof(RequestHeader) == 12 && offsetof(RequestHeader, magic) == 0 &&
              offsetof(RequestHeader, command) == 8);

inline constexpr std::uint32_t kMaxPayloadSize = kRequestSize - sizeof(RequestHeader);  // what remains of a request
static_assert(kMaxPayloadSize == 65549);

// Command 1.
struct MonitorObjectRequest {
  RequestHeader header;  // magic and command
  U32 objectType;        // 1, 2 or 3
  U8 pathFlag;           // 1: the path does not exist; otherwise CUtility::TestPath
  U8 rootName[8];        // CUtility::CopyToField of the root name
  U8 path[65536];        // CUtility::CopyToField of the path
};
static_assert(sizeof(MonitorObjectRequest) == kRequestSize && offsetof(MonitorObjectRequest, objectType) == 12 &&
              offsetof(MonitorObjectRequest, pathFlag) == 16 && offsetof(MonitorObjectRequest, rootName) == 17 &&
              offsetof(MonitorObjectRequest, path) == 25);

// Commands 3 (object type), 8 (value), 19 (mode), 21 and 23 (list type).
struct ValueRequest {
  RequestHeader header;  // magic and command
  U32 value;             // depends on the command
};
static_assert(sizeof(ValueRequest) == 16 && offsetof(ValueRequest, value) == 12);

// Commands 4 and 6.
struct ClientSwitchRequest {
  RequestHeader header;  // magic and command
  U32 clientType;        // ClientType
  U8 on;                 // 0 or 1
};
static_assert(sizeof(ClientSwitchRequest) == 17 && offsetof(ClientSwitchRequest, clientType) == 12 &&
              offsetof(ClientSwitchRequest, on) == 16);

// Command 9.
struct SwitchRequest {
  RequestHeader header;  // magic and command
  U8 off;                // 0 for on, 1 for off
};
static_assert(sizeof(SwitchRequest) == 13 && offsetof(SwitchRequest, off) == 12);

// Command 12.
struct SpspStateRequest {
  RequestHeader header;  // magic and command
  U8 switch1;            // switch 1
  U8 switch2;            // switch 2
  U8 switch3;            // switch 3
  U8 switch4;            // switch 4
};
static_assert(sizeof(SpspStateRequest) == 16 && offsetof(SpspStateRequest, switch1) == 12 &&
              offsetof(SpspStateRequest, switch2) == 13 && offsetof(SpspStateRequest, switch3) == 14 &&
              offsetof(SpspStateRequest, switch4) == 15);

// The reply to command 13, in a buffer of at least kRequestSize bytes.
struct VersionReply {
  RequestHeader header;  // magic and command
  U32 version;           // the driver's version
};
static_assert(sizeof(VersionReply) == 16 && offsetof(VersionReply, version) == 12);

// Command 20.
struct SystemProcessRequest {
  RequestHeader header;  // magic and command
  U32 kind;              // SystemProcess
  U64 processId;         // never kNoProcess
};
static_assert(sizeof(SystemProcessRequest) == 24 && offsetof(SystemProcessRequest, kind) == 12 &&
              offsetof(SystemProcessRequest, processId) == 16);

// Command 22.
struct NetItemRequest {
  RequestHeader header;  // magic and command
  U32 listType;          // 1, 2 or 3
  U8 opaque[48];         // NetControlItem::opaque
  U32 value;             // NetControlItem::value
};
static_assert(sizeof(NetItemRequest) == 68 && offsetof(NetItemRequest, listType) == 12 &&
              offsetof(NetItemRequest, opaque) == 16 && offsetof(NetItemRequest, value) == 64);

// Command 24: the host's configuration block follows the header directly.
struct DriverConfigRequest {
  RequestHeader header;       // magic and command
  U8 block[kMaxPayloadSize];  // CCfgEx::GetDriverConfigBlock
};
static_assert(sizeof(DriverConfigRequest) == kRequestSize && offsetof(DriverConfigRequest, block) == 12);

// Passed to the driver when the connection is opened.
struct ConnectContext {
  U64 magic;       // kConnectMagic
  U32 version;     // kConnectVersion
  U32 clientType;  // ClientType
};
static_assert(sizeof(ConnectContext) == 16 && offsetof(ConnectContext, magic) == 0 &&
              offsetof(ConnectContext, version) == 8 && offsetof(ConnectContext, clientType) == 12);

// The reply to a notification; `contextSize` bytes follow it for Verdict::kContext.
struct Reply {
  U64 magic;        // kReplyMagic
  U32 fixedSize;    // kReplyFixedSize
  U32 verdict;      // Verdict
  U32 contextSize;  // bytes after the fixed part
  U8 unused[136];   // not written
};
static_assert(sizeof(Reply) == kReplyFixedSize && offsetof(Reply, magic) == 0 && offsetof(Reply, fixedSize) == 8 &&
              offsetof(Reply, verdict) == 12 && offsetof(Reply, contextSize) == 16);

// A notification from the driver. Its fixed part is followed by item 1 (a path), item 2 (a second path), item 3 (bytes)
// and item 4 (a further path). Texts are UTF-16 and NUL-terminated.
struct Notification {
  U8 unused0[12];       // not read
  U64 processId;        // of the process that performs the operation
  U32 code;             // a number of namespace code
  U8 variant;           // not 0: the second event type of a pair
  U8 conditionA;        // condition A
  U8 unused26;          // not read
  U8 conditionB;        // condition B
  U8 conditionC;        // condition C
  U8 oplock;            // not 0: an oplock break
  U32 item1Size;        // bytes of item 1; 0: absent
  U32 item2Size;        // bytes of item 2; 0: absent
  U32 item3Size;        // bytes of item 3; 0: absent
  U32 item4Present;     // not 0: item 4 is present (kFurtherPath only)
  U32 identityPresent;  // not 0: identity is present
  U8 identity[64];      // account identity block
  U8 detail[33];        // EndpointDetail or RemoteDetail, depending on the code
  U8 accessKind;        // kAccess1 and kAccess2
  U32 accessValueA;     // kAccess1 and kAccess2
  U32 accessValueB;     // kAccess1 and kAccess2
};
static_assert(sizeof(Notification) == kNotificationFixedSize && offsetof(Notification, processId) == 12 &&
              offsetof(Notification, code) == 20 && offsetof(Notification, variant) == 24 &&
              offsetof(Notification, conditionA) == 25 && offsetof(Notification, conditionB) == 27 &&
              offsetof(Notification, conditionC) == 28 && offsetof(Notification, oplock) == 29 &&
              offsetof(Notification, item1Size) == 30 && offsetof(Notification, item2Size) == 34 &&
              offsetof(Notification, item3Size) == 38 && offsetof(Notification, item4Present) == 42 &&
              offsetof(Notification, identityPresent) == 46 && offsetof(Notification, identity) == 50 &&
              offsetof(Notification, detail) == 114 && offsetof(Notification, accessKind) == 147 &&
              offsetof(Notification, accessValueA) == 148 && offsetof(Notification, accessValueB) == 152);

// Notification::detail of code::kEndpoint.
struct EndpointDetail {
  U8 ipv6;   // not 0: IPv6
  U16 port;  // a number, little-endian
  union {
    U32 ipv4Address;     // in network byte order: byte 0 is the first of the address
    U8 ipv6Address[16];  // in network byte order
  };                     // the address, of the family that `ipv6` names
};
static_assert(sizeof(EndpointDetail) == 19 && offsetof(EndpointDetail, port) == 1 &&
              offsetof(EndpointDetail, ipv4Address) == 3 && offsetof(EndpointDetail, ipv6Address) == 3);

// Notification::detail of code::kRemote1 and code::kRemote2.
struct RemoteDetail {
  U8 remote;     // the flag
  U64 words[4];  // the four words
};
static_assert(sizeof(RemoteDetail) == sizeof(Notification::detail) && offsetof(RemoteDetail, words) == 1);
static_assert(alignof(Notification) == 1 && alignof(EndpointDetail) == 1 && alignof(RemoteDetail) == 1);

}  // namespace fenlux::records
