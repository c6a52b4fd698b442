// The protocol between the fenlux module and its kernel driver, for use in the driver: the numbers, every record
// with asserted size and offsets, parsers for what the module sends, and builders for what the driver sends.
//
// Plain C11, also valid C++20. Header only: every function is static inline, allocates nothing, keeps no state, calls
// nothing outside this header, and may run at any IRQL at which the given memory is accessible. All functions may be
// called concurrently on different memory. Compilers may turn the copy loops into calls to memcpy, memmove, memset or
// memcmp, which every kernel provides.
//
// The header includes <stdint.h> and <stddef.h>. If these do not exist, define FENLUX_DRIVER_PROTOCOL_NO_STDINT and
// provide uint8_t, uint16_t, uint32_t, uint64_t, size_t, NULL and offsetof before including it.
//
// Conventions:
//   - All sizes and offsets are in bytes. Integers in records are little-endian and unaligned.
//   - Records (Fenlux...Record, Fenlux...Detail) consist of byte arrays only: alignment 1, no padding. A pointer to
//     received bytes can be used as a pointer to a record once the size has been checked. Read and write their fields
//     with FenluxGetU16 ... FenluxSetU64, which work with any byte order of the machine.
//   - Views (Fenlux...View) hold decoded values. Their pointers point into the bytes that were parsed and are valid as
//     long as those bytes are.
//   - Functions that can fail return a FenluxError. FenluxErrorText describes it.
//   - Parsers may read a byte more than once. Before parsing, copy a message out of memory that user mode can change.
#ifndef FENLUX_DRIVER_PROTOCOL_H
#define FENLUX_DRIVER_PROTOCOL_H

#ifndef FENLUX_DRIVER_PROTOCOL_NO_STDINT
#include <stddef.h>
#include <stdint.h>
#endif

#ifdef __cplusplus
#define FENLUX_STATIC_ASSERT_(condition) static_assert(condition, #condition)
#define FENLUX_CAST_(type, value) static_cast<type>(value)
#else
#define FENLUX_STATIC_ASSERT_(condition) _Static_assert(condition, #condition)
#define FENLUX_CAST_(type, value) ((type)(value))
#endif

// The size of a record, and the offset of one of its fields.
#define FENLUX_ASSERT_SIZE_(record, size) FENLUX_STATIC_ASSERT_(sizeof(record) == (size))
#define FENLUX_ASSERT_OFFSET_(record, field, offset) FENLUX_STATIC_ASSERT_(offsetof(record, field) == (offset))

