// The host's log. The module chooses the operation for a line; the host decides the severity of each operation.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux {

// Every operation takes a log code (0x10003, or 0x10034 for measurements) and one complete line without a line end.
// LogProblem, LogDetail and, while notifications are measured, LogEvent are called on delivery threads while an
// operation is blocked in the kernel, so they should not block. If a log call throws while a reply is pending, the
// module drops the line and still replies. Any thread, concurrently.
class CLog {
 public:
  // The connection keeps failing.
  virtual void LogAlert(std::uint32_t code, const std::string& line) = 0;
  // Exception reports, skipped policy objects, failed registrations.
  virtual void LogProblem(std::uint32_t code, const std::string& line) = 0;
  // The driver's version differs from the module's.
  virtual void LogWarning(std::uint32_t code, const std::string& line) = 0;
  // The monitoring policy is empty.
  virtual void LogNotice(std::uint32_t code, const std::string& line) = 0;
  // Start and end of a connection, versions, registered paths, measurements.
  virtual void LogEvent(std::uint32_t code, const std::string& line) = 0;
  // Operations that passed without being judged.
  virtual void LogDetail(std::uint32_t code, const std::string& line) = 0;

 protected:
  ~CLog() = default;
};

}  // namespace fenlux
