// The host's log. The host decides the severity of each operation; the module decides which operation a line takes.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux {

// Every operation takes a log code (0x10003 for all lines but the performance line, which carries 0x10034) and one
// complete line without a line end. All of them: any thread, several at once. LogProblem, LogDetail and, while
// notifications are measured, LogEvent are called on delivery threads while the kernel waits for a verdict, so they
// should not block. An exception is survived by the module wherever a verdict depends on it; the line is then lost.
class CLog {
 public:
  // The connection has been failing for a long time.
  virtual void LogAlert(std::uint32_t code, const std::string& line) = 0;
  // Exception reports, skipped policy objects, refused work.
  virtual void LogProblem(std::uint32_t code, const std::string& line) = 0;
  // The driver's version differs from the module's.
  virtual void LogWarning(std::uint32_t code, const std::string& line) = 0;
  // The monitoring policy is empty.
  virtual void LogNotice(std::uint32_t code, const std::string& line) = 0;
  // The connection's milestones, versions, registered paths, measurements.
  virtual void LogEvent(std::uint32_t code, const std::string& line) = 0;
  // Operations that were passed without being judged.
  virtual void LogDetail(std::uint32_t code, const std::string& line) = 0;

 protected:
  ~CLog() = default;
};

}  // namespace fenlux