#ifdef __cplusplus
extern "C" {
#endif

// ---- Numbers

// The name of the communication port.
#define FENLUX_PORT_NAME "\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E"
// The same name as a wide string.
#define FENLUX_PORT_NAME_WIDE L"\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E"
// The length of the name in characters, without the NUL.
#define FENLUX_PORT_NAME_LENGTH 50u
FENLUX_STATIC_ASSERT_(sizeof(FENLUX_PORT_NAME) == FENLUX_PORT_NAME_LENGTH + 1);

// The first eight bytes of a connect context. Notifications have no magic.
#define FENLUX_CONNECT_MAGIC 0x2518d52534ac4c62ULL
// The first eight bytes of a request and of a version reply.
#define FENLUX_REQUEST_MAGIC 0x8f79ffe729a34ae3ULL
// The first eight bytes of a reply.
#define FENLUX_REPLY_MAGIC 0x5365c3b2b13342e4ULL

// The version that a connect context states.
#define FENLUX_CONNECT_VERSION 200u

// A client type, in a connect context and in commands 4 and 6: operations that pass get verdict 3.
#define FENLUX_CLIENT_TYPE_1 1u
// The other client type: operations that pass get verdict 7.
#define FENLUX_CLIENT_TYPE_2 2u

// The module's version, which it compares with the version reply; one more if the host's version flag is set. If the
// two versions differ, the module only logs a warning. Version 0 is treated as no answer.
#define FENLUX_MODULE_VERSION 19072701u

// Sizes and limits.
#define FENLUX_CONNECT_CONTEXT_SIZE 16u          // of a connect context
#define FENLUX_REQUEST_SIZE 65561u               // of every request, whatever its payload
#define FENLUX_REQUEST_HEADER_SIZE 12u           // magic and command
#define FENLUX_MAX_PAYLOAD_SIZE 65549u           // what remains of a request; the largest configuration block
#define FENLUX_VERSION_REPLY_SIZE 65561u         // a shorter version reply counts as version 0
#define FENLUX_NOTIFICATION_FIXED_SIZE 156u      // of a notification without items
#define FENLUX_MAX_NOTIFICATION_SIZE 196764u     // the largest message that the module's side receives
#define FENLUX_REPLY_FIXED_SIZE 156u             // of a reply without context data
#define FENLUX_REPLY_CONTEXT_TAIL 2u             // bytes after the context data, counted in its size but not part of it
#define FENLUX_ROOT_NAME_SIZE 8u                 // of the root name in command 1
#define FENLUX_PATH_SIZE 65536u                  // of the path in command 1
#define FENLUX_NET_ITEM_OPAQUE_SIZE 48u          // of the opaque part of a network-control item
#define FENLUX_MAX_IDENTITY_SIZE 64u             // of a notification's identity block
#define FENLUX_NO_PROCESS 0xffffffffffffffffULL  // the process id that means "none"; never sent

// Commands of the module to the driver. The module expects an answer to FENLUX_COMMAND_DRIVER_VERSION only. Host and
// driver agree on the meaning of the switches, values, modes and lists; the module only passes them on.
typedef enum FenluxCommand {
  // Adds one path to the set that is being built for an object type.
  FENLUX_COMMAND_ADD_MONITOR_OBJECT = 1,
  // Replaces the set of an object type with the paths added since the last commit. If there are none, empties the set.
  FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS = 3,
  // Sets the grpm switch, for a client type.
  FENLUX_COMMAND_GRPM_SWITCH = 4,
  // Sets the grsp switch, for a client type.
  FENLUX_COMMAND_GRSP_SWITCH = 6,
  // Sets the grdto value.
  FENLUX_COMMAND_GRDTO_VALUE = 8,
  // Sets the grhara switch.
  FENLUX_COMMAND_GRHARA_SWITCH = 9,
  // Makes the driver write its state to its debug output. Returns nothing.
  FENLUX_COMMAND_DUMP_DEBUG_INFO = 11,
  // Sets the four spsp switches.
  FENLUX_COMMAND_SPSP_STATE = 12,
  // Asks for the driver's version; answered with a version reply.
  FENLUX_COMMAND_DRIVER_VERSION = 13,
  // Sets the mode of network control.
  FENLUX_COMMAND_NET_CONTROL_MODE = 19,
  // Registers the process id of csrss.exe or services.exe.
  FENLUX_COMMAND_SYSTEM_PROCESS = 20,
  // Begins an item list of network control. A list is sent as begin, items, end; begin and end alone empty it.
  FENLUX_COMMAND_NET_ITEM_LIST_BEGIN = 21,
  // Adds one item to the list.
  FENLUX_COMMAND_NET_ITEM = 22,
  // Ends the list.
  FENLUX_COMMAND_NET_ITEM_LIST_END = 23,
  // Passes the host's configuration block.
  FENLUX_COMMAND_DRIVER_CONFIG = 24
} FenluxCommand;

// The module's answer to a notification. The driver decides what each verdict does to the operation; the module only
// passes it on.
typedef enum FenluxVerdict {
  FENLUX_VERDICT_2 = 2,              // decision 1
  FENLUX_VERDICT_PASS = 3,           // decision 2, and every oplock break, for client type 1
  FENLUX_VERDICT_4 = 4,              // decision 3
  FENLUX_VERDICT_5 = 5,              // decision 4
  FENLUX_VERDICT_CONTEXT = 6,        // decision 5: context data follows the fixed part
  FENLUX_VERDICT_PASS_CLIENT_2 = 7,  // decision 6; also replaces FENLUX_VERDICT_PASS for client type 2
  FENLUX_VERDICT_UNJUDGED = 8        // decision 7, or the notification could not be judged
} FenluxVerdict;

// Notification codes. Codes 4097 to 4118 belong to category 1, codes 8193 to 8206 to category 2; most kinds of
// operations have a code in each. Every code takes a path, a second path, extra data and an identity block. The
// comment names the event type, or the pair "event type / event type if variant is not 0", and what else the code
// uses. All other codes, 4115 among them, are answered with FENLUX_VERDICT_UNJUDGED.
typedef enum FenluxNotificationCode {
  FENLUX_CODE_ACCESS_1 = 4097,       // access detail and the three conditions, see FenluxAccess
  FENLUX_CODE_4098 = 4098,           // 0x4005
  FENLUX_CODE_4099 = 4099,           // 0x4006
  FENLUX_CODE_4100 = 4100,           // 0x4007
  FENLUX_CODE_4101 = 4101,           // 0x4008 / 0x4009
  FENLUX_CODE_4102 = 4102,           // 0x400A
  FENLUX_CODE_4103 = 4103,           // 0x400B
  FENLUX_CODE_4104 = 4104,           // 0x400C
  FENLUX_CODE_4105 = 4105,           // 0x400D
  FENLUX_CODE_4106 = 4106,           // 0x400E
  FENLUX_CODE_4107 = 4107,           // 0x400F
  FENLUX_CODE_4108 = 4108,           // 0x4010
  FENLUX_CODE_4109 = 4109,           // 0x4011, or 0x4008 / 0x4009 if condition B is not 0; belongs to category 2
  FENLUX_CODE_4110 = 4110,           // 0x4012
  FENLUX_CODE_4111 = 4111,           // 0x4013
  FENLUX_CODE_4112 = 4112,           // 0x4014
  FENLUX_CODE_NO_REPLY = 4113,       // 0x4015; the module sends no reply, so do not wait for one
  FENLUX_CODE_ENDPOINT = 4114,       // 0x1002; endpoint detail
  FENLUX_CODE_REMOTE_1 = 4116,       // 0x4018; remote detail; without a path, the host looks one up
  FENLUX_CODE_4117 = 4117,           // 0x401B
  FENLUX_CODE_PREFIXED_PATH = 4118,  // 0x401E; the path's first 12 characters are a prefix that the module drops
  FENLUX_CODE_ACCESS_2 = 8193,       // as FENLUX_CODE_ACCESS_1
  FENLUX_CODE_MARKED = 8194,         // 0x4004; the host's event record is marked
  FENLUX_CODE_8195 = 8195,           // 0x4007
  FENLUX_CODE_8196 = 8196,           // 0x4008 / 0x4009
  FENLUX_CODE_8197 = 8197,           // 0x400A
  FENLUX_CODE_8198 = 8198,           // 0x400B
  FENLUX_CODE_8199 = 8199,           // 0x400C
  FENLUX_CODE_8200 = 8200,           // 0x400D
  FENLUX_CODE_8201 = 8201,           // 0x400E
  FENLUX_CODE_8202 = 8202,           // 0x400F
  FENLUX_CODE_8203 = 8203,           // 0x4010
  FENLUX_CODE_FURTHER_PATH = 8204,   // 0x4017; a further path, if present, replaces the path
  FENLUX_CODE_REMOTE_2 = 8205,       // 0x4019; as FENLUX_CODE_REMOTE_1
  FENLUX_CODE_8206 = 8206            // 0x401A
} FenluxNotificationCode;

// Whether the module knows the notification code and can judge such a notification.
static inline int FenluxIsNotificationCode(uint32_t code) {
  return (code >= FENLUX_CODE_ACCESS_1 && code <= FENLUX_CODE_PREFIXED_PATH && code != 4115) ||
         (code >= FENLUX_CODE_ACCESS_2 && code <= FENLUX_CODE_8206);
}

// Whether the module replies to notifications of this code. If it does not, send the notification without waiting; a
// malformed one may still be answered with FENLUX_VERDICT_UNJUDGED.
static inline int FenluxIsReplyExpected(uint32_t code) { return code != FENLUX_CODE_NO_REPLY; }

// ---- Errors

// What is wrong with a record or with the arguments of a builder.
typedef enum FenluxError {
  FENLUX_OK = 0,
  FENLUX_ERROR_NULL,          // a required pointer is NULL
  FENLUX_ERROR_SIZE,          // the record has the wrong size, or an item is not within it
  FENLUX_ERROR_MAGIC,         // the record does not begin with its magic
  FENLUX_ERROR_VERSION,       // connect context: the version is not FENLUX_CONNECT_VERSION
  FENLUX_ERROR_CLIENT_TYPE,   // the client type is not 1 or 2
  FENLUX_ERROR_COMMAND,       // request: there is no such command
  FENLUX_ERROR_OBJECT_TYPE,   // the object type is not 1, 2 or 3
  FENLUX_ERROR_PATH_FLAG,     // the path flag is not 0 or 1
  FENLUX_ERROR_EMPTY_PATH,    // command 1 carries no path
  FENLUX_ERROR_SWITCH,        // a switch is not 0 or 1
  FENLUX_ERROR_MODE,          // the network-control mode is not 1, 2, 3 or 4
  FENLUX_ERROR_PROCESS_KIND,  // the kind of system process is not 2 or 3
  FENLUX_ERROR_PROCESS_ID,    // the process id is FENLUX_NO_PROCESS
  FENLUX_ERROR_LIST_TYPE,     // the list type is not 1, 2 or 3
  FENLUX_ERROR_FIXED_SIZE,    // reply: the stated size of the fixed part is not FENLUX_REPLY_FIXED_SIZE
  FENLUX_ERROR_VERDICT,       // there is no such verdict
  FENLUX_ERROR_CONTEXT,       // context data is missing, or given with a verdict that takes none
  FENLUX_ERROR_CODE,          // there is no such notification code
  FENLUX_ERROR_TEXT,          // a text contains a NUL
  FENLUX_ERROR_IDENTITY,      // the identity block has more than FENLUX_MAX_IDENTITY_SIZE bytes
  FENLUX_ERROR_FURTHER_PATH,  // a further path is given with a code other than FENLUX_CODE_FURTHER_PATH
  FENLUX_ERROR_TOO_LARGE,     // the message would have more than FENLUX_MAX_NOTIFICATION_SIZE bytes
  FENLUX_ERROR_CAPACITY       // the caller's buffer is too small
} FenluxError;

// Returns an English description: a static string, never NULL.
static inline const char* FenluxErrorText(FenluxError error) {
  switch (error) {
    case FENLUX_OK:
      return "no error";
    case FENLUX_ERROR_NULL:
      return "a pointer is null";
    case FENLUX_ERROR_SIZE:
      return "wrong size";
    case FENLUX_ERROR_MAGIC:
      return "wrong magic";
    case FENLUX_ERROR_VERSION:
      return "unknown connect version";
    case FENLUX_ERROR_CLIENT_TYPE:
      return "unknown client type";
    case FENLUX_ERROR_COMMAND:
      return "unknown command";
    case FENLUX_ERROR_OBJECT_TYPE:
      return "unknown object type";
    case FENLUX_ERROR_PATH_FLAG:
      return "path flag is neither 0 nor 1";
    case FENLUX_ERROR_EMPTY_PATH:
      return "empty path";
    case FENLUX_ERROR_SWITCH:
      return "switch is neither 0 nor 1";
    case FENLUX_ERROR_MODE:
      return "unknown network-control mode";
    case FENLUX_ERROR_PROCESS_KIND:
      return "unknown kind of system process";
    case FENLUX_ERROR_PROCESS_ID:
      return "process id means no process";
    case FENLUX_ERROR_LIST_TYPE:
      return "unknown list type";
    case FENLUX_ERROR_FIXED_SIZE:
      return "wrong size of the fixed part";
    case FENLUX_ERROR_VERDICT:
      return "unknown verdict";
    case FENLUX_ERROR_CONTEXT:
      return "context data does not match the verdict";
    case FENLUX_ERROR_CODE:
      return "unknown notification code";
    case FENLUX_ERROR_TEXT:
      return "text contains a NUL";
    case FENLUX_ERROR_IDENTITY:
      return "identity block too large";
    case FENLUX_ERROR_FURTHER_PATH:
      return "code takes no further path";
    case FENLUX_ERROR_TOO_LARGE:
      return "message too large";
    case FENLUX_ERROR_CAPACITY:
      return "buffer too small";
  }
  return "unknown error";
}

// ---- Little-endian integers at any alignment

// A 16-bit number in a record.
typedef struct FenluxU16 {
  uint8_t bytes[2];  // little-endian
} FenluxU16;

// A 32-bit number in a record.
typedef struct FenluxU32 {
  uint8_t bytes[4];  // little-endian
} FenluxU32;

// A 64-bit number in a record.
typedef struct FenluxU64 {
  uint8_t bytes[8];  // little-endian
} FenluxU64;

// Returns the number in the two bytes at `bytes`, which must not be NULL.
static inline uint16_t FenluxLoadU16(const uint8_t* bytes) {
  return FENLUX_CAST_(uint16_t, bytes[0] | (bytes[1] << 8));
}

// Returns the number in the four bytes at `bytes`, which must not be NULL.
static inline uint32_t FenluxLoadU32(const uint8_t* bytes) {
  return FENLUX_CAST_(uint32_t, FenluxLoadU16(bytes)) | (FENLUX_CAST_(uint32_t, FenluxLoadU16(bytes + 2)) << 16);
}

// Returns the number in the eight bytes at `bytes`, which must not be NULL.
static inline uint64_t FenluxLoadU64(const uint8_t* bytes) {
  return FENLUX_CAST_(uint64_t, FenluxLoadU32(bytes)) | (FENLUX_CAST_(uint64_t, FenluxLoadU32(bytes + 4)) << 32);
}

// Writes the number to the two bytes at `bytes`, which must not be NULL.
static inline void FenluxStoreU16(uint8_t* bytes, uint16_t value) {
  bytes[0] = FENLUX_CAST_(uint8_t, value & 0xffu);
  bytes[1] = FENLUX_CAST_(uint8_t, value >> 8);
}

// Writes the number to the four bytes at `bytes`, which must not be NULL.
static inline void FenluxStoreU32(uint8_t* bytes, uint32_t value) {
  FenluxStoreU16(bytes, FENLUX_CAST_(uint16_t, value & 0xffffu));
  FenluxStoreU16(bytes + 2, FENLUX_CAST_(uint16_t, value >> 16));
}

// Writes the number to the eight bytes at `bytes`, which must not be NULL.
static inline void FenluxStoreU64(uint8_t* bytes, uint64_t value) {
  FenluxStoreU32(bytes, FENLUX_CAST_(uint32_t, value & 0xffffffffu));
  FenluxStoreU32(bytes + 4, FENLUX_CAST_(uint32_t, value >> 32));
}

// Returns the number in a record's field, which must not be NULL.
static inline uint16_t FenluxGetU16(const FenluxU16* field) { return FenluxLoadU16(field->bytes); }
// Returns the number in a record's field, which must not be NULL.
static inline uint32_t FenluxGetU32(const FenluxU32* field) { return FenluxLoadU32(field->bytes); }
// Returns the number in a record's field, which must not be NULL.
static inline uint64_t FenluxGetU64(const FenluxU64* field) { return FenluxLoadU64(field->bytes); }
// Writes the number to a record's field, which must not be NULL.
static inline void FenluxSetU16(FenluxU16* field, uint16_t value) { FenluxStoreU16(field->bytes, value); }
// Writes the number to a record's field, which must not be NULL.
static inline void FenluxSetU32(FenluxU32* field, uint32_t value) { FenluxStoreU32(field->bytes, value); }
// Writes the number to a record's field, which must not be NULL.
static inline void FenluxSetU64(FenluxU64* field, uint64_t value) { FenluxStoreU64(field->bytes, value); }

// ---- Records

// Passed by the module when it connects to the port.
typedef struct FenluxConnectContextRecord {
  FenluxU64 magic;       // FENLUX_CONNECT_MAGIC
  FenluxU32 version;     // FENLUX_CONNECT_VERSION
  FenluxU32 clientType;  // 1 or 2
} FenluxConnectContextRecord;
FENLUX_ASSERT_SIZE_(FenluxConnectContextRecord, FENLUX_CONNECT_CONTEXT_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxConnectContextRecord, magic, 0);
FENLUX_ASSERT_OFFSET_(FenluxConnectContextRecord, version, 8);
FENLUX_ASSERT_OFFSET_(FenluxConnectContextRecord, clientType, 12);

// The beginning of every request. A request always has FENLUX_REQUEST_SIZE bytes; bytes that its payload does not use
// may hold anything.
typedef struct FenluxRequestHeader {
  FenluxU64 magic;    // FENLUX_REQUEST_MAGIC
  FenluxU32 command;  // FenluxCommand
} FenluxRequestHeader;
FENLUX_ASSERT_SIZE_(FenluxRequestHeader, FENLUX_REQUEST_HEADER_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxRequestHeader, magic, 0);
FENLUX_ASSERT_OFFSET_(FenluxRequestHeader, command, 8);
FENLUX_STATIC_ASSERT_(FENLUX_REQUEST_SIZE - FENLUX_REQUEST_HEADER_SIZE == FENLUX_MAX_PAYLOAD_SIZE);

// Command 1. The host writes the two texts into their fields; host and driver agree on the encoding. The reference
// host writes UTF-16, appends a NUL if there is room, and truncates a longer text between characters.
typedef struct FenluxMonitorObjectRecord {
  FenluxRequestHeader header;               // magic and command
  FenluxU32 objectType;                     // 1, 2 or 3
  uint8_t pathFlag;                         // 1: the path does not exist; otherwise the result of the host's path test
  uint8_t rootName[FENLUX_ROOT_NAME_SIZE];  // of the path: a drive such as "C:", or the beginning of a network root
  uint8_t path[FENLUX_PATH_SIZE];           // UTF-16 from the reference host
} FenluxMonitorObjectRecord;
FENLUX_ASSERT_SIZE_(FenluxMonitorObjectRecord, FENLUX_REQUEST_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxMonitorObjectRecord, objectType, 12);
FENLUX_ASSERT_OFFSET_(FenluxMonitorObjectRecord, pathFlag, 16);
FENLUX_ASSERT_OFFSET_(FenluxMonitorObjectRecord, rootName, 17);
FENLUX_ASSERT_OFFSET_(FenluxMonitorObjectRecord, path, 25);

// Commands 3 (object type 1, 2 or 3), 8 (a value), 19 (mode 1, 2, 3 or 4), 21 and 23 (list type 1, 2 or 3).
typedef struct FenluxValueRecord {
  FenluxRequestHeader header;  // magic and command
  FenluxU32 value;             // depends on the command
} FenluxValueRecord;
FENLUX_ASSERT_SIZE_(FenluxValueRecord, 16);
FENLUX_ASSERT_OFFSET_(FenluxValueRecord, value, 12);

// Commands 4 and 6.
typedef struct FenluxClientSwitchRecord {
  FenluxRequestHeader header;  // magic and command
  FenluxU32 clientType;        // that of the connect context
  uint8_t on;                  // command 4: 1 for mode 1, 0 for mode 3; command 6: 0 for mode 1, 1 for mode 3
} FenluxClientSwitchRecord;
FENLUX_ASSERT_SIZE_(FenluxClientSwitchRecord, 17);
FENLUX_ASSERT_OFFSET_(FenluxClientSwitchRecord, clientType, 12);
FENLUX_ASSERT_OFFSET_(FenluxClientSwitchRecord, on, 16);

// Command 9.
typedef struct FenluxSwitchRecord {
  FenluxRequestHeader header;  // magic and command
  uint8_t off;                 // 0 for on, 1 for off
} FenluxSwitchRecord;
FENLUX_ASSERT_SIZE_(FenluxSwitchRecord, 13);
FENLUX_ASSERT_OFFSET_(FenluxSwitchRecord, off, 12);

// Command 12. The module passes on the values that the host returns, usually 0 or 1.
typedef struct FenluxSpspStateRecord {
  FenluxRequestHeader header;  // magic and command
  uint8_t switches[4];         // switch 1 to 4
} FenluxSpspStateRecord;
FENLUX_ASSERT_SIZE_(FenluxSpspStateRecord, 16);
FENLUX_ASSERT_OFFSET_(FenluxSpspStateRecord, switches, 12);

// Command 20.
typedef struct FenluxSystemProcessRecord {
  FenluxRequestHeader header;  // magic and command
  FenluxU32 kind;              // 2 for system32\csrss.exe, 3 for system32\services.exe
  FenluxU64 processId;         // never FENLUX_NO_PROCESS
} FenluxSystemProcessRecord;
FENLUX_ASSERT_SIZE_(FenluxSystemProcessRecord, 24);
FENLUX_ASSERT_OFFSET_(FenluxSystemProcessRecord, kind, 12);
FENLUX_ASSERT_OFFSET_(FenluxSystemProcessRecord, processId, 16);

// Command 22. Host and driver agree on the meaning of an item's two parts.
typedef struct FenluxNetItemRecord {
  FenluxRequestHeader header;                   // magic and command
  FenluxU32 listType;                           // 1, 2 or 3
  uint8_t opaque[FENLUX_NET_ITEM_OPAQUE_SIZE];  // passed on unread
  FenluxU32 value;                              // passed on unread
} FenluxNetItemRecord;
FENLUX_ASSERT_SIZE_(FenluxNetItemRecord, 68);
FENLUX_ASSERT_OFFSET_(FenluxNetItemRecord, listType, 12);
FENLUX_ASSERT_OFFSET_(FenluxNetItemRecord, opaque, 16);
FENLUX_ASSERT_OFFSET_(FenluxNetItemRecord, value, 64);

// Command 24. The request does not say how long the block is: host and driver agree on its form.
typedef struct FenluxDriverConfigRecord {
  FenluxRequestHeader header;              // magic and command
  uint8_t block[FENLUX_MAX_PAYLOAD_SIZE];  // the block; what it does not fill may hold anything
} FenluxDriverConfigRecord;
FENLUX_ASSERT_SIZE_(FenluxDriverConfigRecord, FENLUX_REQUEST_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxDriverConfigRecord, block, 12);

// The driver's answer to command 13. The module reads only the version, and only if the answer has at least
// FENLUX_VERSION_REPLY_SIZE bytes.
typedef struct FenluxVersionReplyRecord {
  FenluxRequestHeader header;                                                   // magic and command
  FenluxU32 version;                                                            // the driver's version
  uint8_t unused[FENLUX_VERSION_REPLY_SIZE - FENLUX_REQUEST_HEADER_SIZE - 4u];  // not read by the module
} FenluxVersionReplyRecord;
FENLUX_ASSERT_SIZE_(FenluxVersionReplyRecord, FENLUX_VERSION_REPLY_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxVersionReplyRecord, version, 12);

// The fixed part of a notification. The items follow it without gaps: path (item 1), second path (item 2), extra data
// (item 3), further path (item 4). Texts are UTF-16, little-endian; their size includes the terminating NUL. The
// module reads a text up to its NUL or the end of the message. It uses the size only to see whether the item is present
// (not 0) and where the next one begins.
typedef struct FenluxNotificationRecord {
  uint8_t unused0[12];        // not read by the module
  FenluxU64 processId;        // of the process that performs the operation
  FenluxU32 code;             // FenluxNotificationCode
  uint8_t variant;            // not 0: selects the second event type of a pair
  uint8_t conditionA;         // conditions: see FenluxAccess and FENLUX_CODE_4109; other codes do not use them
  uint8_t unused26;           // not read by the module
  uint8_t conditionB;         // condition B
  uint8_t conditionC;         // condition C
  uint8_t oplock;             // not 0: an oplock break, which passes without being judged
  FenluxU32 item1Size;        // bytes of the path; 0: absent
  FenluxU32 item2Size;        // bytes of the second path; 0: absent
  FenluxU32 item3Size;        // bytes of the extra data; 0: absent
  FenluxU32 item4Present;     // FENLUX_CODE_FURTHER_PATH only. Not 0: there is a further path
  FenluxU32 identityPresent;  // not 0: there is an identity block
  uint8_t identity[FENLUX_MAX_IDENTITY_SIZE];  // agreed between host and driver; the reference host reads a binary SID
  uint8_t detail[33];                          // FenluxEndpointDetail or FenluxRemoteDetail, depending on the code
  uint8_t accessKind;      // this and the next two: FENLUX_CODE_ACCESS_1 and FENLUX_CODE_ACCESS_2 only
  FenluxU32 accessValueA;  // the first value
  FenluxU32 accessValueB;  // the second value
} FenluxNotificationRecord;
FENLUX_ASSERT_SIZE_(FenluxNotificationRecord, FENLUX_NOTIFICATION_FIXED_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, processId, 12);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, code, 20);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, variant, 24);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, conditionA, 25);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, conditionB, 27);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, conditionC, 28);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, oplock, 29);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, item1Size, 30);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, item2Size, 34);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, item3Size, 38);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, item4Present, 42);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, identityPresent, 46);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, identity, 50);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, detail, 114);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, accessKind, 147);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, accessValueA, 148);
FENLUX_ASSERT_OFFSET_(FenluxNotificationRecord, accessValueB, 152);

