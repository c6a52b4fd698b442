// Reads records with the parsers of the driver kit, which check all bounds.
#include "refhost/capture/decode/record_fields.h"

#include <fmt/format.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "fenlux/driver_protocol.h"
#include "refhost/base/text/hex.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/capture/decode/json_text.h"

namespace fenlux::capture {
namespace {

using Message = std::span<const std::uint8_t>;

std::string Number64(std::uint64_t value) { return fmt::format("0x{:016x}", value); }

Report Hex(const FenluxBytes& bytes) {
  if (bytes.data == nullptr) return nullptr;
  return refhost::HexText({bytes.data, bytes.size});
}

Report Text(const FenluxText& text) {
  if (text.data == nullptr) return nullptr;
  return Utf8(text);
}

FenluxError AddConnectContext(Message message, Report& fields) {
  FenluxConnectContextView view;
  const FenluxError error = FenluxParseConnectContext(message.data(), message.size(), &view);
  if (error != FENLUX_OK) return error;
  fields["version"] = FENLUX_CONNECT_VERSION;
  fields["clientType"] = view.clientType;
  return FENLUX_OK;
}

void AddPayload(const FenluxRequestView& view, Report& fields) {
  const auto& payload = view.payload;
  switch (view.command) {
    case FENLUX_COMMAND_ADD_MONITOR_OBJECT:
      fields["objectType"] = payload.monitorObject.objectType;
      fields["pathFlag"] = payload.monitorObject.pathFlag;
      fields["rootName"] = Text(payload.monitorObject.rootName);
      fields["path"] = Text(payload.monitorObject.path);
      break;
    case FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS:
      fields["objectType"] = payload.objectType;
      break;
    case FENLUX_COMMAND_GRPM_SWITCH:
    case FENLUX_COMMAND_GRSP_SWITCH:
      fields["clientType"] = payload.clientSwitch.clientType;
      fields["switch"] = payload.clientSwitch.on;
      break;
    case FENLUX_COMMAND_GRDTO_VALUE:
      fields["value"] = payload.value;
      break;
    case FENLUX_COMMAND_GRHARA_SWITCH:
      fields["off"] = payload.off;
      break;
    case FENLUX_COMMAND_SPSP_STATE:
      for (int i = 0; i < 4; ++i) fields[fmt::format("switch{}", i + 1)] = payload.switches[i];
      break;
    case FENLUX_COMMAND_NET_CONTROL_MODE:
      fields["mode"] = payload.mode;
      break;
    case FENLUX_COMMAND_SYSTEM_PROCESS:
      fields["kind"] = payload.systemProcess.kind;
      fields["processId"] = Number64(payload.systemProcess.processId);
      break;
    case FENLUX_COMMAND_NET_ITEM_LIST_BEGIN:
    case FENLUX_COMMAND_NET_ITEM_LIST_END:
      fields["listType"] = payload.listType;
      break;
    case FENLUX_COMMAND_NET_ITEM:
      fields["listType"] = payload.netItem.listType;
      fields["opaque"] = Hex({payload.netItem.opaque, FENLUX_NET_ITEM_OPAQUE_SIZE});
      fields["value"] = payload.netItem.value;
      break;
    case FENLUX_COMMAND_DRIVER_CONFIG: {
      // The request does not state the block's size: omit trailing zeros.
      FenluxBytes block = payload.configBlock;
      while (block.size != 0 && block.data[block.size - 1] == 0) --block.size;
      fields["block"] = Hex(block);
      break;
    }
    case FENLUX_COMMAND_DUMP_DEBUG_INFO:
    case FENLUX_COMMAND_DRIVER_VERSION:
      break;
  }
}

FenluxError AddRequest(Message message, Report& fields) {
  FenluxRequestView view;
  const FenluxError error = FenluxParseRequest(message.data(), message.size(), &view);
  if (error != FENLUX_OK) return error;
  fields["command"] = static_cast<std::uint32_t>(view.command);
  AddPayload(view, fields);
  return FENLUX_OK;
}

FenluxError AddVersionReply(Message message, Report& fields) {
  fields["version"] = FenluxReadVersionReply(message.data(), message.size());
  return FENLUX_OK;
}

std::string AddressText(const FenluxEndpoint& endpoint) {
  const std::uint8_t* const address = endpoint.address;
  if (endpoint.ipv6 == 0) return fmt::format("{}.{}.{}.{}", address[0], address[1], address[2], address[3]);
  std::string text;
  for (int i = 0; i < 16; i += 2) {
    fmt::format_to(std::back_inserter(text), "{}{:02x}{:02x}", i == 0 ? "" : ":", address[i], address[i + 1]);
  }
  return text;
}

void AddDetail(const FenluxEvent& event, Report& fields) {
  switch (event.code) {
    case FENLUX_CODE_ENDPOINT:
      fields["ipv6"] = event.detail.endpoint.ipv6;
      fields["port"] = event.detail.endpoint.port;
      fields["address"] = AddressText(event.detail.endpoint);
      break;
    case FENLUX_CODE_REMOTE_1:
    case FENLUX_CODE_REMOTE_2:
      fields["remote"] = event.detail.remote.remote;
      for (int i = 0; i < 4; ++i) fields[fmt::format("word{}", i)] = Number64(event.detail.remote.words[i]);
      break;
    case FENLUX_CODE_ACCESS_1:
    case FENLUX_CODE_ACCESS_2:
      fields["accessKind"] = event.detail.access.kind;
      fields["valueA"] = event.detail.access.valueA;
      fields["valueB"] = event.detail.access.valueB;
      break;
    default:
      break;
  }
}

FenluxError AddNotification(Message message, Report& fields) {
  FenluxNotificationView view;
  const FenluxError error = FenluxParseNotification(message.data(), message.size(), &view);
  if (error != FENLUX_OK) return error;
  const FenluxEvent& event = view.event;
  fields["processId"] = Number64(event.processId);
  fields["code"] = event.code;
  fields["variant"] = event.variant;
  fields["conditionA"] = event.conditionA;
  fields["conditionB"] = event.conditionB;
  fields["conditionC"] = event.conditionC;
  fields["oplock"] = event.oplock;
  fields["identity"] = Hex(view.identity);
  AddDetail(event, fields);
  fields["path"] = Text(view.path);
  fields["secondPath"] = Text(view.secondPath);
  fields["extraData"] = Hex(view.extraData);
  fields["furtherPath"] = Text(view.furtherPath);
  return FENLUX_OK;
}

FenluxError AddReply(Message message, Report& fields) {
  FenluxReplyView view;
  const FenluxError error = FenluxParseReply(message.data(), message.size(), &view);
  if (error != FENLUX_OK) return error;
  fields["verdict"] = static_cast<std::uint32_t>(view.verdict);
  fields["context"] = Hex(view.context);
  return FENLUX_OK;
}

struct RecordType {
  Kind kind;
  const char* name;
  FenluxError (*add)(Message message, Report& fields);
};

constexpr RecordType kRecords[] = {
    {Kind::kConnectContext, "connect-context", AddConnectContext},
    {Kind::kRequest, "request", AddRequest},
    {Kind::kRequestReply, "version-reply", AddVersionReply},
    {Kind::kNotification, "notification", AddNotification},
    {Kind::kNotificationReply, "reply", AddReply},
};

// Text from the host: JSON, or the reason for a close.
Report TextFields(Kind kind, Message message) {
  const std::string_view text(reinterpret_cast<const char*>(message.data()), message.size());
  Report fields = Report::object();
  if (kind == Kind::kClosed) {
    fields["reason"] = std::string(text);
    return fields;
  }
  if (kind == Kind::kJudgement || kind == Kind::kFacts || kind == Kind::kCall) {
    if (std::optional<Report> parsed = ParseJsonObject(text)) return std::move(*parsed);
    fields["error"] = "not a JSON object";
    fields["text"] = std::string(text);
    return fields;
  }
  fields["error"] = "unknown kind of message";
  fields["bytes"] = refhost::HexText(message);
  return fields;
}

}  // namespace

std::string Utf8(const FenluxText& text) {
  std::u16string units;
  units.reserve(text.count);
  for (std::size_t i = 0; i < text.count; ++i) units += static_cast<char16_t>(FenluxTextUnit(text, i));
  return refhost::NarrowFromUtf16(units);
}

Message WholeMessage(Message message, std::uint64_t originalSize, std::string& buffer) {
  if (originalSize <= message.size()) return message;
  buffer.assign(reinterpret_cast<const char*>(message.data()), message.size());
  buffer.resize(static_cast<std::size_t>(originalSize));
  return {reinterpret_cast<const std::uint8_t*>(buffer.data()), buffer.size()};
}

Report RecordFields(Kind kind, Message message) {
  static constexpr std::uint8_t kNothing = 0;
  if (message.empty()) message = {&kNothing, 0};  // the parsers report a null pointer as a different error
  for (const RecordType& type : kRecords) {
    if (type.kind != kind) continue;
    Report fields = Report::object();
    fields["record"] = type.name;
    const FenluxError error = type.add(message, fields);
    if (error != FENLUX_OK) fields["error"] = FenluxErrorText(error);
    return fields;
  }
  return TextFields(kind, message);
}

std::optional<std::uint32_t> CommandOf(Message request) {
  FenluxRequestView view;
  if (FenluxParseRequest(request.data(), request.size(), &view) != FENLUX_OK) return std::nullopt;
  return view.command;
}

std::optional<std::uint32_t> CodeOf(Message notification) {
  if (notification.size() < sizeof(FenluxNotificationRecord)) return std::nullopt;
  return FenluxLoadU32(notification.data() + offsetof(FenluxNotificationRecord, code));
}

std::optional<std::uint32_t> VerdictOf(Message reply) {
  FenluxReplyView view;
  if (FenluxParseReply(reply.data(), reply.size(), &view) != FENLUX_OK) return std::nullopt;
  return view.verdict;
}

}  // namespace fenlux::capture
