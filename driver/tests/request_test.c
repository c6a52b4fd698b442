// Numbers, texts, connect contexts, requests and version replies of driver_protocol.h.
#include "driver/tests/check.h"

// ---- Numbers and texts

static void NumbersAreLittleEndianAtAnyAlignment(void) {
  uint8_t bytes[9] = {0, 1, 2, 3, 4, 5, 6, 7, 0xf8};
  FenluxU16 u16;
  FenluxU32 u32;
  FenluxU64 u64;
  CHECK_EQUAL(0x0201u, FenluxLoadU16(bytes + 1));
  CHECK_EQUAL(0x04030201u, FenluxLoadU32(bytes + 1));
  CHECK_EQUAL(0xf807060504030201ULL, FenluxLoadU64(bytes + 1));
  FenluxStoreU64(bytes + 1, 0x8899aabbccddeeffULL);
  CHECK_EQUAL(0xffu, bytes[1]);
  CHECK_EQUAL(0x88u, bytes[8]);
  CHECK_EQUAL(0u, bytes[0]);
  FenluxSetU16(&u16, 0xfffe);
  FenluxSetU32(&u32, 0xfffffffdu);
  FenluxSetU64(&u64, 0xfffffffffffffffcULL);
  CHECK_EQUAL(0xfeu, u16.bytes[0]);
  CHECK_EQUAL(0xfffeu, FenluxGetU16(&u16));
  CHECK_EQUAL(0xfffffffdu, FenluxGetU32(&u32));
  CHECK_EQUAL(0xfffffffffffffffcULL, FenluxGetU64(&u64));
}

static void FieldTextEndsAtItsNulOrItsField(void) {
  static const uint8_t field[] = {'a', 0, 'b', 1, 0, 0, 'c', 0, 'd'};
  CHECK_EQUAL(2u, FenluxFieldText(field, sizeof(field)).count);
  CHECK_EQUAL(2u, FenluxFieldText(field, 4).count);
  CHECK_EQUAL(1u, FenluxFieldText(field, 3).count);  // half a unit does not count
  CHECK_EQUAL(0u, FenluxFieldText(field, 1).count);
  CHECK_EQUAL(0u, FenluxFieldText(field + 4, 5).count);
  CHECK_EQUAL(1u, FenluxFieldText(field + 6, 3).count);
  CHECK_EQUAL(0x0162u, FenluxTextUnit(FenluxFieldText(field, sizeof(field)), 1));
}

static void EveryErrorHasItsOwnText(void) {
  int error, other;
  for (error = FENLUX_OK; error <= FENLUX_ERROR_CAPACITY; ++error) {
    const char* text = FenluxErrorText((FenluxError)error);
    CHECK(text != NULL && text[0] != 0 && strcmp(text, "unknown error") != 0);
    for (other = FENLUX_OK; other < error; ++other) CHECK(strcmp(text, FenluxErrorText((FenluxError)other)) != 0);
  }
}

static void PortNamesAgree(void) {
  static const wchar_t wide[] = FENLUX_PORT_NAME_WIDE;
  static const char narrow[] = FENLUX_PORT_NAME;
  size_t i;
  CHECK_EQUAL(FENLUX_PORT_NAME_LENGTH, sizeof(wide) / sizeof(wide[0]) - 1);
  for (i = 0; i < sizeof(narrow); ++i) CHECK(wide[i] == (wchar_t)narrow[i]);
}

// ---- Connect context

static void ConnectContextNeedsPointers(void) {
  FenluxConnectContextView view;
  uint8_t bytes[FENLUX_CONNECT_CONTEXT_SIZE];
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseConnectContext(NULL, sizeof(bytes), &view));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseConnectContext(bytes, sizeof(bytes), NULL));
}

static void ConnectContextIsParsedAtAnyAlignment(void) {
  uint8_t* bytes = Allocate(FENLUX_CONNECT_CONTEXT_SIZE + 1, 0);
  FenluxConnectContextView view;
  FenluxStoreU64(bytes + 1, FENLUX_CONNECT_MAGIC);
  FenluxStoreU32(bytes + 9, FENLUX_CONNECT_VERSION);
  FenluxStoreU32(bytes + 13, 2);
  CHECK_EQUAL(FENLUX_OK, FenluxParseConnectContext(bytes + 1, FENLUX_CONNECT_CONTEXT_SIZE, &view));
  CHECK_EQUAL(2u, view.clientType);
  FenluxStoreU32(bytes + 13, 0);
  CHECK_EQUAL(FENLUX_ERROR_CLIENT_TYPE, FenluxParseConnectContext(bytes + 1, FENLUX_CONNECT_CONTEXT_SIZE, &view));
  CHECK_EQUAL(2u, view.clientType);  // an error leaves the view as it is
  free(bytes);
}

