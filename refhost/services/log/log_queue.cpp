// Adds lines, and runs the writer's loop.
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

// Lines may have any length, so limiting their number does not limit the memory.
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
  AddOutput({console, settings.consoleLevel, stderr, LogAudience::kConsole});
  if (settings.file.empty()) return;
  if (file == nullptr) file = OpenLogFile(settings.file);
  fileSink = std::make_shared<LogFileSink>(std::move(file));
  AddOutput({fileSink, settings.fileLevel, nullptr, LogAudience::kFile});
}

void LogQueue::AddOutput(Output output) {
  if (output.level >= kSeverities) return;
  output.sink->set_formatter(formatter.LineFormatter());
  outputs.push_back(std::move(output));
}

template <typename Line>
void LogQueue::Count(std::atomic<std::uint64_t> Counts::*count, const Line& line) noexcept {
  (all.*count).fetch_add(1, std::memory_order_relaxed);
  if (line.content != nullptr) (withContent.*count).fetch_add(1, std::memory_order_relaxed);
}

bool LogQueue::SomeOutputWants(const LogEntry& entry) const noexcept {
  return std::ranges::any_of(outputs,
                             [&](const Output& output) { return output.Wants(entry.severity, entry.audience); });
}

void LogQueue::Put(const LogEntry& entry) noexcept {
  counts[static_cast<std::size_t>(entry.severity)].fetch_add(1, std::memory_order_relaxed);
  Count(&Counts::logged, entry);
  if (!SomeOutputWants(entry)) return Count(&Counts::unwanted, entry);
  try {
    LogLine line;
    line.time = std::chrono::system_clock::now();
    line.severity = entry.severity;
    line.code = entry.code;
    line.category = entry.category;
    line.text = entry.text;
    line.content = entry.content;
    line.audience = entry.audience;
    const std::size_t size = entry.content == nullptr ? entry.text.size() : entry.content->Size();
    const MutexLock lock(mutex);
    if (stopping || lines.size() >= maxLines || bytes + size > kMaxBytes) return Count(&Counts::dropped, entry);
    bytes += size;
    lines.push_back(std::move(line));
  } catch (...) {  // no memory for the line
    return Count(&Counts::dropped, entry);
  }
  added.notify_one();
}

void LogQueue::CountLostContent(Severity severity) noexcept {
  counts[static_cast<std::size_t>(severity)].fetch_add(1, std::memory_order_relaxed);
  for (Counts* const lost : {&all, &withContent}) {
    ++lost->logged;
    ++lost->dropped;
  }
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
    WriteBatch(taken);
    {
      const MutexLock lock(mutex);
      writing = 0;
      for (const LogLine& line : taken) Count(line.lost ? &Counts::dropped : &Counts::written, line);
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
  const MutexLock lock(mutex);
  totals.unwanted = all.unwanted.load();
  totals.written = all.written.load();
  totals.dropped = all.dropped.load();
  totals.waiting = lines.size() + writing;
  totals.content.unwanted = withContent.unwanted.load();
  totals.content.written = withContent.written.load();
  totals.content.dropped = withContent.dropped.load();
  totals.content.logged = withContent.logged.load();  // last, so that it is at least the sum of the others
  return totals;
}

void LogQueue::WriteBatch(std::vector<LogLine>& batch) noexcept {
  for (LogLine& line : batch) line.lost = !Write(line);
  for (const Output& output : outputs) {
    if (Flush(output)) continue;
    for (LogLine& line : batch) line.lost = line.lost || output.Wants(line.severity, line.audience);
  }
}

// Returns whether every output accepted the line.
bool LogQueue::Write(const LogLine& line) noexcept {
  bool accepted = true;
  try {
    const std::string text = formatter.Format(line);
    const spdlog::details::log_msg message(line.time, {}, "", SinkLevelOf(line.severity), text);
    for (const Output& output : outputs) {
      if (output.Wants(line.severity, line.audience)) accepted = WriteTo(output, message) && accepted;
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
  return false;  // for example a closed terminal: there is nowhere to report it
}

bool LogQueue::Flush(const Output& output) noexcept {
  try {
    output.sink->flush();
    return true;
  } catch (const std::exception& error) {
    ReportLoss(error.what());
    return false;
  }
}

void LogQueue::ReportLoss(const char* reason) noexcept {
  if (lossReported) return;
  lossReported = true;
  try {
    LogLine line;
    line.time = std::chrono::system_clock::now();
    line.severity = Severity::kProblem;
    line.text = fmt::format("[host] log lines are lost, counted as dropped: {}", reason);
    const std::string text = formatter.Format(line);
    console->log(spdlog::details::log_msg(line.time, {}, "", SinkLevelOf(line.severity), text));
  } catch (...) {  // Ignored: the lost lines are counted.
  }
}

}  // namespace fenlux::refhost