// The detail of FENLUX_CODE_ENDPOINT: the other end of a network operation.
typedef struct FenluxEndpointDetail {
  uint8_t ipv6;         // not 0: IPv6
  FenluxU16 port;       // little-endian, like every number
  uint8_t address[16];  // in network byte order; an IPv4 address is in the first four bytes
} FenluxEndpointDetail;
FENLUX_ASSERT_SIZE_(FenluxEndpointDetail, 19);
FENLUX_ASSERT_OFFSET_(FenluxEndpointDetail, port, 1);
FENLUX_ASSERT_OFFSET_(FenluxEndpointDetail, address, 3);

// The detail of FENLUX_CODE_REMOTE_1 and FENLUX_CODE_REMOTE_2. Host and driver agree on the meaning of the
// flag and the words.
typedef struct FenluxRemoteDetail {
  uint8_t remote;      // the flag
  FenluxU64 words[4];  // the four words
} FenluxRemoteDetail;
FENLUX_ASSERT_SIZE_(FenluxRemoteDetail, 33);
FENLUX_ASSERT_OFFSET_(FenluxRemoteDetail, words, 1);

// The module's answer to a notification. With FENLUX_VERDICT_CONTEXT, contextSize bytes follow: the context data and
// FENLUX_REPLY_CONTEXT_TAIL bytes. Without it, contextSize may hold anything.
typedef struct FenluxReplyRecord {
  FenluxU64 magic;        // FENLUX_REPLY_MAGIC
  FenluxU32 fixedSize;    // FENLUX_REPLY_FIXED_SIZE
  FenluxU32 verdict;      // FenluxVerdict
  FenluxU32 contextSize;  // size of what follows; see above
  uint8_t unused[136];    // may hold anything
} FenluxReplyRecord;
FENLUX_ASSERT_SIZE_(FenluxReplyRecord, FENLUX_REPLY_FIXED_SIZE);
FENLUX_ASSERT_OFFSET_(FenluxReplyRecord, magic, 0);
FENLUX_ASSERT_OFFSET_(FenluxReplyRecord, fixedSize, 8);
FENLUX_ASSERT_OFFSET_(FenluxReplyRecord, verdict, 12);
FENLUX_ASSERT_OFFSET_(FenluxReplyRecord, contextSize, 16);

