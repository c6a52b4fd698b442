// Describes a record for the log.
#include "refhost/services/events/event_record.h"

#include <fmt/format.h>

#include <iterator>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
EventRecord::EventRecord() : process(data), processHandle(std::shared_ptr<void>(), &process) {}

std::string& EventRecord::Describe(std::string& out) {
  std::string text = fmt::format("category={}", data.category);
  const auto append = std::back_inserter(text);
  if (data.eventType != 0) fmt::format_to(append, " type={:#x}", data.eventType);
  fmt::format_to(append, " process={}", data.processId);
  if (!data.imagePath.empty()) fmt::format_to(append, " image={}", NarrowFromWide(data.imagePath));
  if (!data.path.empty()) fmt::format_to(append, " path={}", NarrowFromWide(data.path));
  if (!data.secondPath.empty()) fmt::format_to(append, " second={}", NarrowFromWide(data.secondPath));
  return out = std::move(text);
}

}  // namespace fenlux::refhost
