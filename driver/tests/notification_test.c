// Parsing and building of notifications and their replies.
#include "driver/tests/check.h"

static int SameText(FenluxText text, const uint16_t* units, size_t count) {
  size_t i;
  if (!text.data || text.count != count) return 0;
  for (i = 0; i < count; ++i) {
    if (FenluxTextUnit(text, i) != units[i]) return 0;
  }
  return 1;
}

static FenluxNotification NotificationOf(uint32_t code) {
  FenluxNotification notification;
  memset(&notification, 0, sizeof(notification));
  notification.event.code = code;
  return notification;
}

static const uint16_t pathUnits[] = {'\\', 'a', 0xd83d, 0xdcc1};
static const uint16_t otherUnits[] = {'\\', 0xd800, 0xffff};  // a lone surrogate is a unit like any other

// Builds into a buffer of exactly the required size, parses the result, and returns the buffer.
static uint8_t* BuildAndParse(const FenluxNotification* notification, FenluxNotificationView* view, size_t* size) {
  uint8_t* bytes;
  CHECK_EQUAL(FENLUX_ERROR_CAPACITY, FenluxBuildNotification(notification, NULL, 0, size));
  bytes = Allocate(*size, 0xcd);
  CHECK_EQUAL(FENLUX_ERROR_CAPACITY, FenluxBuildNotification(notification, bytes, *size - 1, size));
  CHECK_EQUAL(0xcdu, bytes[0]);
  CHECK_EQUAL(FENLUX_OK, FenluxBuildNotification(notification, bytes, *size, size));
  CHECK_EQUAL(FENLUX_OK, FenluxParseNotification(bytes, *size, view));
  return bytes;
}

static void EveryCodeCarriesItsItems(void) {
  static const uint8_t extra[] = {1, 0, 3};
  static const uint8_t identity[] = {1, 1, 0, 0};
  uint32_t code;
  int known = 0;
  for (code = 4000; code < 9000; ++code) {
    FenluxNotification notification = NotificationOf(code);
    FenluxNotificationView view;
    size_t size = 1;
    uint8_t* bytes;
    if (!FenluxIsNotificationCode(code)) {
      CHECK_EQUAL(FENLUX_ERROR_CODE, FenluxBuildNotification(&notification, NULL, 0, &size));
      CHECK_EQUAL(0u, size);
      continue;
    }
    ++known;
    CHECK_EQUAL(code != 4113, FenluxIsReplyExpected(code));
    notification.event.processId = 0xfedcba9876543210ULL;
    notification.event.variant = 1;
    notification.event.conditionA = 2;
    notification.event.conditionB = 3;
    notification.event.conditionC = 4;
    notification.event.oplock = 5;
    notification.path = Units(pathUnits, 4);
    notification.secondPath = Units(otherUnits, 3);
    notification.extraData = Bytes(extra, sizeof(extra));
    notification.identity = Bytes(identity, sizeof(identity));
    if (code == FENLUX_CODE_FURTHER_PATH) notification.furtherPath = Units(otherUnits, 2);
    bytes = BuildAndParse(&notification, &view, &size);
    CHECK_EQUAL(156u + 10 + 8 + 3 + (code == FENLUX_CODE_FURTHER_PATH ? 6 : 0), size);
    CHECK_EQUAL(code, view.event.code);
    CHECK_EQUAL(0xfedcba9876543210ULL, view.event.processId);
    CHECK_EQUAL(1u, view.event.variant);
    CHECK_EQUAL(2u, view.event.conditionA);
    CHECK_EQUAL(3u, view.event.conditionB);
    CHECK_EQUAL(4u, view.event.conditionC);
    CHECK_EQUAL(5u, view.event.oplock);
    if (code == FENLUX_CODE_FURTHER_PATH) {  // used instead of the path
      CHECK(view.path.data == NULL);
      CHECK(SameText(view.furtherPath, otherUnits, 2));
    } else {
      CHECK(SameText(view.path, pathUnits, 4));
      CHECK(view.furtherPath.data == NULL);
    }
    CHECK(SameText(view.secondPath, otherUnits, 3));
    CHECK(view.extraData.size == 3 && memcmp(view.extraData.data, extra, 3) == 0);
    CHECK(view.identity.size == 64 && memcmp(view.identity.data, identity, 4) == 0 && view.identity.data[4] == 0);
    free(bytes);
  }
  CHECK_EQUAL(35, known);
}

