// Scoped performance measurement: logs one line when the scope ends.
#pragma once

#include <memory>

namespace fenlux {

class CGlobalContext;
class CLog;
class CMeasurement;

// Measures the handling of one notification if CCfg::IsMeasuringEnabled says so. Never throws: a failure in the
// constructor makes the scope inert, one in the destructor loses the line. Delivery threads.
class CPerfScope {
 public:
  explicit CPerfScope(const std::shared_ptr<CGlobalContext>& context) noexcept;
  ~CPerfScope();
  CPerfScope(const CPerfScope&) = delete;
  CPerfScope& operator=(const CPerfScope&) = delete;

 private:
  std::shared_ptr<CMeasurement> measurement;  // empty if the scope is inert
  std::shared_ptr<CLog> log;
};

}  // namespace fenlux
