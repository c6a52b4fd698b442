// The measurement starts with the scope and is logged at its end.
#include "kdi/perf_scope.h"

#include <string>

#include "common/guarded.h"
#include "common/log_codes.h"
#include "host/cfg.h"
#include "host/global_context.h"
#include "host/log.h"
#include "host/utility.h"

namespace fenlux {

CPerfScope::CPerfScope(const std::shared_ptr<CGlobalContext>& context) noexcept {
  Quietly([&] {
    const auto cfg = context->GetCfg();
    if (!cfg || !cfg->IsMeasuringEnabled(0, 0)) return;
    const auto utility = context->GetUtility();
    if (!utility) return;
    std::shared_ptr<CMeasurement> created;
    utility->CreateMeasurement(created);
    log = context->GetLog();
    measurement = std::move(created);
  });
}

CPerfScope::~CPerfScope() {
  if (!measurement || !log) return;
  Quietly([this] {
    std::string result;
    measurement->GetResultText(result);
    log->LogEvent(kMeasurementLogCode, "[PFM final]=" + result);
  });
}

}  // namespace fenlux