// ---- Bytes and texts

// `size` bytes at `data`. NULL means absent, if they are optional.
typedef struct FenluxBytes {
  const uint8_t* data;  // first byte
  size_t size;          // number of bytes
} FenluxBytes;

// A text inside a record: `count` UTF-16 units (16-bit, little-endian, any alignment) at `data`, without a NUL.
// NULL means absent, if the text is optional. The text may be any sequence of units, including lone surrogates.
typedef struct FenluxText {
  const uint8_t* data;  // first byte
  size_t count;         // number of units
} FenluxText;

// The unit at `index` of the text; `index` must be less than its count.
static inline uint16_t FenluxTextUnit(FenluxText text, size_t index) { return FenluxLoadU16(text.data + 2 * index); }

// A text of the driver: `count` UTF-16 units in the machine's byte order, without a NUL. A count of 0 means absent.
// For a UNICODE_STRING, pass its Buffer and half its Length.
typedef struct FenluxUnits {
  const uint16_t* units;  // first unit
  size_t count;           // number of units
} FenluxUnits;

// The text in `size` bytes at `field`: up to its NUL, or all whole units if there is none. Reads the two texts of
// command 1 as the reference host writes them.
static inline FenluxText FenluxFieldText(const uint8_t* field, size_t size) {
  FenluxText text;
  text.data = field;
  text.count = 0;
  while (text.count < size / 2 && FenluxLoadU16(field + 2 * text.count) != 0) ++text.count;
  return text;
}

