// Passes any bytes to every parser of driver_protocol.h. No parser may read beyond them, and what it returns must be
// within them.
//
// The first byte of an input selects the record (see the README); the rest is the record, in memory of exactly its
// size.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "driver/tests/notification_of_view.h"
#include "fenlux/driver_protocol.h"
#include "fuzz/support/fuzzing.h"

namespace fenlux::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A record in memory of exactly its size, so that the address sanitizer sees every access beyond it.
class Record {
 public:
  Record(const std::uint8_t* bytes, std::size_t count) : data(new std::uint8_t[count]), size(count) {
    if (count != 0) std::memcpy(data.get(), bytes, count);
  }

  // Reads every byte of a part, which must be within the record.
  void Touch(const std::uint8_t* part, std::size_t count) const {
    if (part == nullptr) {
      Require(count == 0, "absent items have size 0");
      return;
    }
    Require(part >= data.get() && part <= data.get() + size, "a part begins within the record");
    Require(count <= static_cast<std::size_t>(data.get() + size - part), "a part ends within the record");
    volatile unsigned sum = 0;
    for (std::size_t i = 0; i < count; ++i) sum = sum + part[i];
  }
  void Touch(FenluxText text) const {
    Touch(text.data, 2 * text.count);
    for (std::size_t i = 0; i < text.count; ++i) Require(FenluxTextUnit(text, i) != 0, "a text has no NUL");
  }
  void Touch(FenluxBytes bytes) const { Touch(bytes.data, bytes.size); }

  const std::unique_ptr<std::uint8_t[]> data;
  const std::size_t size;
};

void FuzzConnectContext(const Record& record) {
  FenluxConnectContextView view;
  if (FenluxParseConnectContext(record.data.get(), record.size, &view) != FENLUX_OK) return;
  Require(record.size == FENLUX_CONNECT_CONTEXT_SIZE, "a connect context has 16 bytes");
  Require(view.clientType == 1 || view.clientType == 2, "client types are 1 and 2");
}

void FuzzRequest(const Record& given) {
  // Also padded with zeros, so that the fuzzer need not produce 65561 bytes.
  Bytes whole(given.data.get(), given.data.get() + given.size);
  whole.resize(FENLUX_REQUEST_SIZE);
  for (const Record& record : {Record(whole.data(), whole.size()), Record(given.data.get(), given.size)}) {
    FenluxRequestView view;
    if (FenluxParseRequest(record.data.get(), record.size, &view) != FENLUX_OK) continue;
    Require(record.size == FENLUX_REQUEST_SIZE, "a request has 65561 bytes");
    switch (view.command) {
      case FENLUX_COMMAND_ADD_MONITOR_OBJECT:
        record.Touch(view.payload.monitorObject.rootName);
        record.Touch(view.payload.monitorObject.path);
        Require(view.payload.monitorObject.path.count != 0, "a path is not empty");
        break;
      case FENLUX_COMMAND_NET_ITEM:
        record.Touch(view.payload.netItem.opaque, FENLUX_NET_ITEM_OPAQUE_SIZE);
        break;
      case FENLUX_COMMAND_DRIVER_CONFIG:
        record.Touch(view.payload.configBlock);
        break;
      default:
        break;
    }
  }
}

void FuzzVersionReply(const Record& record) {
  const std::uint32_t version = FenluxReadVersionReply(record.data.get(), record.size);
  Require(version == 0 || record.size >= FENLUX_VERSION_REPLY_SIZE, "a short reply has version 0");
}

bool SameText(FenluxText one, FenluxText other) { return Units(one) == Units(other); }

bool SameBytes(FenluxBytes one, FenluxBytes other) {
  return one.size == other.size && (one.size == 0 || std::memcmp(one.data, other.data, one.size) == 0);
}

// A parsed notification can be rebuilt, and the result parses to the same values.
void Rebuild(const FenluxNotificationView& view) {
  const NotificationOfView notification(view);
  std::size_t size = 0;
  const FenluxError measured = FenluxBuildNotification(notification.Get(), nullptr, 0, &size);
  Require(measured == FENLUX_ERROR_CAPACITY || measured == FENLUX_ERROR_TOO_LARGE,
          "a parsed notification can be built");
  if (measured != FENLUX_ERROR_CAPACITY) return;
  const std::unique_ptr<std::uint8_t[]> built(new std::uint8_t[size]);
  Require(FenluxBuildNotification(notification.Get(), built.get(), size, &size) == FENLUX_OK,
          "the measured size is enough");
  FenluxNotificationView again;
  Require(FenluxParseNotification(built.get(), size, &again) == FENLUX_OK, "a built notification can be parsed");
  Require(std::memcmp(&again.event.detail, &view.event.detail, sizeof(view.event.detail)) == 0, "the detail is kept");
  Require(again.event.code == view.event.code && again.event.processId == view.event.processId, "the event is kept");
  Require(SameText(again.path, view.path) && SameText(again.secondPath, view.secondPath), "the paths are kept");
  Require(SameText(again.furtherPath, view.furtherPath), "the further path is kept");
  Require(SameBytes(again.extraData, view.extraData), "the extra data is kept");
  Require(SameBytes(again.identity, view.identity), "the identity block is kept");
}

void FuzzNotification(const Record& record) {
  FenluxNotificationView view;
  if (FenluxParseNotification(record.data.get(), record.size, &view) != FENLUX_OK) return;
  Require(FenluxIsNotificationCode(view.event.code) != 0, "the code is known");
  for (const FenluxText& text : {view.path, view.secondPath, view.furtherPath}) record.Touch(text);
  record.Touch(view.extraData);
  record.Touch(view.identity);
  Rebuild(view);
}

void FuzzReply(const Record& record) {
  FenluxReplyView view;
  if (FenluxParseReply(record.data.get(), record.size, &view) != FENLUX_OK) return;
  record.Touch(view.context);
  Require((view.verdict == FENLUX_VERDICT_CONTEXT) == (view.context.size != 0), "verdict 6 carries context data");
  std::size_t size = 0;
  Bytes built(record.size);
  Require(FenluxBuildReply(view.verdict, view.context, built.data(), built.size(), &size) == FENLUX_OK &&
              size == record.size,
          "what parses can be built with the same size");
}

}  // namespace
}  // namespace fenlux::testing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::testing;
  if (size == 0) return 0;
  constexpr void (*kTargets[])(const Record&) = {FuzzConnectContext, FuzzRequest, FuzzVersionReply, FuzzNotification,
                                                 FuzzReply};
  const Record record(data + 1, size - 1);
  kTargets[data[0] % std::size(kTargets)](record);
  return 0;
}
