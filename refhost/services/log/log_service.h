// Asynchronous log of the host and the module, to the console and a file.
//
// Logging never blocks: lines go to a bounded queue that one writer thread drains. Lines that do not fit are dropped
// and counted.
#pragma once

#include <array>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "host/log.h"
#include "refhost/base/severity.h"
#include "refhost/services/log/log_content.h"

namespace fenlux::refhost {

class ConfigTable;
class LogQueue;

std::string_view SeverityName(Severity severity);

// Whether severities are colored on the console.
enum class LogColors : std::size_t { kIfTerminal, kAlways, kNever };

struct LogSettings {
  // Each output gets lines of its level and above; kSeverities turns the output off.
  std::size_t consoleLevel = static_cast<std::size_t>(Severity::kEvent);
  std::size_t fileLevel = static_cast<std::size_t>(Severity::kDetail);
  boost::filesystem::path file;  // empty: none; otherwise lines are appended
  bool json = false;             // one object per line instead of text
  std::size_t queueLines = 8192;
  LogColors colors = LogColors::kIfTerminal;

  bool operator==(const LogSettings&) const = default;
};

// Reads the [log] table.
LogSettings ReadLogSettings(const ConfigTable& table);

// Counts of lines. Every line that an output should get is written, dropped, or waiting.
struct LogTotals {
  // Those of the lines that have content: logged = written + dropped + unwanted + Waiting().
  struct Content {
    std::uint64_t logged = 0;
    std::uint64_t unwanted = 0;
    std::uint64_t written = 0;
    std::uint64_t dropped = 0;

    std::uint64_t Waiting() const { return logged - unwanted - written - dropped; }
  };

  std::array<std::uint64_t, kSeverities> bySeverity{};  // all lines logged
  std::uint64_t unwanted = 0;                           // below every output's threshold
  std::uint64_t written = 0;
  std::uint64_t dropped = 0;
  std::uint64_t waiting = 0;
  Content content;

  std::uint64_t Of(Severity severity) const { return bySeverity[static_cast<std::size_t>(severity)]; }
};

// Any thread. No operation throws or blocks unless it says so.
class LogService final : public CLog {
 public:
  // Opens the outputs and starts the writer. Uses `openedFile`, unless it is null, as the settings' file. Throws
  // std::runtime_error if the file cannot be opened or the writer cannot be started.
  explicit LogService(const LogSettings& settings, std::shared_ptr<std::FILE> openedFile = nullptr);
  // Writes the waiting lines and stops the writer, but waits only a few seconds for a stuck output.
  ~LogService();
  LogService(const LogService&) = delete;
  LogService& operator=(const LogService&) = delete;

  void LogAlert(std::uint32_t code, const std::string& line) override;
  void LogProblem(std::uint32_t code, const std::string& line) override;
  void LogWarning(std::uint32_t code, const std::string& line) override;
  void LogNotice(std::uint32_t code, const std::string& line) override;
  void LogEvent(std::uint32_t code, const std::string& line) override;
  void LogDetail(std::uint32_t code, const std::string& line) override;

  // A line with a category (0: none).
  void Write(Severity severity, std::uint32_t code, std::string_view line, std::uint32_t category);
  // A line of the host.
  void Write(Severity severity, std::string_view line, LogAudience audience = LogAudience::kAll);
  // A line that the writer formats from its content.
  void Write(Severity severity, std::shared_ptr<const LogContent> content, LogAudience audience);
  // Counts a line with content as dropped, because it could not be created for lack of memory.
  void CountLostContent(Severity severity);

  // Waits until everything logged before the call is written; false if `timeout` passes first.
  bool Drain(std::chrono::milliseconds timeout);
  LogTotals Totals() const;

  // Writes to this file from now on and closes the previous one. Ignored if the settings name no file.
  void SwitchFile(std::shared_ptr<std::FILE> opened);

 private:
  const std::shared_ptr<LogQueue> queue;
};

}  // namespace fenlux::refhost