static inline void FenluxCopyBytes_(uint8_t* to, const uint8_t* from, size_t size) {
  size_t i;
  for (i = 0; i < size; ++i) to[i] = from[i];
}

static inline void FenluxZeroBytes_(uint8_t* to, size_t size) {
  size_t i;
  for (i = 0; i < size; ++i) to[i] = 0;
}

// ---- Connect context

typedef struct FenluxConnectContextView {
  uint32_t clientType;  // 1 or 2
} FenluxConnectContextView;

// Parses the connect context of `size` bytes. Fills `view` and returns FENLUX_OK, or returns NULL, SIZE, MAGIC, VERSION
// or CLIENT_TYPE and does not change `view`.
static inline FenluxError FenluxParseConnectContext(const void* bytes, size_t size, FenluxConnectContextView* view) {
  const FenluxConnectContextRecord* record = FENLUX_CAST_(const FenluxConnectContextRecord*, bytes);
  uint32_t clientType;
  if (!bytes || !view) return FENLUX_ERROR_NULL;
  if (size != FENLUX_CONNECT_CONTEXT_SIZE) return FENLUX_ERROR_SIZE;
  if (FenluxGetU64(&record->magic) != FENLUX_CONNECT_MAGIC) return FENLUX_ERROR_MAGIC;
  if (FenluxGetU32(&record->version) != FENLUX_CONNECT_VERSION) return FENLUX_ERROR_VERSION;
  clientType = FenluxGetU32(&record->clientType);
  if (clientType != FENLUX_CLIENT_TYPE_1 && clientType != FENLUX_CLIENT_TYPE_2) return FENLUX_ERROR_CLIENT_TYPE;
  view->clientType = clientType;
  return FENLUX_OK;
}

// ---- Requests

// Command 1. The texts are read as the reference host writes them; for the raw fields, use the record.
typedef struct FenluxMonitorObjectView {
  uint32_t objectType;  // 1, 2 or 3
  uint8_t pathFlag;     // 0 or 1
  FenluxText rootName;  // may be empty
  FenluxText path;      // not empty
} FenluxMonitorObjectView;

// Commands 4 and 6. The driver must check that the client type matches the connection's.
typedef struct FenluxClientSwitchView {
  uint32_t clientType;  // 1 or 2
  uint8_t on;           // 0 or 1
} FenluxClientSwitchView;

// Command 20.
typedef struct FenluxSystemProcessView {
  uint32_t kind;       // 2 or 3
  uint64_t processId;  // never FENLUX_NO_PROCESS
} FenluxSystemProcessView;

// Command 22.
typedef struct FenluxNetItemView {
  uint32_t listType;      // 1, 2 or 3
  const uint8_t* opaque;  // FENLUX_NET_ITEM_OPAQUE_SIZE bytes
  uint32_t value;         // as in the record
} FenluxNetItemView;

// A request. `command` says which member of `payload` holds its payload; commands 11 and 13 have none.
typedef struct FenluxRequestView {
  FenluxCommand command;  // which request it is
  union {
    FenluxMonitorObjectView monitorObject;  // 1
    uint32_t objectType;                    // 3: 1, 2 or 3
    FenluxClientSwitchView clientSwitch;    // 4, 6
    uint32_t value;                         // 8
    uint8_t off;                            // 9: 0 or 1
    uint8_t switches[4];                    // 12
    uint32_t mode;                          // 19: 1, 2, 3 or 4
    FenluxSystemProcessView systemProcess;  // 20
    uint32_t listType;                      // 21, 23: 1, 2 or 3
    FenluxNetItemView netItem;              // 22
    FenluxBytes configBlock;                // 24: the whole payload; the request does not state the block's size
  } payload;                                // of the command
} FenluxRequestView;

// Whether the number is one of the types of monitor objects or network-control lists.
static inline int FenluxIsType_(uint32_t type) { return type >= 1 && type <= 3; }

static inline FenluxError FenluxParseMonitorObject_(const void* bytes, FenluxMonitorObjectView* view) {
  const FenluxMonitorObjectRecord* record = FENLUX_CAST_(const FenluxMonitorObjectRecord*, bytes);
  view->objectType = FenluxGetU32(&record->objectType);
  view->pathFlag = record->pathFlag;
  view->rootName = FenluxFieldText(record->rootName, sizeof(record->rootName));
  view->path = FenluxFieldText(record->path, sizeof(record->path));
  if (!FenluxIsType_(view->objectType)) return FENLUX_ERROR_OBJECT_TYPE;
  if (view->pathFlag > 1) return FENLUX_ERROR_PATH_FLAG;
  return view->path.count == 0 ? FENLUX_ERROR_EMPTY_PATH : FENLUX_OK;
}

static inline FenluxError FenluxParseClientSwitch_(const void* bytes, FenluxClientSwitchView* view) {
  const FenluxClientSwitchRecord* record = FENLUX_CAST_(const FenluxClientSwitchRecord*, bytes);
  view->clientType = FenluxGetU32(&record->clientType);
  view->on = record->on;
  if (view->clientType != FENLUX_CLIENT_TYPE_1 && view->clientType != FENLUX_CLIENT_TYPE_2) {
    return FENLUX_ERROR_CLIENT_TYPE;
  }
  return view->on > 1 ? FENLUX_ERROR_SWITCH : FENLUX_OK;
}

static inline FenluxError FenluxParseSystemProcess_(const void* bytes, FenluxSystemProcessView* view) {
  const FenluxSystemProcessRecord* record = FENLUX_CAST_(const FenluxSystemProcessRecord*, bytes);
  view->kind = FenluxGetU32(&record->kind);
  view->processId = FenluxGetU64(&record->processId);
  if (view->kind != 2 && view->kind != 3) return FENLUX_ERROR_PROCESS_KIND;
  return view->processId == FENLUX_NO_PROCESS ? FENLUX_ERROR_PROCESS_ID : FENLUX_OK;
}

static inline FenluxError FenluxParseNetItem_(const void* bytes, FenluxNetItemView* view) {
  const FenluxNetItemRecord* record = FENLUX_CAST_(const FenluxNetItemRecord*, bytes);
  view->listType = FenluxGetU32(&record->listType);
  view->opaque = record->opaque;
  view->value = FenluxGetU32(&record->value);
  return FenluxIsType_(view->listType) ? FENLUX_OK : FENLUX_ERROR_LIST_TYPE;
}

