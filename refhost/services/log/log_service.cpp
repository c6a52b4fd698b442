// The queue and its writer. The queue's lock is held to add one line or to take all of them, never while one is
// written; the writer's thread shares ownership of the queue, so that a process can leave while an output is stuck.
#include "refhost/services/log/log_service.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/report.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

// Lines of any length are taken, so their bytes are limited too.
constexpr std::size_t kMostBytes = std::size_t{32} << 20;

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

struct Line {
  std::chrono::system_clock::time_point time;
  Severity severity;
  std::uint32_t code;
  std::uint32_t category;
  std::string text;
};

std::string_view ViewOf(spdlog::string_view_t text) { return {text.data(), text.size()}; }

// 2025-01-31T12:00:00.123+01:00
constexpr char kTimePattern[] = "%Y-%m-%dT%H:%M:%S.%e%z";

std::string TimeText(const Line& line, spdlog::pattern_formatter& formatter) {
  spdlog::memory_buf_t text;
  formatter.format(spdlog::details::log_msg(line.time, {}, "", spdlog::level::info, ""), text);
  return std::string(text.data(), text.size());
}

std::string JsonLine(const Line& line, spdlog::pattern_formatter& timeFormatter) {
  Report object = Report::object();
  object["time"] = TimeText(line, timeFormatter);
  object["severity"] = RowOf(line.severity).name;
  object["level"] = ViewOf(spdlog::level::to_string_view(RowOf(line.severity).level));
  if (line.code != 0) object["code"] = line.code;
  if (line.category != 0) object["category"] = line.category;
  object["text"] = line.text;
  return JsonText(object);
}

std::string PlainText(const Line& line) {
  return line.category == 0 ? Printable(line.text)
                            : "(category " + std::to_string(line.category) + ") " + Printable(line.text);
}

}  // namespace

std::string_view SeverityName(Severity severity) { return RowOf(severity).name; }

LogSettings ReadLogSettings(const ConfigTable& table) {
  ConfigChoices<std::size_t> levels;
  for (std::size_t index = 0; index < kSeverities; ++index) levels.emplace_back(kSeverityRows[index].name, index);
  levels.emplace_back("off", kSeverities);
  LogSettings settings;
  settings.consoleLeast = table.Choice("console", settings.consoleLeast, levels);
  settings.file = table.Path("file");
  settings.fileLeast = table.Choice("file_level", settings.fileLeast, levels);
  settings.queueLines = table.Unsigned("queue_lines", static_cast<std::uint32_t>(settings.queueLines), 1, 1'000'000);
  return settings;
}

class LogService::Queue {
 public:
  explicit Queue(const LogSettings& settings) : json(settings.json), mostLines(settings.queueLines) {
    const std::string pattern = json ? "%v" : "%Y-%m-%d %H:%M:%S.%e %^%-8l%$ %v";
    AddOutput(std::make_shared<spdlog::sinks::stderr_color_sink_st>(), settings.consoleLeast, pattern);
    if (settings.file.empty()) return;
    try {
      AddOutput(std::make_shared<spdlog::sinks::basic_file_sink_st>(settings.file.native()), settings.fileLeast,
                pattern);
    } catch (const spdlog::spdlog_ex&) {
      throw std::runtime_error("the log file " + settings.file.string() + " cannot be opened for writing");
    }
  }

