// Formats a single time. To format many, keep a formatter.
#include "refhost/services/log/log_time.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>

namespace fenlux::refhost {

std::string LogTimeText(std::chrono::system_clock::time_point time) {
  spdlog::pattern_formatter formatter(kTimePattern, spdlog::pattern_time_type::local, "");
  spdlog::memory_buf_t text;
  formatter.format(spdlog::details::log_msg(time, {}, "", spdlog::level::info, ""), text);
  return std::string(text.data(), text.size());
}

}  // namespace fenlux::refhost