// Parses the request of `size` bytes, and checks every value against its documented range. Fills `view` and returns
// FENLUX_OK. Otherwise returns NULL, SIZE, MAGIC or COMMAND, or the error in the payload: OBJECT_TYPE, PATH_FLAG,
// EMPTY_PATH, CLIENT_TYPE, SWITCH, MODE, PROCESS_KIND, PROCESS_ID or LIST_TYPE. On an error the contents of `view` are
// undefined. Does not check what depends on earlier requests, such as the order of list begin, item and end.
static inline FenluxError FenluxParseRequest(const void* bytes, size_t size, FenluxRequestView* view) {
  const FenluxRequestHeader* header = FENLUX_CAST_(const FenluxRequestHeader*, bytes);
  const uint8_t* start = FENLUX_CAST_(const uint8_t*, bytes);
  const uint8_t* payload;
  if (!bytes || !view) return FENLUX_ERROR_NULL;
  if (size != FENLUX_REQUEST_SIZE) return FENLUX_ERROR_SIZE;
  if (FenluxGetU64(&header->magic) != FENLUX_REQUEST_MAGIC) return FENLUX_ERROR_MAGIC;
  payload = start + FENLUX_REQUEST_HEADER_SIZE;
  switch (FenluxGetU32(&header->command)) {
    case FENLUX_COMMAND_ADD_MONITOR_OBJECT:
      view->command = FENLUX_COMMAND_ADD_MONITOR_OBJECT;
      return FenluxParseMonitorObject_(bytes, &view->payload.monitorObject);
    case FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS:
      view->command = FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS;
      view->payload.objectType = FenluxLoadU32(payload);
      return FenluxIsType_(view->payload.objectType) ? FENLUX_OK : FENLUX_ERROR_OBJECT_TYPE;
    case FENLUX_COMMAND_GRPM_SWITCH:
      view->command = FENLUX_COMMAND_GRPM_SWITCH;
      return FenluxParseClientSwitch_(bytes, &view->payload.clientSwitch);
    case FENLUX_COMMAND_GRSP_SWITCH:
      view->command = FENLUX_COMMAND_GRSP_SWITCH;
      return FenluxParseClientSwitch_(bytes, &view->payload.clientSwitch);
    case FENLUX_COMMAND_GRDTO_VALUE:
      view->command = FENLUX_COMMAND_GRDTO_VALUE;
      view->payload.value = FenluxLoadU32(payload);
      return FENLUX_OK;
    case FENLUX_COMMAND_GRHARA_SWITCH:
      view->command = FENLUX_COMMAND_GRHARA_SWITCH;
      view->payload.off = payload[0];
      return view->payload.off > 1 ? FENLUX_ERROR_SWITCH : FENLUX_OK;
    case FENLUX_COMMAND_DUMP_DEBUG_INFO:
      view->command = FENLUX_COMMAND_DUMP_DEBUG_INFO;
      return FENLUX_OK;
    case FENLUX_COMMAND_SPSP_STATE:
      view->command = FENLUX_COMMAND_SPSP_STATE;
      FenluxCopyBytes_(view->payload.switches, payload, sizeof(view->payload.switches));
      return FENLUX_OK;
    case FENLUX_COMMAND_DRIVER_VERSION:
      view->command = FENLUX_COMMAND_DRIVER_VERSION;
      return FENLUX_OK;
    case FENLUX_COMMAND_NET_CONTROL_MODE:
      view->command = FENLUX_COMMAND_NET_CONTROL_MODE;
      view->payload.mode = FenluxLoadU32(payload);
      return view->payload.mode >= 1 && view->payload.mode <= 4 ? FENLUX_OK : FENLUX_ERROR_MODE;
    case FENLUX_COMMAND_SYSTEM_PROCESS:
      view->command = FENLUX_COMMAND_SYSTEM_PROCESS;
      return FenluxParseSystemProcess_(bytes, &view->payload.systemProcess);
    case FENLUX_COMMAND_NET_ITEM_LIST_BEGIN:
      view->command = FENLUX_COMMAND_NET_ITEM_LIST_BEGIN;
      view->payload.listType = FenluxLoadU32(payload);
      return FenluxIsType_(view->payload.listType) ? FENLUX_OK : FENLUX_ERROR_LIST_TYPE;
    case FENLUX_COMMAND_NET_ITEM:
      view->command = FENLUX_COMMAND_NET_ITEM;
      return FenluxParseNetItem_(bytes, &view->payload.netItem);
    case FENLUX_COMMAND_NET_ITEM_LIST_END:
      view->command = FENLUX_COMMAND_NET_ITEM_LIST_END;
      view->payload.listType = FenluxLoadU32(payload);
      return FenluxIsType_(view->payload.listType) ? FENLUX_OK : FENLUX_ERROR_LIST_TYPE;
    case FENLUX_COMMAND_DRIVER_CONFIG:
      view->command = FENLUX_COMMAND_DRIVER_CONFIG;
      view->payload.configBlock.data = payload;
      view->payload.configBlock.size = FENLUX_MAX_PAYLOAD_SIZE;
      return FENLUX_OK;
    default:
      return FENLUX_ERROR_COMMAND;
  }
}

// ---- Version reply

// Writes the answer to command 13 into `buffer`: FENLUX_VERSION_REPLY_SIZE bytes, all of which the module requires.
// Returns FENLUX_OK; on NULL or CAPACITY, writes nothing.
static inline FenluxError FenluxBuildVersionReply(uint32_t version, void* buffer, size_t capacity) {
  FenluxVersionReplyRecord* record = FENLUX_CAST_(FenluxVersionReplyRecord*, buffer);
  if (!buffer) return FENLUX_ERROR_NULL;
  if (capacity < FENLUX_VERSION_REPLY_SIZE) return FENLUX_ERROR_CAPACITY;
  FenluxSetU64(&record->header.magic, FENLUX_REQUEST_MAGIC);
  FenluxSetU32(&record->header.command, FENLUX_COMMAND_DRIVER_VERSION);
  FenluxSetU32(&record->version, version);
  FenluxZeroBytes_(record->unused, sizeof(record->unused));
  return FENLUX_OK;
}

// The version that the module reads from the reply of `size` bytes: 0 if the reply is NULL or too short.
static inline uint32_t FenluxReadVersionReply(const void* bytes, size_t size) {
  const FenluxVersionReplyRecord* record = FENLUX_CAST_(const FenluxVersionReplyRecord*, bytes);
  return bytes && size >= FENLUX_VERSION_REPLY_SIZE ? FenluxGetU32(&record->version) : 0;
}

// ---- Notifications

// The other end of a network operation.
typedef struct FenluxEndpoint {
  uint8_t ipv6;         // not 0: IPv6
  uint16_t port;        // in the machine's byte order
  uint8_t address[16];  // in network byte order; an IPv4 address is in the first four bytes, the others are unused
} FenluxEndpoint;

// See FenluxRemoteDetail.
typedef struct FenluxRemote {
  uint8_t remote;     // the flag
  uint64_t words[4];  // the four words
} FenluxRemote;

// What is accessed and how. Event types: 0x401C / 0x401D if kind is not 0; otherwise 0x4000 / 0x4001 if one of the
// three conditions is not 0; otherwise 0x4002 / 0x4003. The values go to the host unchanged.
typedef struct FenluxAccess {
  uint8_t kind;     // access kind
  uint32_t valueA;  // the first value
  uint32_t valueB;  // the second value
} FenluxAccess;

// The fixed part of a notification. Initialize it with zeros and set the fields that apply.
typedef struct FenluxEvent {
  uint32_t code;       // FenluxNotificationCode
  uint64_t processId;  // of the process that performs the operation
  uint8_t variant;     // not 0: selects the second event type of a pair
  uint8_t conditionA;  // conditions: see FenluxAccess and FENLUX_CODE_4109; other codes do not use them
  uint8_t conditionB;  // condition B
  uint8_t conditionC;  // condition C
  uint8_t oplock;      // not 0: an oplock break, which passes without being judged
  union {
    FenluxEndpoint endpoint;  // FENLUX_CODE_ENDPOINT
    FenluxRemote remote;      // FENLUX_CODE_REMOTE_1, FENLUX_CODE_REMOTE_2
    FenluxAccess access;      // FENLUX_CODE_ACCESS_1, FENLUX_CODE_ACCESS_2
  } detail;                   // other codes have none
} FenluxEvent;

// A notification to build. Initialize it with zeros and set the fields that apply; an item of size 0 is absent.
typedef struct FenluxNotification {
  FenluxEvent event;        // the fixed part
  FenluxUnits path;         // item 1
  FenluxUnits secondPath;   // item 2
  FenluxBytes extraData;    // item 3
  FenluxUnits furtherPath;  // FENLUX_CODE_FURTHER_PATH only
  FenluxBytes identity;     // at most FENLUX_MAX_IDENTITY_SIZE bytes; the rest of the block is 0
} FenluxNotification;

// A parsed notification. The pointers of absent items are NULL.
typedef struct FenluxNotificationView {
  FenluxEvent event;       // the fixed part
  FenluxText path;         // item 1
  FenluxText secondPath;   // item 2
  FenluxBytes extraData;   // item 3
  FenluxText furtherPath;  // item 4; FENLUX_CODE_FURTHER_PATH only
  FenluxBytes identity;    // FENLUX_MAX_IDENTITY_SIZE bytes
} FenluxNotificationView;

// Adds the size of a text in a notification, including its NUL, to `size`.
static inline FenluxError FenluxAddTextSize_(const FenluxUnits* text, size_t* size) {
  size_t i;
  if (text->count == 0) return FENLUX_OK;
  if (!text->units) return FENLUX_ERROR_NULL;
  if (text->count >= FENLUX_MAX_NOTIFICATION_SIZE / 2) return FENLUX_ERROR_TOO_LARGE;
  for (i = 0; i < text->count; ++i) {
    if (text->units[i] == 0) return FENLUX_ERROR_TEXT;
  }
  *size += 2 * (text->count + 1);
  return FENLUX_OK;
}