// ---- Requests

static uint8_t* NewRequest(uint32_t command) {
  uint8_t* bytes = Allocate(FENLUX_REQUEST_SIZE, 0xcd);
  FenluxStoreU64(bytes, FENLUX_REQUEST_MAGIC);
  FenluxStoreU32(bytes + 8, command);
  return bytes;
}

static FenluxError ParseValue(uint32_t command, uint32_t value, FenluxRequestView* view) {
  uint8_t* bytes = NewRequest(command);
  FenluxError error;
  FenluxStoreU32(bytes + 12, value);
  error = FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, view);
  free(bytes);
  return error;
}

static void RequestNeedsPointersAndItsSize(void) {
  uint8_t* bytes = NewRequest(FENLUX_COMMAND_DRIVER_VERSION);
  FenluxRequestView view;
  CHECK_EQUAL(FENLUX_OK, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, &view));
  CHECK_EQUAL(FENLUX_COMMAND_DRIVER_VERSION, view.command);
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseRequest(NULL, FENLUX_REQUEST_SIZE, &view));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, NULL));
  CHECK_EQUAL(FENLUX_ERROR_SIZE, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE - 1, &view));
  CHECK_EQUAL(FENLUX_ERROR_SIZE, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE + 1, &view));
  CHECK_EQUAL(FENLUX_ERROR_SIZE, FenluxParseRequest(bytes, 0, &view));
  FenluxStoreU64(bytes, FENLUX_CONNECT_MAGIC);
  CHECK_EQUAL(FENLUX_ERROR_MAGIC, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, &view));
  free(bytes);
}

// In a payload filled with 0xcd, every value that has a range is out of range.
static void OnlyKnownCommandsAreParsed(void) {
  static const uint8_t withoutRange[] = {FENLUX_COMMAND_GRDTO_VALUE, FENLUX_COMMAND_DUMP_DEBUG_INFO,
                                         FENLUX_COMMAND_SPSP_STATE, FENLUX_COMMAND_DRIVER_VERSION,
                                         FENLUX_COMMAND_DRIVER_CONFIG};
  static const uint8_t withRange[] = {1, 3, 4, 6, 9, 19, 20, 21, 22, 23};
  FenluxRequestView unknown;
  uint32_t command;
  for (command = 0; command < 64; ++command) {
    uint8_t* bytes = NewRequest(command);
    FenluxRequestView view;
    const FenluxError error = FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, &view);
    if (memchr(withoutRange, (int)command, sizeof(withoutRange))) {
      CHECK_EQUAL(FENLUX_OK, error);
      CHECK_EQUAL(command, view.command);
    } else if (memchr(withRange, (int)command, sizeof(withRange))) {
      CHECK(error != FENLUX_OK && error != FENLUX_ERROR_COMMAND);
    } else {
      CHECK_EQUAL(FENLUX_ERROR_COMMAND, error);
    }
    free(bytes);
  }
  CHECK_EQUAL(FENLUX_ERROR_COMMAND, ParseValue(0xffffffffu, 1, &unknown));
}

static void ValuesAreCheckedAgainstTheirRanges(void) {
  FenluxRequestView view;
  uint32_t value;
  for (value = 0; value < 6; ++value) {
    const int isType = value >= 1 && value <= 3;
    CHECK_EQUAL(isType ? FENLUX_OK : FENLUX_ERROR_OBJECT_TYPE, ParseValue(3, value, &view));
    CHECK_EQUAL(value >= 1 && value <= 4 ? FENLUX_OK : FENLUX_ERROR_MODE, ParseValue(19, value, &view));
    CHECK_EQUAL(isType ? FENLUX_OK : FENLUX_ERROR_LIST_TYPE, ParseValue(21, value, &view));
    CHECK_EQUAL(isType ? FENLUX_OK : FENLUX_ERROR_LIST_TYPE, ParseValue(22, value, &view));
    CHECK_EQUAL(isType ? FENLUX_OK : FENLUX_ERROR_LIST_TYPE, ParseValue(23, value, &view));
    CHECK_EQUAL(value == 2 || value == 3 ? FENLUX_OK : FENLUX_ERROR_PROCESS_KIND, ParseValue(20, value, &view));
    CHECK_EQUAL(FENLUX_OK, ParseValue(8, value, &view));
    CHECK_EQUAL(value, view.payload.value);
  }
  // The byte at 16 is 0xcd, so with a valid client type the switch is the error.
  CHECK_EQUAL(FENLUX_ERROR_SWITCH, ParseValue(4, 1, &view));
  CHECK_EQUAL(FENLUX_ERROR_SWITCH, ParseValue(6, 2, &view));
  CHECK_EQUAL(FENLUX_ERROR_CLIENT_TYPE, ParseValue(6, 3, &view));
  CHECK_EQUAL(FENLUX_OK, ParseValue(9, 0xffffff01u, &view));
  CHECK_EQUAL(1u, view.payload.off);
  CHECK_EQUAL(FENLUX_ERROR_SWITCH, ParseValue(9, 2, &view));
}

