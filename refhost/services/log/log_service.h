// The host's log: lines of the module and of the host, on the console and in a file, written by a thread of their own.
//
// Nobody who logs ever waits for the console, the file or another line's writing: a line goes to a queue of limited
// length, and one that does not fit is counted and dropped. The totals say how many.
#pragma once

#include <array>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/log.h"
#include "refhost/base/severity.h"

namespace fenlux::refhost {

class ConfigTable;

std::string_view SeverityName(Severity severity);

struct LogSettings {
  // Each output takes lines of its severity and above; a value beyond kAlert takes none.
  std::size_t consoleLeast = static_cast<std::size_t>(Severity::kEvent);
  std::size_t fileLeast = static_cast<std::size_t>(Severity::kDetail);
  boost::filesystem::path file;  // empty: none; otherwise lines are added at its end
  bool json = false;             // one object a line instead of text
  std::size_t queueLines = 8192;

  bool operator==(const LogSettings&) const = default;
};

// Reads the [log] table.
LogSettings ReadLogSettings(const ConfigTable& table);

// What became of the lines. Every line that an output wanted was written or dropped, or waits in the queue.
struct LogTotals {
  std::array<std::uint64_t, kSeverities> bySeverity{};  // everything that was logged
  std::uint64_t unwanted = 0;                           // too little severe for every output
  std::uint64_t written = 0;
  std::uint64_t dropped = 0;
  std::uint64_t waiting = 0;

  std::uint64_t Of(Severity severity) const { return bySeverity[static_cast<std::size_t>(severity)]; }
};

// All operations: any thread, several at once; none throws or waits, save where it says so.
class LogService final : public CLog {
 public:
  // Opens the outputs and starts the writer. Throws std::runtime_error where the file cannot be opened.
  explicit LogService(const LogSettings& settings);
  // Writes what waits and ends the writer.
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
  // A line of the host's own.
  void Write(Severity severity, std::string_view line) { Write(severity, 0, line, 0); }

  // Waits until everything that was logged before the call is written, or the time has passed; says which.
  bool Drain(std::chrono::milliseconds limit);
  LogTotals Totals() const;

 private:
  class Queue;
  std::shared_ptr<Queue> queue;
};

}  // namespace fenlux::refhost