// Checks a notification to build and computes its size. Every item is below FENLUX_MAX_NOTIFICATION_SIZE before it is
// added, so the sum does not overflow.
static inline FenluxError FenluxMeasureNotification_(const FenluxNotification* notification, size_t* size) {
  FenluxError error;
  *size = FENLUX_NOTIFICATION_FIXED_SIZE;
  if (!FenluxIsNotificationCode(notification->event.code)) return FENLUX_ERROR_CODE;
  if (notification->furtherPath.count != 0 && notification->event.code != FENLUX_CODE_FURTHER_PATH) {
    return FENLUX_ERROR_FURTHER_PATH;
  }
  if (notification->identity.size > FENLUX_MAX_IDENTITY_SIZE) return FENLUX_ERROR_IDENTITY;
  if (notification->identity.size != 0 && !notification->identity.data) return FENLUX_ERROR_NULL;
  if (notification->extraData.size != 0 && !notification->extraData.data) return FENLUX_ERROR_NULL;
  if (notification->extraData.size > FENLUX_MAX_NOTIFICATION_SIZE) return FENLUX_ERROR_TOO_LARGE;
  *size += notification->extraData.size;
  error = FenluxAddTextSize_(&notification->path, size);
  if (error == FENLUX_OK) error = FenluxAddTextSize_(&notification->secondPath, size);
  if (error == FENLUX_OK) error = FenluxAddTextSize_(&notification->furtherPath, size);
  if (error == FENLUX_OK && *size > FENLUX_MAX_NOTIFICATION_SIZE) error = FENLUX_ERROR_TOO_LARGE;
  return error;
}

// Writes a text with its NUL and returns the byte after it; an absent text takes no bytes.
static inline uint8_t* FenluxWriteText_(uint8_t* to, const FenluxUnits* text) {
  size_t i;
  if (text->count == 0) return to;
  for (i = 0; i < text->count; ++i) FenluxStoreU16(to + 2 * i, text->units[i]);
  FenluxStoreU16(to + 2 * text->count, 0);
  return to + 2 * (text->count + 1);
}

static inline void FenluxWriteDetail_(FenluxNotificationRecord* record, const FenluxEvent* event) {
  uint8_t* detail = record->detail;
  size_t i;
  switch (event->code) {
    case FENLUX_CODE_ENDPOINT:
      detail[0] = event->detail.endpoint.ipv6;
      FenluxStoreU16(detail + offsetof(FenluxEndpointDetail, port), event->detail.endpoint.port);
      FenluxCopyBytes_(detail + offsetof(FenluxEndpointDetail, address), event->detail.endpoint.address,
                       event->detail.endpoint.ipv6 ? 16 : 4);
      break;
    case FENLUX_CODE_REMOTE_1:
    case FENLUX_CODE_REMOTE_2:
      detail[0] = event->detail.remote.remote;
      for (i = 0; i < 4; ++i) {
        FenluxStoreU64(detail + offsetof(FenluxRemoteDetail, words) + 8 * i, event->detail.remote.words[i]);
      }
      break;
    case FENLUX_CODE_ACCESS_1:
    case FENLUX_CODE_ACCESS_2:
      record->accessKind = event->detail.access.kind;
      FenluxSetU32(&record->accessValueA, event->detail.access.valueA);
      FenluxSetU32(&record->accessValueB, event->detail.access.valueB);
      break;
    default:
      break;
  }
}

// Builds the notification in `buffer` and stores its size in `size`. Fields that the code does not use are 0, as are
// the bytes that the module does not read.
//
// Returns FENLUX_OK; CAPACITY if the buffer is too small, with the required size in `size`; otherwise NULL, CODE,
// FURTHER_PATH, IDENTITY, TEXT or TOO_LARGE with 0 in `size`. On any error nothing is written to `buffer`, which may be
// NULL if `capacity` is 0. `size` must not be NULL. The items must not overlap the buffer.
static inline FenluxError FenluxBuildNotification(const FenluxNotification* notification, void* buffer, size_t capacity,
                                                  size_t* size) {
  FenluxNotificationRecord* record = FENLUX_CAST_(FenluxNotificationRecord*, buffer);
  uint8_t* to = FENLUX_CAST_(uint8_t*, buffer);
  const FenluxEvent* event;
  FenluxError error;
  size_t needed = 0;
  if (!size) return FENLUX_ERROR_NULL;
  *size = 0;
  if (!notification || (!buffer && capacity != 0)) return FENLUX_ERROR_NULL;
  error = FenluxMeasureNotification_(notification, &needed);
  if (error != FENLUX_OK) return error;
  *size = needed;
  if (capacity < needed) return FENLUX_ERROR_CAPACITY;

  event = &notification->event;
  FenluxZeroBytes_(to, FENLUX_NOTIFICATION_FIXED_SIZE);
  FenluxSetU64(&record->processId, event->processId);
  FenluxSetU32(&record->code, event->code);
  record->variant = event->variant;
  record->conditionA = event->conditionA;
  record->conditionB = event->conditionB;
  record->conditionC = event->conditionC;
  record->oplock = event->oplock;
  FenluxSetU32(&record->item3Size, FENLUX_CAST_(uint32_t, notification->extraData.size));
  FenluxSetU32(&record->item4Present, notification->furtherPath.count != 0 ? 1 : 0);
  FenluxSetU32(&record->identityPresent, notification->identity.size != 0 ? 1 : 0);
  FenluxCopyBytes_(record->identity, notification->identity.data, notification->identity.size);
  FenluxWriteDetail_(record, event);

  to += FENLUX_NOTIFICATION_FIXED_SIZE;
  if (notification->path.count != 0) {
    FenluxSetU32(&record->item1Size, FENLUX_CAST_(uint32_t, 2 * (notification->path.count + 1)));
    to = FenluxWriteText_(to, &notification->path);
  }
  if (notification->secondPath.count != 0) {
    FenluxSetU32(&record->item2Size, FENLUX_CAST_(uint32_t, 2 * (notification->secondPath.count + 1)));
    to = FenluxWriteText_(to, &notification->secondPath);
  }
  FenluxCopyBytes_(to, notification->extraData.data, notification->extraData.size);
  FenluxWriteText_(to + notification->extraData.size, &notification->furtherPath);
  return FENLUX_OK;
}

// The text that begins at `offset` in a notification, read up to its NUL or the end of the message.
static inline FenluxError FenluxReadItemText_(const uint8_t* bytes, size_t size, uint64_t offset, FenluxText* text) {
  if (offset >= size) return FENLUX_ERROR_SIZE;
  *text = FenluxFieldText(bytes + FENLUX_CAST_(size_t, offset), size - FENLUX_CAST_(size_t, offset));
  return FENLUX_OK;
}

static inline void FenluxReadDetail_(const FenluxNotificationRecord* record, FenluxEvent* event) {
  const uint8_t* detail = record->detail;
  size_t i;
  switch (event->code) {
    case FENLUX_CODE_ENDPOINT:
      event->detail.endpoint.ipv6 = detail[0];
      event->detail.endpoint.port = FenluxLoadU16(detail + offsetof(FenluxEndpointDetail, port));
      FenluxCopyBytes_(event->detail.endpoint.address, detail + offsetof(FenluxEndpointDetail, address),
                       event->detail.endpoint.ipv6 ? 16 : 4);
      break;
    case FENLUX_CODE_REMOTE_1:
    case FENLUX_CODE_REMOTE_2:
      event->detail.remote.remote = detail[0];
      for (i = 0; i < 4; ++i) {
        event->detail.remote.words[i] = FenluxLoadU64(detail + offsetof(FenluxRemoteDetail, words) + 8 * i);
      }
      break;
    case FENLUX_CODE_ACCESS_1:
    case FENLUX_CODE_ACCESS_2:
      event->detail.access.kind = record->accessKind;
      event->detail.access.valueA = FenluxGetU32(&record->accessValueA);
      event->detail.access.valueB = FenluxGetU32(&record->accessValueB);
      break;
    default:
      break;
  }
}