static void ViewsPointIntoTheRequest(void) {
  uint8_t* bytes = NewRequest(FENLUX_COMMAND_NET_ITEM);
  FenluxRequestView view;
  FenluxStoreU32(bytes + 12, 2);
  CHECK_EQUAL(FENLUX_OK, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, &view));
  CHECK(view.payload.netItem.opaque == bytes + 16);
  CHECK_EQUAL(0xcdcdcdcdu, view.payload.netItem.value);

  FenluxStoreU32(bytes + 8, FENLUX_COMMAND_DRIVER_CONFIG);
  CHECK_EQUAL(FENLUX_OK, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, &view));
  CHECK(view.payload.configBlock.data == bytes + 12);
  CHECK_EQUAL(FENLUX_MAX_PAYLOAD_SIZE, view.payload.configBlock.size);

  // Texts that fill their fields, without a NUL.
  FenluxStoreU32(bytes + 8, FENLUX_COMMAND_ADD_MONITOR_OBJECT);
  bytes[16] = 0;
  CHECK_EQUAL(FENLUX_OK, FenluxParseRequest(bytes, FENLUX_REQUEST_SIZE, &view));
  CHECK(view.payload.monitorObject.rootName.data == bytes + 17);
  CHECK_EQUAL(4u, view.payload.monitorObject.rootName.count);
  CHECK(view.payload.monitorObject.path.data == bytes + 25);
  CHECK_EQUAL(32768u, view.payload.monitorObject.path.count);
  free(bytes);
}

// ---- Version reply

static void VersionReplyIsWhole(void) {
  uint8_t* bytes = Allocate(FENLUX_VERSION_REPLY_SIZE, 0xcd);
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildVersionReply(7, NULL, FENLUX_VERSION_REPLY_SIZE));
  CHECK_EQUAL(FENLUX_ERROR_CAPACITY, FenluxBuildVersionReply(7, bytes, FENLUX_VERSION_REPLY_SIZE - 1));
  CHECK_EQUAL(0xcdu, bytes[0]);
  CHECK_EQUAL(FENLUX_OK, FenluxBuildVersionReply(FENLUX_MODULE_VERSION, bytes, FENLUX_VERSION_REPLY_SIZE));
  CHECK_EQUAL(FENLUX_MODULE_VERSION, FenluxReadVersionReply(bytes, FENLUX_VERSION_REPLY_SIZE));
  CHECK_EQUAL(0u, bytes[16]);
  CHECK_EQUAL(0u, bytes[FENLUX_VERSION_REPLY_SIZE - 1]);
  CHECK_EQUAL(0u, FenluxReadVersionReply(bytes, FENLUX_VERSION_REPLY_SIZE - 1));
  CHECK_EQUAL(0u, FenluxReadVersionReply(NULL, FENLUX_VERSION_REPLY_SIZE));
  free(bytes);
}

int main(void) {
  RUN(NumbersAreLittleEndianAtAnyAlignment);
  RUN(FieldTextEndsAtItsNulOrItsField);
  RUN(EveryErrorHasItsOwnText);
  RUN(PortNamesAgree);
  RUN(ConnectContextNeedsPointers);
  RUN(ConnectContextIsParsedAtAnyAlignment);
  RUN(RequestNeedsPointersAndItsSize);
  RUN(OnlyKnownCommandsAreParsed);
  RUN(ValuesAreCheckedAgainstTheirRanges);
  RUN(ViewsPointIntoTheRequest);
  RUN(VersionReplyIsWhole);
  return Report();
}