  void Put(Severity severity, std::uint32_t code, std::string_view text, std::uint32_t category) noexcept {
    counts[static_cast<std::size_t>(severity)].fetch_add(1, std::memory_order_relaxed);
    if (static_cast<std::size_t>(severity) < least) {
      unwanted.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    try {
      Line line{std::chrono::system_clock::now(), severity, code, category, std::string(text)};
      const std::lock_guard lock(mutex);
      if (ending || lines.size() >= mostLines || bytes + text.size() > kMostBytes) {
        ++dropped;
        return;
      }
      bytes += text.size();
      lines.push_back(std::move(line));
    } catch (...) {  // no memory for the line
      unstored.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    wakeup.notify_one();
  }

  // The writer's thread.
  void Run() {
    std::vector<Line> taken;
    std::unique_lock lock(mutex);
    for (;;) {
      wakeup.wait(lock, [this] { return ending || !lines.empty(); });
      if (lines.empty()) break;
      taken.swap(lines);
      bytes = 0;
      writing = taken.size();
      lock.unlock();
      std::uint64_t failed = 0;
      for (const Line& line : taken) failed += WriteOut(line) ? 0 : 1;
      Flush();
      const std::uint64_t count = taken.size();
      taken.clear();
      lock.lock();
      writing = 0;
      written += count - failed;
      dropped += failed;
      drained.notify_all();
    }
    ended = true;
    drained.notify_all();
  }

  bool Drain(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return drained.wait_for(lock, limit, [this] { return lines.empty() && writing == 0; });
  }

  // Ends the writer; what is logged from now on is dropped.
  void End() {
    const std::lock_guard lock(mutex);
    ending = true;
    wakeup.notify_one();
  }

  bool WaitEnded(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return drained.wait_for(lock, limit, [this] { return ended; });
  }

  LogTotals Totals() const {
    LogTotals totals;
    for (std::size_t index = 0; index < kSeverities; ++index) totals.bySeverity[index] = counts[index].load();
    totals.unwanted = unwanted.load();
    const std::lock_guard lock(mutex);
    totals.written = written;
    totals.dropped = dropped + unstored.load();
    totals.waiting = lines.size() + writing;
    return totals;
  }

 private:
  struct Output {
    std::shared_ptr<spdlog::sinks::sink> sink;
    std::size_t least;
  };

  void AddOutput(std::shared_ptr<spdlog::sinks::sink> sink, std::size_t level, const std::string& pattern) {
    if (level >= kSeverities) return;
    sink->set_pattern(pattern);
    outputs.push_back({std::move(sink), level});
    least = std::min(least, level);
  }

  // Whether every output took the line.
  bool WriteOut(const Line& line) noexcept {
    bool taken = true;
    try {
      const std::string text = json ? JsonLine(line, timeFormatter) : PlainText(line);
      const spdlog::details::log_msg message(line.time, {}, "", RowOf(line.severity).level, text);
      for (const Output& output : outputs) {
        if (static_cast<std::size_t>(line.severity) >= output.least) taken = WriteTo(output, message) && taken;
      }
    } catch (...) {
      taken = false;
    }
    return taken;
  }

  static bool WriteTo(const Output& output, const spdlog::details::log_msg& message) {
    try {
      output.sink->log(message);
      return true;
    } catch (const std::exception&) {  // a full disk, a closed terminal
      return false;
    }
  }

  void Flush() noexcept {
    for (const Output& output : outputs) {
      try {
        output.sink->flush();
      } catch (const std::exception&) {  // counted when a line is refused
      }
    }
  }

  const bool json;
  const std::size_t mostLines;
  std::vector<Output> outputs;  // fixed at construction, then the writer's
  // The writer's. Not thread_local: MinGW frees a thread's objects before it destroys them.
  spdlog::pattern_formatter timeFormatter{kTimePattern, spdlog::pattern_time_type::local, ""};
  std::size_t least = kSeverities;  // the least severity that any output takes
  std::array<std::atomic<std::uint64_t>, kSeverities> counts{};
  std::atomic<std::uint64_t> unwanted{0};
  std::atomic<std::uint64_t> unstored{0};

  mutable std::mutex mutex;  // over everything below
  std::condition_variable wakeup;
  std::condition_variable drained;
  std::vector<Line> lines;
  std::size_t bytes = 0;
  std::size_t writing = 0;
  std::uint64_t written = 0;
  std::uint64_t dropped = 0;
  bool ending = false;
  bool ended = false;
};

LogService::LogService(const LogSettings& settings) : queue(std::make_shared<Queue>(settings)) {
  std::thread([queue = queue] { queue->Run(); }).detach();
}

LogService::~LogService() {
  queue->End();
  // An output that is stuck for good must not keep the process from leaving.
  queue->WaitEnded(std::chrono::seconds(5));
}

void LogService::LogAlert(std::uint32_t code, const std::string& line) { Write(Severity::kAlert, code, line, 0); }
void LogService::LogProblem(std::uint32_t code, const std::string& line) { Write(Severity::kProblem, code, line, 0); }
void LogService::LogWarning(std::uint32_t code, const std::string& line) { Write(Severity::kWarning, code, line, 0); }
void LogService::LogNotice(std::uint32_t code, const std::string& line) { Write(Severity::kNotice, code, line, 0); }
void LogService::LogEvent(std::uint32_t code, const std::string& line) { Write(Severity::kEvent, code, line, 0); }
void LogService::LogDetail(std::uint32_t code, const std::string& line) { Write(Severity::kDetail, code, line, 0); }

void LogService::Write(Severity severity, std::uint32_t code, std::string_view line, std::uint32_t category) {
  queue->Put(severity, code, line, category);
}

bool LogService::Drain(std::chrono::milliseconds limit) { return queue->Drain(limit); }

LogTotals LogService::Totals() const { return queue->Totals(); }

}  // namespace fenlux::refhost
