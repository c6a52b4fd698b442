// Adding lines, and the writer's loop.
#include "refhost/services/log/log_queue.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "refhost/services/log/log_file_sink.h"

namespace fenlux::refhost {
namespace {

using Clock = std::chrono::steady_clock;

// A line may have any length, so the number of lines alone does not limit the memory.
constexpr std::size_t kMaxBytes = std::size_t{32} << 20;

spdlog::color_mode ColorMode(LogColors colors) {
  constexpr std::array<spdlog::color_mode, 3> kModes{spdlog::color_mode::automatic, spdlog::color_mode::always,
                                                     spdlog::color_mode::never};
  return kModes[static_cast<std::size_t>(colors)];
}

}  // namespace

LogQueue::LogQueue(const LogSettings& settings, LogFile file)
    : maxLines(settings.queueLines),
      console(std::make_shared<spdlog::sinks::stderr_color_sink_st>(ColorMode(settings.colors))),
      formatter(settings.json) {
  console->set_formatter(formatter.LineFormatter());
  AddOutput(console, settings.consoleLevel, stderr);
  if (settings.file.empty()) return;
  if (file == nullptr) file = OpenLogFile(settings.file);
  fileSink = std::make_shared<LogFileSink>(std::move(file));
  AddOutput(fileSink, settings.fileLevel, nullptr);
}

void LogQueue::AddOutput(std::shared_ptr<spdlog::sinks::sink> sink, std::size_t level, std::FILE* stream) {
  if (level >= kSeverities) return;
  sink->set_formatter(formatter.LineFormatter());
  outputs.push_back({std::move(sink), level, stream});
  minLevel = std::min(minLevel, level);
}

void LogQueue::Put(Severity severity, std::uint32_t code, std::string_view text, std::uint32_t category) noexcept {
  const auto level = static_cast<std::size_t>(severity);
  counts[level].fetch_add(1, std::memory_order_relaxed);
  if (level < minLevel) {
    unwanted.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  try {
    LogLine line{std::chrono::system_clock::now(), severity, code, category, std::string(text)};
    const MutexLock lock(mutex);
    if (stopping || lines.size() >= maxLines || bytes + text.size() > kMaxBytes) {
      ++dropped;
      return;
    }
    bytes += text.size();
    lines.push_back(std::move(line));
  } catch (...) {  // no memory for the line
    unstored.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  added.notify_one();
}

void LogQueue::RunWriter() {
  std::vector<LogLine> taken;
  for (;;) {
    LogFile file;
    {
      MutexLock lock(mutex);
      while (!stopping && lines.empty() && nextFile == nullptr) lock.Wait(added);
      file = std::move(nextFile);
      nextFile = nullptr;
      if (stopping && lines.empty()) {
        stopped = true;
        drained.notify_all();
        return;
      }
      taken.swap(lines);
      bytes = 0;
      writing = taken.size();
    }
    if (file != nullptr) UseFile(std::move(file));
    const std::size_t lost = WriteBatch(taken);
    {
      const MutexLock lock(mutex);
      writing = 0;
      written += taken.size() - lost;
      dropped += lost;
    }
    drained.notify_all();
    taken.clear();
  }
}

bool LogQueue::Drain(std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  MutexLock lock(mutex);
  while (!lines.empty() || writing > 0) {
    if (!lock.WaitUntil(drained, deadline)) return lines.empty() && writing == 0;
  }
  return true;
}

void LogQueue::SwitchFile(LogFile file) {
  const MutexLock lock(mutex);
  nextFile = std::move(file);
  added.notify_one();
}

void LogQueue::UseFile(LogFile file) {
  if (fileSink != nullptr) fileSink->Replace(std::move(file));
}

void LogQueue::Stop() {
  const MutexLock lock(mutex);
  stopping = true;
  added.notify_one();
}

bool LogQueue::WaitStopped(std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  MutexLock lock(mutex);
  while (!stopped) {
    if (!lock.WaitUntil(drained, deadline)) return stopped;
  }
  return true;
}

LogTotals LogQueue::Totals() const {
  LogTotals totals;
  for (std::size_t index = 0; index < kSeverities; ++index) totals.bySeverity[index] = counts[index].load();
  totals.unwanted = unwanted.load();
  const MutexLock lock(mutex);
  totals.written = written;
  totals.dropped = dropped + unstored.load();
  totals.waiting = lines.size() + writing;
  return totals;
}

std::size_t LogQueue::WriteBatch(const std::vector<LogLine>& batch) noexcept {
  std::array<std::size_t, kSeverities> accepted{};
  std::size_t lost = 0;
  for (const LogLine& line : batch) {
    if (Write(line)) {
      ++accepted[static_cast<std::size_t>(line.severity)];
    } else {
      ++lost;
    }
  }
  for (std::size_t level = Flush(); level < kSeverities; ++level) lost += accepted[level];
  return lost;
}

// Returns whether every output accepted the line.
bool LogQueue::Write(const LogLine& line) noexcept {
  bool accepted = true;
  try {
    const std::string text = formatter.Format(line);
    const spdlog::details::log_msg message(line.time, {}, "", SinkLevelOf(line.severity), text);
    for (const Output& output : outputs) {
      if (static_cast<std::size_t>(line.severity) >= output.level) accepted = WriteTo(output, message) && accepted;
    }
  } catch (...) {
    accepted = false;
  }
  return accepted;
}

bool LogQueue::WriteTo(const Output& output, const spdlog::details::log_msg& message) noexcept {
  try {
    output.sink->log(message);
  } catch (const std::exception& error) {  // a full disk
    ReportLoss(error.what());
    return false;
  }
  if (output.stream == nullptr || std::ferror(output.stream) == 0) return true;
  std::clearerr(output.stream);
  return false;  // a closed terminal: nowhere to report it
}

std::size_t LogQueue::Flush() noexcept {
  std::size_t failed = kSeverities;
  for (const Output& output : outputs) {
    try {
      output.sink->flush();
    } catch (const std::exception& error) {
      failed = std::min(failed, output.level);
      ReportLoss(error.what());
    }
  }
  return failed;
}

void LogQueue::ReportLoss(const char* reason) noexcept {
  if (lossReported) return;
  lossReported = true;
  try {
    const LogLine line{std::chrono::system_clock::now(), Severity::kProblem, 0, 0,
                       fmt::format("[host] log lines are lost, counted as dropped: {}", reason)};
    const std::string text = formatter.Format(line);
    console->log(spdlog::details::log_msg(line.time, {}, "", SinkLevelOf(line.severity), text));
  } catch (...) {  // Ignored: the lost lines are counted.
  }
}

}  // namespace fenlux::refhost
