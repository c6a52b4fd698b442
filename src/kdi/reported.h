// The guard of the driver interface's operations that never throw.
#pragma once

#include <utility>

#include "common/exception_report.h"
#include "common/guarded.h"
#include "common/log_codes.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

template <class Body>
void CWinDriverInteract::Reported(const char* tag, Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    Quietly([&] { log->LogProblem(kLogCode, ReportCurrentException(tag)); });
  }
}

}  // namespace fenlux
