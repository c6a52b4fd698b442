// Lists the byte ranges of each record that count; two messages are equal if these ranges are.
#include "refhost/capture/replay/message_difference.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "fenlux/driver_protocol.h"
#include "refhost/base/text/hex.h"
#include "refhost/capture/decode/record_fields.h"

namespace fenlux::capture {
namespace {

using Message = std::span<const std::uint8_t>;

constexpr std::size_t kRowSize = 16;
constexpr std::size_t kMaxRows = 16;

struct Range {
  std::size_t begin;
  std::size_t size;
};
using Ranges = std::vector<Range>;

// The text up to its terminator, or the whole field if it has none.
Range TextRange(Message message, const FenluxText& text) {
  return {static_cast<std::size_t>(reinterpret_cast<const std::uint8_t*>(text.data) - message.data()), 2 * text.count};
}

std::size_t SizeWithoutZeros(const FenluxBytes& bytes) {
  std::size_t size = bytes.size;
  while (size > 0 && bytes.data[size - 1] == 0) --size;
  return size;
}

// The payload of a request begins with a fixed number of bytes that count.
struct PayloadSize {
  FenluxCommand command;
  std::size_t size;
};
constexpr PayloadSize kPayloadSizes[] = {
    {FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS, 4},
    {FENLUX_COMMAND_GRPM_SWITCH, 5},
    {FENLUX_COMMAND_GRSP_SWITCH, 5},
    {FENLUX_COMMAND_GRDTO_VALUE, 4},
    {FENLUX_COMMAND_GRHARA_SWITCH, 1},
    {FENLUX_COMMAND_SPSP_STATE, 4},
    {FENLUX_COMMAND_NET_CONTROL_MODE, 4},
    {FENLUX_COMMAND_SYSTEM_PROCESS, 12},
    {FENLUX_COMMAND_NET_ITEM_LIST_BEGIN, 4},
    {FENLUX_COMMAND_NET_ITEM, 56},
    {FENLUX_COMMAND_NET_ITEM_LIST_END, 4},
};

// A path that is not a directory has the flag 0 on a machine where it exists, and 1 on one where it does not.
bool PathFlagCounts(Message recorded) {
  constexpr std::size_t kOffset = offsetof(FenluxMonitorObjectRecord, pathFlag);
  return recorded.size() > kOffset && recorded[kOffset] != 0;
}

Ranges RangesOfRequest(Message message, Message recorded, const ComparisonRules& rules) {
  FenluxRequestView view;
  if (FenluxParseRequest(message.data(), message.size(), &view) != FENLUX_OK) return {{0, message.size()}};
  Ranges ranges{{0, sizeof(FenluxRequestHeader)}};
  if (!rules.requestContents) return ranges;
  if (view.command == FENLUX_COMMAND_ADD_MONITOR_OBJECT) {
    const FenluxMonitorObjectView& object = view.payload.monitorObject;
    ranges.push_back({offsetof(FenluxMonitorObjectRecord, objectType), 4});
    if (PathFlagCounts(recorded)) ranges.push_back({offsetof(FenluxMonitorObjectRecord, pathFlag), 1});
    if (rules.rootNames) ranges.push_back(TextRange(message, object.rootName));
    ranges.push_back(TextRange(message, object.path));
  } else if (view.command == FENLUX_COMMAND_DRIVER_CONFIG) {
    // The request does not state the block's size.
    ranges.push_back({sizeof(FenluxRequestHeader), SizeWithoutZeros(view.payload.configBlock)});
  } else {
    for (const PayloadSize& payload : kPayloadSizes) {
      if (payload.command == view.command) ranges.push_back({sizeof(FenluxRequestHeader), payload.size});
    }
  }
  return ranges;
}

Ranges RangesOfReply(Message message) {
  FenluxReplyView view;
  if (FenluxParseReply(message.data(), message.size(), &view) != FENLUX_OK) return {{0, message.size()}};
  Ranges ranges{{0, offsetof(FenluxReplyRecord, unused)}};
  if (view.context.size != 0) ranges.push_back({FENLUX_REPLY_FIXED_SIZE, view.context.size});
  return ranges;
}

Ranges RangesOf(Kind kind, Message message, Message recorded, const ComparisonRules& rules) {
  if (message.empty()) return {};
  if (kind == Kind::kRequest) return RangesOfRequest(message, recorded, rules);
  if (kind == Kind::kNotificationReply) return RangesOfReply(message);
  return {{0, message.size()}};
}

bool SameBytes(Message left, const Ranges& leftRanges, Message right, const Ranges& rightRanges) {
  return std::ranges::equal(leftRanges, rightRanges, [&](const Range& one, const Range& other) {
    return one.begin == other.begin &&
           std::ranges::equal(left.subspan(one.begin, one.size), right.subspan(other.begin, other.size));
  });
}

bool Overlaps(const Ranges& ranges, std::size_t begin) {
  return std::ranges::any_of(
      ranges, [&](const Range& range) { return range.begin < begin + kRowSize && begin < range.begin + range.size; });
}

Message RowOf(Message message, std::size_t begin) {
  if (begin >= message.size()) return {};
  return message.subspan(begin, std::min(kRowSize, message.size() - begin));
}

std::vector<ByteDifference> DifferentRows(Message recorded, const Ranges& recordedRanges, Message replayed,
                                          const Ranges& replayedRanges) {
  std::vector<ByteDifference> rows;
  for (std::size_t begin = 0; begin < std::max(recorded.size(), replayed.size()); begin += kRowSize) {
    if (!Overlaps(recordedRanges, begin) && !Overlaps(replayedRanges, begin)) continue;
    const Message one = RowOf(recorded, begin);
    const Message other = RowOf(replayed, begin);
    if (std::ranges::equal(one, other)) continue;
    rows.push_back({begin, refhost::HexText(one), refhost::HexText(other)});
    if (rows.size() == kMaxRows) break;
  }
  return rows;
}

// The value of a field; null if there is none.
Report FieldOf(const Report& fields, const std::string& name) {
  const auto found = fields.find(name);
  return found == fields.end() ? Report() : *found;
}

bool FieldCounts(Kind kind, const std::string& name, Message recorded, const ComparisonRules& rules) {
  if (kind != Kind::kRequest) return true;
  if (!rules.requestContents) return name == "record" || name == "command" || name == "error";
  if (name == "rootName") return rules.rootNames;
  return name != "pathFlag" || PathFlagCounts(recorded);
}

std::vector<FieldDifference> DifferentFields(Kind kind, Message recorded, Message replayed,
                                             const ComparisonRules& rules) {
  std::vector<FieldDifference> differences;
  if (recorded.empty() != replayed.empty()) {
    return {{"message", recorded.empty() ? "none" : "present", replayed.empty() ? "none" : "present"}};
  }
  if (recorded.size() != replayed.size()) {
    differences.push_back({"size", std::to_string(recorded.size()), std::to_string(replayed.size())});
  }
  const Report one = RecordFields(kind, recorded);
  const Report other = RecordFields(kind, replayed);
  const auto compare = [&](const std::string& name) {
    if (!FieldCounts(kind, name, recorded, rules)) return;
    const Report recordedValue = FieldOf(one, name);
    const Report replayedValue = FieldOf(other, name);
    if (recordedValue == replayedValue) return;
    differences.push_back({name, refhost::JsonText(recordedValue), refhost::JsonText(replayedValue)});
  };
  for (const auto& [name, value] : one.items()) compare(name);
  for (const auto& [name, value] : other.items()) {
    if (!one.contains(name)) compare(name);
  }
  return differences;
}

}  // namespace

std::optional<MessageDifference> CompareMessages(Kind kind, Message recorded, Message replayed,
                                                 const ComparisonRules& rules) {
  const Ranges recordedRanges = RangesOf(kind, recorded, recorded, rules);
  const Ranges replayedRanges = RangesOf(kind, replayed, recorded, rules);
  if (recorded.size() == replayed.size() && SameBytes(recorded, recordedRanges, replayed, replayedRanges)) {
    return std::nullopt;
  }
  MessageDifference difference;
  difference.fields = DifferentFields(kind, recorded, replayed, rules);
  difference.bytes = DifferentRows(recorded, recordedRanges, replayed, replayedRanges);
  return difference;
}

}  // namespace fenlux::capture
