// Checks the items one by one. The driver kit's parser says whether the module accepts a message; this code names the
// field that is wrong, and also reports mistakes that the module tolerates.
#include "refhost/app/drive/notification_examination.h"

#include <fmt/format.h>

#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "fenlux/driver_protocol.h"

namespace fenlux::refhost {
namespace {

using Message = std::span<const std::uint8_t>;

// One item as the fixed part announces it.
struct Item {
  std::string_view field;
  std::uint64_t begin = 0;
  std::uint32_t length = 0;
  bool hasLength = true;  // the further path has none and ends at its NUL
  bool isText = true;
};

// Checks the items of one notification.
class ItemExamination {
 public:
  ItemExamination(Message examined, DrivePlace messagePlace, std::string recordName, DriveFindings& collected)
      : message(examined), place(messagePlace), record(std::move(recordName)), findings(collected) {}

  void Examine(const Item& item) {
    findings.Saw(DriveCheck::kNotificationItems);
    if (item.isText) findings.Saw(DriveCheck::kNotificationTexts);
    if (item.begin >= message.size()) {
      Add(DriveRule::kItemOutside, item, fmt::format("begins at {} of {} bytes", item.begin, message.size()));
      return;
    }
    const std::uint64_t end = item.hasLength ? item.begin + item.length : message.size();
    if (end > message.size()) {
      Add(DriveRule::kItemOutside, item,
          fmt::format("{} bytes from {} on end at {} of {}", item.length, item.begin, end, message.size()));
      return;
    }
    if (item.isText) ExamineText(item, end);
  }

 private:
  void ExamineText(const Item& item, std::uint64_t end) {
    if (item.hasLength && item.length % 2 != 0) {
      Add(DriveRule::kTextOdd, item, fmt::format("{} bytes, an odd number", item.length));
      return;
    }
    // With a length, the NUL should be the last unit; an earlier one also ends the text.
    for (std::uint64_t at = item.begin; at + 1 < end; at += 2) {
      if (message[at] == 0 && message[at + 1] == 0) return;
    }
    Add(DriveRule::kTextUnterminated, item, fmt::format("no NUL in its {} bytes", end - item.begin));
  }
  void Add(DriveRule rule, const Item& item, std::string wrong) {
    findings.Add(
        {.rule = rule, .record = record, .field = std::string(item.field), .wrong = std::move(wrong), .first = place});
  }

  const Message message;
  const DrivePlace place;
  const std::string record;
  DriveFindings& findings;
};

void ExamineItems(Message message, std::uint32_t code, const DrivePlace& place, DriveFindings& findings) {
  const auto* const fixed = reinterpret_cast<const FenluxNotificationRecord*>(message.data());
  const std::uint32_t length1 = FenluxGetU32(&fixed->item1Size);
  const std::uint32_t length2 = FenluxGetU32(&fixed->item2Size);
  const std::uint32_t length3 = FenluxGetU32(&fixed->item3Size);
  const std::uint64_t begin1 = FENLUX_NOTIFICATION_FIXED_SIZE;
  const std::uint64_t begin2 = begin1 + length1;
  const std::uint64_t begin3 = begin2 + length2;
  const bool further = code == FENLUX_CODE_FURTHER_PATH && FenluxGetU32(&fixed->item4Present) != 0;
  ItemExamination examination(message, place, fmt::format("notification {}", code), findings);
  if (length1 != 0) examination.Examine({"path, length at 30", begin1, length1});
  if (length2 != 0) examination.Examine({"second path, length at 34", begin2, length2});
  if (length3 != 0) examination.Examine({"extra data, length at 38", begin3, length3, true, false});
  if (further) examination.Examine({"further path, flag at 42", begin3 + length3, 0, false});
}

}  // namespace

void ExamineNotification(const capture::Exchange& exchange, DriveFindings& findings) {
  const Message message(exchange.message.bytes);
  const DrivePlace place{exchange.header.connection, exchange.header.exchange, exchange.offset};
  const auto add = [&](DriveRule rule, const char* field, std::string wrong) {
    findings.Add({.rule = rule, .record = "notification", .field = field, .wrong = std::move(wrong), .first = place});
  };
  findings.Saw(DriveCheck::kNotificationSize);
  if (message.size() > FENLUX_MAX_NOTIFICATION_SIZE) {
    add(DriveRule::kNotificationLong, "size", fmt::format("{} bytes", message.size()));
    return;
  }
  if (message.size() < FENLUX_NOTIFICATION_FIXED_SIZE) {
    add(DriveRule::kNotificationShort, "size", fmt::format("{} bytes", message.size()));
    return;
  }
  findings.Saw(DriveCheck::kNotificationCode);
  const auto* const fixed = reinterpret_cast<const FenluxNotificationRecord*>(message.data());
  const std::uint32_t code = FenluxGetU32(&fixed->code);
  if (!FenluxIsNotificationCode(code)) {
    add(DriveRule::kCodeUnknown, "code at 20", fmt::format("{}", code));
    return;
  }
  ExamineItems(message, code, place, findings);
}

}  // namespace fenlux::refhost
