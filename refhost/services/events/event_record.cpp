// The record's text for the log; everything else of it is plain data.
#include "refhost/services/events/event_record.h"

#include "refhost/base/utf_text.h"

namespace fenlux::refhost {
namespace {

std::string HexText(std::uint32_t value) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  do {
    digits.insert(digits.begin(), kDigits[value & 0xF]);
    value >>= 4;
  } while (value != 0);
  return "0x" + digits;
}

}  // namespace

EventRecord::EventRecord() : process(data), processHandle(std::shared_ptr<void>(), &process) {}

std::string& EventRecord::Describe(std::string& out) {
  std::string text = "category=" + std::to_string(data.category);
  if (data.eventType != 0) text += " type=" + HexText(data.eventType);
  text += " process=" + std::to_string(data.processId);
  if (!data.imagePath.empty()) text += " image=" + NarrowFromWide(data.imagePath);
  if (!data.path.empty()) text += " path=" + NarrowFromWide(data.path);
  if (!data.secondPath.empty()) text += " second=" + NarrowFromWide(data.secondPath);
  return out = std::move(text);
}

}  // namespace fenlux::refhost