static void NotificationWithoutItemsIsTheFixedPart(void) {
  const FenluxNotification notification = NotificationOf(4098);
  FenluxNotificationView view;
  size_t size;
  uint8_t* bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(FENLUX_NOTIFICATION_FIXED_SIZE, size);
  CHECK(!view.path.data && !view.secondPath.data && !view.extraData.data && !view.furtherPath.data);
  CHECK(!view.identity.data);
  free(bytes);
}

static void DetailsFollowTheCode(void) {
  static const uint8_t address[16] = {192, 0, 2, 1, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  FenluxNotification notification = NotificationOf(FENLUX_CODE_ENDPOINT);
  FenluxNotificationView view;
  size_t size;
  uint8_t* bytes;
  notification.event.detail.endpoint.port = 0x1234;
  memcpy(notification.event.detail.endpoint.address, address, 16);
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(0x34u, bytes[115]);
  CHECK_EQUAL(0x12u, bytes[116]);
  CHECK(memcmp(bytes + 117, address, 4) == 0);
  CHECK_EQUAL(0u, bytes[121]);  // only four bytes of an IPv4 address are written
  CHECK_EQUAL(0x1234u, view.event.detail.endpoint.port);
  free(bytes);

  notification.event.detail.endpoint.ipv6 = 1;
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK(memcmp(bytes + 117, address, 16) == 0);
  CHECK(memcmp(view.event.detail.endpoint.address, address, 16) == 0);
  CHECK_EQUAL(0u, bytes[133]);
  free(bytes);

  notification = NotificationOf(FENLUX_CODE_REMOTE_2);
  notification.event.detail.remote.remote = 1;
  notification.event.detail.remote.words[0] = 0x0102030405060708ULL;
  notification.event.detail.remote.words[3] = 0x1112131415161718ULL;
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(1u, bytes[114]);
  CHECK_EQUAL(0x08u, bytes[115]);
  CHECK_EQUAL(0x11u, bytes[146]);
  CHECK_EQUAL(0x1112131415161718ULL, view.event.detail.remote.words[3]);
  free(bytes);

  notification = NotificationOf(FENLUX_CODE_ACCESS_1);
  notification.event.detail.access.kind = 9;
  notification.event.detail.access.valueA = 0xa1a2a3a4u;
  notification.event.detail.access.valueB = 0xb1b2b3b4u;
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(9u, bytes[147]);
  CHECK_EQUAL(0xa4u, bytes[148]);
  CHECK_EQUAL(0xb1u, bytes[155]);
  CHECK_EQUAL(0xb1b2b3b4u, view.event.detail.access.valueB);
  free(bytes);

  // A code without a detail ignores what the union holds.
  notification.event.code = 4098;
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(0u, bytes[147]);
  CHECK_EQUAL(0u, view.event.detail.access.valueB);
  free(bytes);
}

static void BuilderRefusesWhatTheProtocolCannotCarry(void) {
  static const uint16_t withNul[] = {'a', 0, 'b'};
  uint8_t small[200];
  uint8_t identity[65] = {0};
  size_t size = 1;
  FenluxNotification notification = NotificationOf(4098);
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildNotification(NULL, small, sizeof(small), &size));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildNotification(&notification, NULL, 1, &size));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildNotification(&notification, small, sizeof(small), NULL));

  small[0] = 0xcd;
  notification.path = Units(withNul, 3);
  CHECK_EQUAL(FENLUX_ERROR_TEXT, FenluxBuildNotification(&notification, small, sizeof(small), &size));
  notification.path = Units(NULL, 3);
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildNotification(&notification, small, sizeof(small), &size));
  notification = NotificationOf(4098);
  notification.extraData = Bytes(NULL, 1);
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildNotification(&notification, small, sizeof(small), &size));
  notification = NotificationOf(4098);
  notification.identity = Bytes(identity, 65);
  CHECK_EQUAL(FENLUX_ERROR_IDENTITY, FenluxBuildNotification(&notification, small, sizeof(small), &size));
  notification.identity = Bytes(NULL, 64);
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildNotification(&notification, small, sizeof(small), &size));
  notification = NotificationOf(4098);
  notification.furtherPath = Units(pathUnits, 1);
  CHECK_EQUAL(FENLUX_ERROR_FURTHER_PATH, FenluxBuildNotification(&notification, small, sizeof(small), &size));
  CHECK_EQUAL(0u, size);
  CHECK_EQUAL(0xcdu, small[0]);  // an error leaves the buffer as it is

  notification = NotificationOf(4098);
  notification.identity = Bytes(identity, 64);
  CHECK_EQUAL(FENLUX_OK, FenluxBuildNotification(&notification, small, sizeof(small), &size));
}

