// A scoped performance measurement: one log line when the scope ends.
#pragma once

#include <memory>

namespace fenlux {

class CGlobalContext;
class CLog;
class CMeasurement;

// Measures the handling of one notification where the host's configuration asks for it. Never throws: a failure while
// it begins makes it inert, one while it ends loses the line. Delivery threads.
class CPerfScope {
 public:
  explicit CPerfScope(const std::shared_ptr<CGlobalContext>& context) noexcept;
  ~CPerfScope();
  CPerfScope(const CPerfScope&) = delete;
  CPerfScope& operator=(const CPerfScope&) = delete;

 private:
  std::shared_ptr<CMeasurement> measurement;  // empty: the scope is inert
  std::shared_ptr<CLog> log;
};

}  // namespace fenlux
