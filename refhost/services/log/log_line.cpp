// Names and levels of severities, and the two formats of a line.
#include "refhost/services/log/log_line.h"

#include <fmt/format.h>
#include <spdlog/details/log_msg.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "refhost/base/report.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {
namespace {

// `level` is the standard name in JSON, for other programs. Sinks color a line by its level, so each severity has its
// own `sinkLevel`.
struct SeverityRow {
  std::string_view name;
  spdlog::level::level_enum level;
  spdlog::level::level_enum sinkLevel;
};

constexpr std::array<SeverityRow, kSeverities> kSeverityRows{{
    {"detail", spdlog::level::debug, spdlog::level::trace},
    {"event", spdlog::level::info, spdlog::level::debug},
    {"notice", spdlog::level::info, spdlog::level::info},
    {"warning", spdlog::level::warn, spdlog::level::warn},
    {"problem", spdlog::level::err, spdlog::level::err},
    {"alert", spdlog::level::critical, spdlog::level::critical},
}};

// Writes the severity's name, padded.
class SeverityFlag final : public spdlog::custom_flag_formatter {
 public:
  void format(const spdlog::details::log_msg& message, const std::tm& /*time*/, spdlog::memory_buf_t& out) override {
    const auto* const row = std::ranges::find(kSeverityRows, message.level, &SeverityRow::sinkLevel);
    const std::string name = row == kSeverityRows.end() ? std::string() : std::string(row->name);
    const std::string padded = fmt::format("{:<7}", name);
    out.append(padded.data(), padded.data() + padded.size());
  }
  std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<SeverityFlag>(); }
};

const SeverityRow& RowOf(Severity severity) { return kSeverityRows[static_cast<std::size_t>(severity)]; }

std::string_view ViewOf(spdlog::string_view_t text) { return {text.data(), text.size()}; }

}  // namespace

std::string_view SeverityName(Severity severity) { return RowOf(severity).name; }

spdlog::level::level_enum SinkLevelOf(Severity severity) { return RowOf(severity).sinkLevel; }

std::unique_ptr<spdlog::formatter> LogLineFormatter::LineFormatter() const {
  auto formatter = std::make_unique<spdlog::pattern_formatter>();
  if (!json) formatter->add_flag<SeverityFlag>('*');
  formatter->set_pattern(json ? "%v" : "%Y-%m-%d %H:%M:%S.%e %^%*%$ %v");
  return formatter;
}

std::string LogLineFormatter::Format(const LogLine& line) {
  if (json) return JsonText(line);
  const std::string text = Printable(line.content == nullptr ? line.text : line.content->Text());
  return line.category == 0 ? text : fmt::format("(category {}) {}", line.category, text);
}

std::string LogLineFormatter::JsonText(const LogLine& line) {
  Report object = Report::object();
  object["time"] = TimeText(line);
  object["severity"] = SeverityName(line.severity);
  object["level"] = ViewOf(spdlog::level::to_string_view(RowOf(line.severity).level));
  if (line.code != 0) object["code"] = line.code;
  if (line.category != 0) object["category"] = line.category;
  object["text"] = line.content == nullptr ? line.text : line.content->Text();
  if (line.content != nullptr) line.content->AddTo(object);
  return refhost::JsonText(object);
}

// 2025-01-31T12:00:00.123+01:00
std::string LogLineFormatter::TimeText(const LogLine& line) {
  spdlog::memory_buf_t text;
  timeFormatter.format(spdlog::details::log_msg(line.time, {}, "", spdlog::level::info, ""), text);
  return std::string(text.data(), text.size());
}

}  // namespace fenlux::refhost