static void LargestNotificationIsTheLimit(void) {
  const size_t room = FENLUX_MAX_NOTIFICATION_SIZE - FENLUX_NOTIFICATION_FIXED_SIZE;
  const size_t units = room / 2 - 1;
  uint16_t* text = (uint16_t*)malloc(2 * (units + 1));
  uint8_t* extra = Allocate(room + 1, 7);
  FenluxNotification notification = NotificationOf(4098);
  FenluxNotificationView view;
  size_t i, size;
  uint8_t* bytes;
  if (!text) abort();
  for (i = 0; i <= units; ++i) text[i] = 'x';
  notification.path = Units(text, units);
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(FENLUX_MAX_NOTIFICATION_SIZE, size);
  CHECK(SameText(view.path, text, units));
  free(bytes);
  notification.path = Units(text, units + 1);
  CHECK_EQUAL(FENLUX_ERROR_TOO_LARGE, FenluxBuildNotification(&notification, NULL, 0, &size));
  CHECK_EQUAL(0u, size);
  notification.path = Units(text, (size_t)-1);  // twice this overflows
  CHECK_EQUAL(FENLUX_ERROR_TOO_LARGE, FenluxBuildNotification(&notification, NULL, 0, &size));

  notification = NotificationOf(4098);
  notification.extraData = Bytes(extra, room);
  bytes = BuildAndParse(&notification, &view, &size);
  CHECK_EQUAL(room, view.extraData.size);
  free(bytes);
  notification.extraData = Bytes(extra, room + 1);
  CHECK_EQUAL(FENLUX_ERROR_TOO_LARGE, FenluxBuildNotification(&notification, NULL, 0, &size));
  notification.extraData = Bytes(extra, (size_t)-1);
  CHECK_EQUAL(FENLUX_ERROR_TOO_LARGE, FenluxBuildNotification(&notification, NULL, 0, &size));
  free(extra);
  free(text);
}

static void ParserStaysWithinTheNotification(void) {
  static const uint32_t sizes[] = {0, 1, 2, 3, 4, 0x7fffffffu, 0x80000000u, 0xfffffffeu, 0xffffffffu};
  const size_t count = sizeof(sizes) / sizeof(sizes[0]);
  FenluxNotificationView view;
  size_t tail, a, b, c;
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseNotification(NULL, 156, &view));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseNotification("", 156, NULL));
  for (tail = 0; tail < 5; ++tail) {
    const size_t size = 156 + tail;
    uint8_t* bytes = Allocate(size, 0x41);
    FenluxStoreU32(bytes + 20, FENLUX_CODE_FURTHER_PATH);
    for (a = 0; a < count; ++a) {
      for (b = 0; b < count; ++b) {
        for (c = 0; c < 2 * count; ++c) {
          FenluxError error;
          FenluxStoreU32(bytes + 30, sizes[a]);
          FenluxStoreU32(bytes + 34, sizes[b]);
          FenluxStoreU32(bytes + 38, sizes[c % count]);
          FenluxStoreU32(bytes + 42, c < count ? 0 : 1);
          error = FenluxParseNotification(bytes, size, &view);
          CHECK(error == FENLUX_OK || error == FENLUX_ERROR_SIZE);
          if (error != FENLUX_OK) continue;
          CHECK(!view.path.data || view.path.data + 2 * view.path.count <= bytes + size);
          CHECK(!view.secondPath.data || view.secondPath.data + 2 * view.secondPath.count <= bytes + size);
          CHECK(!view.furtherPath.data || view.furtherPath.data + 2 * view.furtherPath.count <= bytes + size);
          CHECK(!view.extraData.data || view.extraData.data + view.extraData.size <= bytes + size);
          CHECK((sizes[b] == 0) == (view.secondPath.data == NULL));
          CHECK_EQUAL(sizes[c % count], view.extraData.size);
        }
      }
    }
    free(bytes);
  }
}

// ---- Replies

