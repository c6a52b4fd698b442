// The record's text for the log; everything else of it is plain data.
#include "refhost/services/event_record.h"

#include "refhost/services/utf_text.h"

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

EventRecord::EventRecord() : process_(data_), processHandle_(std::shared_ptr<void>(), &process_) {}

std::string& EventRecord::Describe(std::string& out) {
  std::string text = "category=" + std::to_string(data_.category);
  if (data_.eventType != 0) text += " type=" + HexText(data_.eventType);
  text += " process=" + std::to_string(data_.processId);
  if (!data_.imagePath.empty()) text += " image=" + NarrowFromWide(data_.imagePath);
  if (!data_.path.empty()) text += " path=" + NarrowFromWide(data_.path);
  if (!data_.secondPath.empty()) text += " second=" + NarrowFromWide(data_.secondPath);
  return out = std::move(text);
}

}  // namespace fenlux::refhost
