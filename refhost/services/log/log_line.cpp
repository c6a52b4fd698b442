// Names and levels of severities, and the forms of a line.
#include "refhost/services/log/log_line.h"

#include <fmt/format.h>
#include <spdlog/details/log_msg.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "refhost/base/report.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {
namespace {

struct SeverityRow {
  std::string_view name;
  spdlog::level::level_enum level;
};

constexpr std::array<SeverityRow, kSeverities> kSeverityRows{{
    {"detail", spdlog::level::debug},
    {"event", spdlog::level::info},
    {"notice", spdlog::level::info},
    {"warning", spdlog::level::warn},
    {"problem", spdlog::level::err},
    {"alert", spdlog::level::critical},
}};

const SeverityRow& RowOf(Severity severity) { return kSeverityRows[static_cast<std::size_t>(severity)]; }

std::string_view ViewOf(spdlog::string_view_t text) { return {text.data(), text.size()}; }

}  // namespace

std::string_view SeverityName(Severity severity) { return RowOf(severity).name; }

spdlog::level::level_enum LevelOf(Severity severity) { return RowOf(severity).level; }

std::string LogLineFormatter::Pattern() const { return json ? "%v" : "%Y-%m-%d %H:%M:%S.%e %^%-8l%$ %v"; }

std::string LogLineFormatter::Format(const LogLine& line) {
  if (json) return JsonText(line);
  const std::string text = Printable(line.text);
  return line.category == 0 ? text : fmt::format("(category {}) {}", line.category, text);
}

std::string LogLineFormatter::JsonText(const LogLine& line) {
  Report object = Report::object();
  object["time"] = TimeText(line);
  object["severity"] = SeverityName(line.severity);
  object["level"] = ViewOf(spdlog::level::to_string_view(LevelOf(line.severity)));
  if (line.code != 0) object["code"] = line.code;
  if (line.category != 0) object["category"] = line.category;
  object["text"] = line.text;
  return refhost::JsonText(object);
}

// 2025-01-31T12:00:00.123+01:00
std::string LogLineFormatter::TimeText(const LogLine& line) {
  spdlog::memory_buf_t text;
  timeFormatter.format(spdlog::details::log_msg(line.time, {}, "", spdlog::level::info, ""), text);
  return std::string(text.data(), text.size());
}

}  // namespace fenlux::refhost
