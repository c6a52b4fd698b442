// One log line and its two output formats: text and JSON.
#pragma once

#include <spdlog/pattern_formatter.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "refhost/base/severity.h"
#include "refhost/services/log/log_content.h"
#include "refhost/services/log/log_time.h"

namespace fenlux::refhost {

struct LogLine {
  std::chrono::system_clock::time_point time;
  Severity severity = Severity::kDetail;
  std::uint32_t code = 0;      // 0: none
  std::uint32_t category = 0;  // 0: none
  std::string text;            // empty if there is content
  std::shared_ptr<const LogContent> content;
  LogAudience audience = LogAudience::kAll;
  bool lost = false;  // an output failed to write it; used by the writer only
};

// The outputs' level for the severity. Each severity has its own.
spdlog::level::level_enum SinkLevelOf(Severity severity);

// Formats lines. Not thread-safe.
class LogLineFormatter {
 public:
  explicit LogLineFormatter(bool asJson) : json(asJson) {}

  // The outputs' formatter, which adds the time and the severity to text lines.
  std::unique_ptr<spdlog::formatter> LineFormatter() const;
  std::string Format(const LogLine& line);

 private:
  std::string JsonText(const LogLine& line);
  std::string TimeText(const LogLine& line);

  const bool json;
  // Not thread_local: MinGW frees a thread's memory before it destroys such objects.
  spdlog::pattern_formatter timeFormatter{kTimePattern, spdlog::pattern_time_type::local, ""};
};

}  // namespace fenlux::refhost
