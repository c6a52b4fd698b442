// Prints a record of the driver protocol as JSON, or checks itself against the test vectors. An example of how to use
// fenlux/driver_protocol.h; C11 and C++20.
//   decode KIND FILE         prints the record in FILE; exits with 1 if it is malformed
//   decode --check FOLDER    decodes every vector in the folder and compares the result with its JSON file
// KIND is connect-context, request, version-reply, notification or reply.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "fenlux/driver_protocol.h"

// The largest JSON text: two paths of 32768 units, each written as at most six characters, plus the rest.
static char json[1u << 20];
static size_t jsonSize;

// Appends formatted text; truncates what does not fit, so that a comparison fails.
static void Append(const char* format, ...) {
  va_list arguments;
  int count;
  va_start(arguments, format);
  count = vsnprintf(json + jsonSize, sizeof(json) - jsonSize, format, arguments);
  va_end(arguments);
  if (count > 0) jsonSize += (size_t)count < sizeof(json) - jsonSize ? (size_t)count : sizeof(json) - jsonSize - 1;
}

static void Key(const char* key) { Append(",\n  \"%s\": ", key); }

static void Number(const char* key, uint32_t value) {
  Key(key);
  Append("%lu", (unsigned long)value);
}

static void Number64(const char* key, uint64_t value) {
  Key(key);
  Append("\"0x%08lx%08lx\"", (unsigned long)(value >> 32), (unsigned long)(value & 0xffffffffu));
}

static void Hex(const char* key, FenluxBytes bytes) {
  size_t i;
  Key(key);
  if (!bytes.data) {
    Append("null");
    return;
  }
  Append("\"");
  for (i = 0; i < bytes.size; ++i) Append("%02x", bytes.data[i]);
  Append("\"");
}

static void Text(const char* key, FenluxText text) {
  size_t i;
  Key(key);
  if (!text.data) {
    Append("null");
    return;
  }
  Append("\"");
  for (i = 0; i < text.count; ++i) {
    const uint16_t unit = FenluxTextUnit(text, i);
    if (unit == '\t') {
      Append("\\t");
    } else if (unit < 0x20 || unit >= 0x7f) {
      Append("\\u%04x", unit);
    } else {
      Append(unit == '"' || unit == '\\' ? "\\%c" : "%c", unit);
    }
  }
  Append("\"");
}

static FenluxError DecodeConnectContext(const uint8_t* bytes, size_t size) {
  FenluxConnectContextView view;
  const FenluxError error = FenluxParseConnectContext(bytes, size, &view);
  if (error != FENLUX_OK) return error;
  Number("version", FENLUX_CONNECT_VERSION);
  Number("clientType", view.clientType);
  return FENLUX_OK;
}

