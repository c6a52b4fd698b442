// The bounded queue between the logging threads and the outputs, and the writer that drains it.
//
// The lock is held to add one line or to take all of them, never during a write. The writer thread shares ownership of
// the queue, so that the process can exit while an output is stuck.
#pragma once

#include <spdlog/sinks/sink.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "common/mutex.h"
#include "refhost/services/log/log_file.h"
#include "refhost/services/log/log_line.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {

class LogFileSink;

// The parts of a line.
struct LogEntry {
  Severity severity = Severity::kDetail;
  std::uint32_t code = 0;
  std::uint32_t category = 0;
  std::string_view text;                      // empty if there is content
  std::shared_ptr<const LogContent> content;  // may be null
  LogAudience audience = LogAudience::kAll;
};

// Any thread, unless an operation says otherwise.
class LogQueue {
 public:
  // Opens the outputs. Uses `file` unless it is null. Throws std::runtime_error if the log file cannot be opened.
  explicit LogQueue(const LogSettings& settings, LogFile file = nullptr);
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  void Put(const LogEntry& entry) noexcept;
  // See LogService.
  void CountLostContent(Severity severity) noexcept;
  // Waits until the queue is empty and everything taken from it is written; false if `timeout` passes first.
  bool Drain(std::chrono::milliseconds timeout);
  // Lets the writer finish. Later lines are dropped.
  void Stop();
  // Waits until the writer has finished; false if `timeout` passes first.
  bool WaitStopped(std::chrono::milliseconds timeout);
  LogTotals Totals() const;
  // Makes the writer use this file from its next batch of lines on, and close the previous one.
  void SwitchFile(LogFile file);

  // The body of the writer thread.
  void RunWriter();

 private:
  struct Output {
    std::shared_ptr<spdlog::sinks::sink> sink;
    std::size_t level;
    std::FILE* stream;  // checked for errors that the sink does not report; null: it reports all
    LogAudience audience;

    bool Wants(Severity severity, LogAudience lineAudience) const {
      return static_cast<std::size_t>(severity) >= level &&
             (lineAudience == LogAudience::kAll || lineAudience == audience);
    }
  };

  // Starts to write to a file from SwitchFile.
  void UseFile(LogFile file);
  void AddOutput(Output output);
  bool SomeOutputWants(const LogEntry& entry) const noexcept;
  // Writes the lines and marks those that are lost: a line counts as written only if every output accepted it. If a
  // flush fails, the whole batch is lost, because it is unknown how much of it was written.
  void WriteBatch(std::vector<LogLine>& batch) noexcept;
  bool Write(const LogLine& line) noexcept;
  bool WriteTo(const Output& output, const spdlog::details::log_msg& message) noexcept;
  bool Flush(const Output& output) noexcept;
  // Reports on the console, once, that lines are lost.
  void ReportLoss(const char* reason) noexcept;

  const std::size_t maxLines;
  std::vector<Output> outputs;                   // fixed at construction
  std::shared_ptr<spdlog::sinks::sink> console;  // set even if no line goes there, for ReportLoss
  std::shared_ptr<LogFileSink> fileSink;         // null: no file
  bool lossReported = false;                     // writer only
  LogLineFormatter formatter;                    // writer only
  std::array<std::atomic<std::uint64_t>, kSeverities> counts{};
  // Counts of all lines, or of those with content.
  struct Counts {
    std::atomic<std::uint64_t> logged{0};
    std::atomic<std::uint64_t> unwanted{0};
    std::atomic<std::uint64_t> written{0};
    std::atomic<std::uint64_t> dropped{0};
  };
  template <typename Line>
  void Count(std::atomic<std::uint64_t> Counts::*count, const Line& line) noexcept;

  Counts all;
  Counts withContent;

  mutable Mutex mutex;
  std::condition_variable added;    // a line, or a stop
  std::condition_variable drained;  // the writer wrote what it took, or finished
  std::vector<LogLine> lines FENLUX_GUARDED_BY(mutex);
  LogFile nextFile FENLUX_GUARDED_BY(mutex);  // null: none pending
  std::size_t bytes FENLUX_GUARDED_BY(mutex) = 0;
  std::size_t writing FENLUX_GUARDED_BY(mutex) = 0;
  bool stopping FENLUX_GUARDED_BY(mutex) = false;
  bool stopped FENLUX_GUARDED_BY(mutex) = false;
};

}  // namespace fenlux::refhost
