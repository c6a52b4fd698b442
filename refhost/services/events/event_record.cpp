// The record's text for the log; everything else of it is plain data.
#include "refhost/services/events/event_record.h"

#include <fmt/format.h>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
EventRecord::EventRecord() : process(data), processHandle(std::shared_ptr<void>(), &process) {}

std::string& EventRecord::Describe(std::string& out) {
  std::string text = "category=" + std::to_string(data.category);
  if (data.eventType != 0) text += " type=" + fmt::format("{:#x}", data.eventType);
  text += " process=" + std::to_string(data.processId);
  if (!data.imagePath.empty()) text += " image=" + NarrowFromWide(data.imagePath);
  if (!data.path.empty()) text += " path=" + NarrowFromWide(data.path);
  if (!data.secondPath.empty()) text += " second=" + NarrowFromWide(data.secondPath);
  return out = std::move(text);
}

}  // namespace fenlux::refhost