static FenluxError DecodeRequest(const uint8_t* bytes, size_t size) {
  FenluxRequestView view;
  FenluxBytes shown;
  const FenluxError error = FenluxParseRequest(bytes, size, &view);
  if (error != FENLUX_OK) return error;
  Number("command", view.command);
  switch (view.command) {
    case FENLUX_COMMAND_ADD_MONITOR_OBJECT:
      Number("objectType", view.payload.monitorObject.objectType);
      Number("pathFlag", view.payload.monitorObject.pathFlag);
      Text("rootName", view.payload.monitorObject.rootName);
      Text("path", view.payload.monitorObject.path);
      break;
    case FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS:
      Number("objectType", view.payload.objectType);
      break;
    case FENLUX_COMMAND_GRPM_SWITCH:
    case FENLUX_COMMAND_GRSP_SWITCH:
      Number("clientType", view.payload.clientSwitch.clientType);
      Number("switch", view.payload.clientSwitch.on);
      break;
    case FENLUX_COMMAND_GRDTO_VALUE:
      Number("value", view.payload.value);
      break;
    case FENLUX_COMMAND_GRHARA_SWITCH:
      Number("off", view.payload.off);
      break;
    case FENLUX_COMMAND_SPSP_STATE:
      Number("switch1", view.payload.switches[0]);
      Number("switch2", view.payload.switches[1]);
      Number("switch3", view.payload.switches[2]);
      Number("switch4", view.payload.switches[3]);
      break;
    case FENLUX_COMMAND_NET_CONTROL_MODE:
      Number("mode", view.payload.mode);
      break;
    case FENLUX_COMMAND_SYSTEM_PROCESS:
      Number("kind", view.payload.systemProcess.kind);
      Number64("processId", view.payload.systemProcess.processId);
      break;
    case FENLUX_COMMAND_NET_ITEM_LIST_BEGIN:
    case FENLUX_COMMAND_NET_ITEM_LIST_END:
      Number("listType", view.payload.listType);
      break;
    case FENLUX_COMMAND_NET_ITEM:
      Number("listType", view.payload.netItem.listType);
      shown.data = view.payload.netItem.opaque;
      shown.size = FENLUX_NET_ITEM_OPAQUE_SIZE;
      Hex("opaque", shown);
      Number("value", view.payload.netItem.value);
      break;
    case FENLUX_COMMAND_DRIVER_CONFIG:
      // The request does not state the block's size: omit trailing zeros.
      shown = view.payload.configBlock;
      while (shown.size != 0 && shown.data[shown.size - 1] == 0) --shown.size;
      Hex("block", shown);
      break;
    case FENLUX_COMMAND_DUMP_DEBUG_INFO:
    case FENLUX_COMMAND_DRIVER_VERSION:
      break;
  }
  return FENLUX_OK;
}

static FenluxError DecodeVersionReply(const uint8_t* bytes, size_t size) {
  Number("version", FenluxReadVersionReply(bytes, size));
  return FENLUX_OK;
}

static void Endpoint(const FenluxEndpoint* endpoint) {
  const uint8_t* address = endpoint->address;
  size_t i;
  Number("ipv6", endpoint->ipv6);
  Number("port", endpoint->port);
  Key("address");
  if (!endpoint->ipv6) {
    Append("\"%u.%u.%u.%u\"", address[0], address[1], address[2], address[3]);
    return;
  }
  for (i = 0; i < 16; i += 2) Append("%s%02x%02x", i == 0 ? "\"" : ":", address[i], address[i + 1]);
  Append("\"");
}

static FenluxError DecodeNotification(const uint8_t* bytes, size_t size) {
  FenluxNotificationView view;
  const FenluxEvent* event = &view.event;
  const FenluxError error = FenluxParseNotification(bytes, size, &view);
  if (error != FENLUX_OK) return error;
  Number64("processId", event->processId);
  Number("code", event->code);
  Number("variant", event->variant);
  Number("conditionA", event->conditionA);
  Number("conditionB", event->conditionB);
  Number("conditionC", event->conditionC);
  Number("oplock", event->oplock);
  Hex("identity", view.identity);
  switch (event->code) {
    case FENLUX_CODE_ENDPOINT:
      Endpoint(&event->detail.endpoint);
      break;
    case FENLUX_CODE_REMOTE_1:
    case FENLUX_CODE_REMOTE_2:
      Number("remote", event->detail.remote.remote);
      Number64("word0", event->detail.remote.words[0]);
      Number64("word1", event->detail.remote.words[1]);
      Number64("word2", event->detail.remote.words[2]);
      Number64("word3", event->detail.remote.words[3]);
      break;
    case FENLUX_CODE_ACCESS_1:
    case FENLUX_CODE_ACCESS_2:
      Number("accessKind", event->detail.access.kind);
      Number("valueA", event->detail.access.valueA);
      Number("valueB", event->detail.access.valueB);
      break;
    default:
      break;
  }
  Text("path", view.path);
  Text("secondPath", view.secondPath);
  Hex("extraData", view.extraData);
  Text("furtherPath", view.furtherPath);
  return FENLUX_OK;
}