static void RepliesAreBuiltAndParsed(void) {
  static const uint8_t context[] = {1, 2, 3};
  uint32_t verdict;
  for (verdict = 0; verdict < 12; ++verdict) {
    const int known = verdict >= 2 && verdict <= 8;
    const FenluxBytes data = verdict == 6 ? Bytes(context, 3) : Bytes(NULL, 0);
    FenluxReplyView view;
    size_t i, size = 1;
    uint8_t* bytes;
    memset(&view, 0, sizeof(view));
    if (!known) {
      CHECK_EQUAL(FENLUX_ERROR_VERDICT, FenluxBuildReply(verdict, data, NULL, 0, &size));
      CHECK_EQUAL(0u, size);
      continue;
    }
    CHECK_EQUAL(FENLUX_ERROR_CAPACITY, FenluxBuildReply(verdict, data, NULL, 0, &size));
    CHECK_EQUAL(verdict == 6 ? 161u : 156u, size);
    bytes = Allocate(size, 0xcd);
    CHECK_EQUAL(FENLUX_OK, FenluxBuildReply(verdict, data, bytes, size, &size));
    CHECK_EQUAL(FENLUX_OK, FenluxParseReply(bytes, size, &view));
    CHECK_EQUAL(verdict, view.verdict);
    CHECK_EQUAL(data.size, view.context.size);
    for (i = verdict == 6 ? 20 : 16; i < size; ++i) CHECK(bytes[i] == 0 || (i >= 156 && i < 156 + data.size));
    if (verdict == 6) CHECK(view.context.data == bytes + 156 && memcmp(view.context.data, context, 3) == 0);
    if (verdict != 6) CHECK(view.context.data == NULL);
    free(bytes);
  }
}

static void ReplyErrorsAreNamed(void) {
  static const uint8_t context[] = {1};
  uint8_t bytes[159];
  size_t size;
  FenluxReplyView view;
  CHECK_EQUAL(FENLUX_ERROR_CONTEXT, FenluxBuildReply(6, Bytes(NULL, 0), bytes, sizeof(bytes), &size));
  CHECK_EQUAL(FENLUX_ERROR_CONTEXT, FenluxBuildReply(5, Bytes(context, 1), bytes, sizeof(bytes), &size));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildReply(6, Bytes(NULL, 1), bytes, sizeof(bytes), &size));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildReply(6, Bytes(context, 1), NULL, 1, &size));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxBuildReply(3, Bytes(NULL, 0), bytes, sizeof(bytes), NULL));
  CHECK_EQUAL(FENLUX_ERROR_TOO_LARGE, FenluxBuildReply(6, Bytes(context, 0xffffffffu), bytes, sizeof(bytes), &size));
  CHECK_EQUAL(FENLUX_ERROR_CAPACITY, FenluxBuildReply(6, Bytes(context, 1), bytes, 158, &size));
  CHECK_EQUAL(FENLUX_OK, FenluxBuildReply(6, Bytes(context, 1), bytes, sizeof(bytes), &size));
  CHECK_EQUAL(159u, size);

  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseReply(NULL, 159, &view));
  CHECK_EQUAL(FENLUX_ERROR_NULL, FenluxParseReply(bytes, 159, NULL));
  CHECK_EQUAL(FENLUX_ERROR_SIZE, FenluxParseReply(bytes, 155, &view));
  CHECK_EQUAL(FENLUX_ERROR_SIZE, FenluxParseReply(bytes, 158, &view));
  FenluxStoreU32(bytes + 16, 2);  // only the bytes after the data
  CHECK_EQUAL(FENLUX_ERROR_CONTEXT, FenluxParseReply(bytes, 158, &view));
  FenluxStoreU32(bytes + 16, 0xffffffffu);
  CHECK_EQUAL(FENLUX_ERROR_SIZE, FenluxParseReply(bytes, 159, &view));
}

int main(void) {
  RUN(EveryCodeCarriesItsItems);
  RUN(NotificationWithoutItemsIsTheFixedPart);
  RUN(DetailsFollowTheCode);
  RUN(BuilderRefusesWhatTheProtocolCannotCarry);
  RUN(LargestNotificationIsTheLimit);
  RUN(ParserStaysWithinTheNotification);
  RUN(RepliesAreBuiltAndParsed);
  RUN(ReplyErrorsAreNamed);
  return Report();
}