// Parses the notification of `size` bytes as the module reads it, so that a driver's tests can check what the driver
// built. Fills `view`, sets unused details to 0, and returns FENLUX_OK. Otherwise returns NULL, CODE, or SIZE if the
// message is shorter than its fixed part or an item that the module uses is not within it; the contents of `view` are
// then undefined.
static inline FenluxError FenluxParseNotification(const void* bytes, size_t size, FenluxNotificationView* view) {
  const FenluxNotificationRecord* record = FENLUX_CAST_(const FenluxNotificationRecord*, bytes);
  const uint8_t* start = FENLUX_CAST_(const uint8_t*, bytes);
  FenluxNotificationView result;
  void* cleared = &result;
  uint64_t item2, item3, item4;
  uint32_t extraSize;
  FenluxError error = FENLUX_OK;
  if (!bytes || !view) return FENLUX_ERROR_NULL;
  if (size < FENLUX_NOTIFICATION_FIXED_SIZE) return FENLUX_ERROR_SIZE;
  // Byte by byte, because a zero initializer leaves most of a union and all padding undefined.
  FenluxZeroBytes_(FENLUX_CAST_(uint8_t*, cleared), sizeof(result));
  result.event.code = FenluxGetU32(&record->code);
  if (!FenluxIsNotificationCode(result.event.code)) return FENLUX_ERROR_CODE;
  result.event.processId = FenluxGetU64(&record->processId);
  result.event.variant = record->variant;
  result.event.conditionA = record->conditionA;
  result.event.conditionB = record->conditionB;
  result.event.conditionC = record->conditionC;
  result.event.oplock = record->oplock;
  FenluxReadDetail_(record, &result.event);
  if (FenluxGetU32(&record->identityPresent) != 0) {
    result.identity.data = record->identity;
    result.identity.size = FENLUX_MAX_IDENTITY_SIZE;
  }

  extraSize = FenluxGetU32(&record->item3Size);
  item2 = FENLUX_CAST_(uint64_t, FENLUX_NOTIFICATION_FIXED_SIZE) + FenluxGetU32(&record->item1Size);
  item3 = item2 + FenluxGetU32(&record->item2Size);
  item4 = item3 + extraSize;
  if (result.event.code == FENLUX_CODE_FURTHER_PATH && FenluxGetU32(&record->item4Present) != 0) {
    error = FenluxReadItemText_(start, size, item4, &result.furtherPath);
  } else if (FenluxGetU32(&record->item1Size) != 0) {
    error = FenluxReadItemText_(start, size, FENLUX_NOTIFICATION_FIXED_SIZE, &result.path);
  }
  if (error == FENLUX_OK && FenluxGetU32(&record->item2Size) != 0) {
    error = FenluxReadItemText_(start, size, item2, &result.secondPath);
  }
  if (error == FENLUX_OK && extraSize != 0) {
    if (item3 >= size || extraSize > size - item3) return FENLUX_ERROR_SIZE;
    result.extraData.data = start + FENLUX_CAST_(size_t, item3);
    result.extraData.size = extraSize;
  }
  if (error == FENLUX_OK) *view = result;
  return error;
}

// ---- Replies

// The module's answer to a notification.
typedef struct FenluxReplyView {
  FenluxVerdict verdict;  // the module's answer
  FenluxBytes context;    // with FENLUX_VERDICT_CONTEXT: the data without the bytes after it; otherwise absent
} FenluxReplyView;

// Parses the reply of `size` bytes. Fills `view` and returns FENLUX_OK. Otherwise returns NULL, SIZE, MAGIC,
// FIXED_SIZE, VERDICT or CONTEXT and does not change `view`. Does not check whether the verdict fits the notification:
// client type 2 never gets FENLUX_VERDICT_PASS, and an oplock break always passes.
static inline FenluxError FenluxParseReply(const void* bytes, size_t size, FenluxReplyView* view) {
  const FenluxReplyRecord* record = FENLUX_CAST_(const FenluxReplyRecord*, bytes);
  const uint8_t* start = FENLUX_CAST_(const uint8_t*, bytes);
  uint32_t verdict, contextSize;
  if (!bytes || !view) return FENLUX_ERROR_NULL;
  if (size < FENLUX_REPLY_FIXED_SIZE) return FENLUX_ERROR_SIZE;
  if (FenluxGetU64(&record->magic) != FENLUX_REPLY_MAGIC) return FENLUX_ERROR_MAGIC;
  if (FenluxGetU32(&record->fixedSize) != FENLUX_REPLY_FIXED_SIZE) return FENLUX_ERROR_FIXED_SIZE;
  verdict = FenluxGetU32(&record->verdict);
  if (verdict < FENLUX_VERDICT_2 || verdict > FENLUX_VERDICT_UNJUDGED) return FENLUX_ERROR_VERDICT;
  if (verdict != FENLUX_VERDICT_CONTEXT) {
    if (size != FENLUX_REPLY_FIXED_SIZE) return FENLUX_ERROR_SIZE;
    view->context.data = NULL;
    view->context.size = 0;
  } else {
    contextSize = FenluxGetU32(&record->contextSize);
    if (contextSize <= FENLUX_REPLY_CONTEXT_TAIL) return FENLUX_ERROR_CONTEXT;
    if (size - FENLUX_REPLY_FIXED_SIZE != contextSize) return FENLUX_ERROR_SIZE;
    view->context.data = start + FENLUX_REPLY_FIXED_SIZE;
    view->context.size = contextSize - FENLUX_REPLY_CONTEXT_TAIL;
  }
  view->verdict = FENLUX_CAST_(FenluxVerdict, verdict);
  return FENLUX_OK;
}

// Builds a reply as the module does, for a driver's tests, and stores its size in `size`. `context` is the context data
// of FENLUX_VERDICT_CONTEXT and must not be empty; with other verdicts it must be empty. Bytes without a field are 0.
//
// Returns FENLUX_OK; CAPACITY with the required size in `size`; otherwise NULL, VERDICT, CONTEXT or TOO_LARGE (more
// context data than the reply can state) with 0 in `size`. On any error nothing is written to `buffer`, which may be
// NULL if `capacity` is 0. `size` must not be NULL.
static inline FenluxError FenluxBuildReply(uint32_t verdict, FenluxBytes context, void* buffer, size_t capacity,
                                           size_t* size) {
  FenluxReplyRecord* record = FENLUX_CAST_(FenluxReplyRecord*, buffer);
  uint8_t* to = FENLUX_CAST_(uint8_t*, buffer);
  size_t contextSize = 0;
  if (!size) return FENLUX_ERROR_NULL;
  *size = 0;
  if (!buffer && capacity != 0) return FENLUX_ERROR_NULL;
  if (verdict < FENLUX_VERDICT_2 || verdict > FENLUX_VERDICT_UNJUDGED) return FENLUX_ERROR_VERDICT;
  if ((verdict == FENLUX_VERDICT_CONTEXT) != (context.size != 0)) return FENLUX_ERROR_CONTEXT;
  if (context.size != 0) {
    if (!context.data) return FENLUX_ERROR_NULL;
    if (context.size > 0xffffffffu - FENLUX_REPLY_FIXED_SIZE - FENLUX_REPLY_CONTEXT_TAIL) return FENLUX_ERROR_TOO_LARGE;
    contextSize = context.size + FENLUX_REPLY_CONTEXT_TAIL;
  }
  *size = FENLUX_REPLY_FIXED_SIZE + contextSize;
  if (capacity < *size) return FENLUX_ERROR_CAPACITY;
  FenluxZeroBytes_(to, FENLUX_REPLY_FIXED_SIZE);
  FenluxSetU64(&record->magic, FENLUX_REPLY_MAGIC);
  FenluxSetU32(&record->fixedSize, FENLUX_REPLY_FIXED_SIZE);
  FenluxSetU32(&record->verdict, verdict);
  if (contextSize != 0) {
    FenluxSetU32(&record->contextSize, FENLUX_CAST_(uint32_t, contextSize));
    FenluxCopyBytes_(to + FENLUX_REPLY_FIXED_SIZE, context.data, context.size);
    FenluxZeroBytes_(to + FENLUX_REPLY_FIXED_SIZE + context.size, FENLUX_REPLY_CONTEXT_TAIL);
  }
  return FENLUX_OK;
}

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // FENLUX_DRIVER_PROTOCOL_H