static FenluxError DecodeReply(const uint8_t* bytes, size_t size) {
  FenluxReplyView view;
  const FenluxError error = FenluxParseReply(bytes, size, &view);
  if (error != FENLUX_OK) return error;
  Number("verdict", view.verdict);
  Hex("context", view.context);
  return FENLUX_OK;
}

typedef struct Kind {
  const char* name;
  FenluxError (*decode)(const uint8_t* bytes, size_t size);
} Kind;

static const Kind kinds[] = {{"connect-context", DecodeConnectContext},
                             {"request", DecodeRequest},
                             {"version-reply", DecodeVersionReply},
                             {"notification", DecodeNotification},
                             {"reply", DecodeReply}};

// Writes the JSON of the record to `json`. Returns 0 for a record, 1 for a malformed one, 2 for an unknown kind.
static int Decode(const char* kind, const uint8_t* bytes, size_t size) {
  size_t i;
  for (i = 0; i < sizeof(kinds) / sizeof(kinds[0]); ++i) {
    FenluxError error;
    if (strcmp(kind, kinds[i].name) != 0) continue;
    jsonSize = 0;
    Append("{\n  \"record\": \"%s\"", kind);
    error = kinds[i].decode(bytes, size);
    if (error != FENLUX_OK) Append(",\n  \"error\": \"%s\"", FenluxErrorText(error));
    Append("\n}\n");
    return error == FENLUX_OK ? 0 : 1;
  }
  fprintf(stderr, "%s is no kind of record\n", kind);
  return 2;
}

// Reads a file of less than `capacity` bytes; returns -1 for one that cannot be read or is larger.
static long ReadFile(const char* path, void* buffer, size_t capacity) {
  FILE* file = fopen(path, "rb");
  size_t size;
  int failed;
  if (!file) {
    fprintf(stderr, "%s cannot be opened\n", path);
    return -1;
  }
  size = fread(buffer, 1, capacity, file);
  failed = ferror(file) || size == capacity;
  fclose(file);
  if (failed) fprintf(stderr, "%s cannot be read, or is too large\n", path);
  return failed ? -1 : (long)size;
}

static uint8_t record[1u << 20];
static char expected[1u << 20];

// Compares one vector with its JSON; returns 0 if they match.
static int CheckVector(const char* folder, const char* kind, const char* name) {
  char path[4096];
  long size, expectedSize;
  snprintf(path, sizeof(path), "%s/%s.bin", folder, name);
  size = ReadFile(path, record, sizeof(record));
  snprintf(path, sizeof(path), "%s/%s.json", folder, name);
  expectedSize = ReadFile(path, expected, sizeof(expected));
  if (size < 0 || expectedSize < 0 || Decode(kind, record, (size_t)size) == 2) return 1;
  if ((size_t)expectedSize == jsonSize && memcmp(json, expected, jsonSize) == 0) return 0;
  printf("%s: decoded as\n%.2000s\n", name, json);
  return 1;
}

static int Check(const char* folder) {
  char path[4096], kind[32], name[200];
  int checked = 0, failed = 0;
  FILE* index;
  snprintf(path, sizeof(path), "%s/index.txt", folder);
  index = fopen(path, "r");
  if (!index) {
    fprintf(stderr, "%s cannot be opened\n", path);
    return 2;
  }
  while (fscanf(index, "%31s %199s", kind, name) == 2) {
    ++checked;
    failed += CheckVector(folder, kind, name);
  }
  fclose(index);
  printf("%d vectors checked, %d failed\n", checked, failed);
  return checked != 0 && failed == 0 ? 0 : 1;
}

int main(int argc, char** argv) {
  long size;
  int result;
  if (argc != 3) {
    fprintf(stderr, "usage: decode KIND FILE | decode --check FOLDER\n");
    return 2;
  }
  if (strcmp(argv[1], "--check") == 0) return Check(argv[2]);
  size = ReadFile(argv[2], record, sizeof(record));
  if (size < 0) return 2;
  result = Decode(argv[1], record, (size_t)size);
  if (result != 2) fputs(json, stdout);
  return result;
}
