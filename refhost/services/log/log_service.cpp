// Implements the host's log, and reads its settings.
#include "refhost/services/log/log_service.h"

#include <utility>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/start_thread.h"
#include "refhost/services/log/log_queue.h"

namespace fenlux::refhost {
namespace {

// A stuck output must not keep the process from exiting.
constexpr std::chrono::seconds kStopTimeout{5};

}  // namespace

LogSettings ReadLogSettings(const ConfigTable& table) {
  ConfigChoices<std::size_t> levels;
  for (std::size_t level = 0; level < kSeverities; ++level) {
    levels.emplace_back(SeverityName(static_cast<Severity>(level)), level);
  }
  levels.emplace_back("off", kSeverities);
  LogSettings settings;
  settings.consoleLevel = table.Choice("console", settings.consoleLevel, levels);
  settings.file = table.Path("file");
  settings.fileLevel = table.Choice("file_level", settings.fileLevel, levels);
  settings.queueLines = table.Unsigned("queue_lines", static_cast<std::uint32_t>(settings.queueLines), 1, 1'000'000);
  return settings;
}

LogService::LogService(const LogSettings& settings, std::shared_ptr<std::FILE> openedFile)
    : queue(std::make_shared<LogQueue>(settings, std::move(openedFile))) {
  StartDetachedThread("the log's writer", [queue = queue] { queue->RunWriter(); });
}

LogService::~LogService() {
  queue->Stop();
  queue->WaitStopped(kStopTimeout);
}

void LogService::LogAlert(std::uint32_t code, const std::string& line) { Write(Severity::kAlert, code, line, 0); }
void LogService::LogProblem(std::uint32_t code, const std::string& line) { Write(Severity::kProblem, code, line, 0); }
void LogService::LogWarning(std::uint32_t code, const std::string& line) { Write(Severity::kWarning, code, line, 0); }
void LogService::LogNotice(std::uint32_t code, const std::string& line) { Write(Severity::kNotice, code, line, 0); }
void LogService::LogEvent(std::uint32_t code, const std::string& line) { Write(Severity::kEvent, code, line, 0); }
void LogService::LogDetail(std::uint32_t code, const std::string& line) { Write(Severity::kDetail, code, line, 0); }

void LogService::Write(Severity severity, std::uint32_t code, std::string_view line, std::uint32_t category) {
  queue->Put({.severity = severity, .code = code, .category = category, .text = line, .content = {}, .audience = {}});
}

void LogService::Write(Severity severity, std::string_view line, LogAudience audience) {
  queue->Put({.severity = severity, .code = 0, .category = 0, .text = line, .content = {}, .audience = audience});
}

void LogService::Write(Severity severity, std::shared_ptr<const LogContent> content, LogAudience audience) {
  queue->Put({.severity = severity,
              .code = 0,
              .category = 0,
              .text = {},
              .content = std::move(content),
              .audience = audience});
}

void LogService::CountLostContent(Severity severity) { queue->CountLostContent(severity); }

bool LogService::Drain(std::chrono::milliseconds timeout) { return queue->Drain(timeout); }

LogTotals LogService::Totals() const { return queue->Totals(); }

void LogService::SwitchFile(std::shared_ptr<std::FILE> opened) { queue->SwitchFile(std::move(opened)); }

}  // namespace fenlux::refhost
