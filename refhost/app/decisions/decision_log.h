// The decision log: one line of the host's log for every record of interest.
//
// Lines go through the log's bounded queue, whose writer formats them. The console shows a limited number for each
// rule, then how many it left out. The file and JSON contain all lines except those that the totals count as lost.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/app/decisions/line_limit.h"
#include "refhost/services/events/decision_sink.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {

// Any thread.
class DecisionLog final : public DecisionObserver {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // With `limitConsole`, the console shows a limited number of lines for each rule (see LineLimit).
  DecisionLog(std::shared_ptr<LogService> hostLog, bool limitConsole)
      : log(std::move(hostLog)), limited(limitConsole) {}

  void Observe(const DecisionRecord& record) noexcept override;
  // Writes to the console how many lines it did not show in the intervals that have ended by `now`. Throws
  // std::bad_alloc.
  void ReportHidden(TimePoint now);
  // Records that the console did not show.
  std::uint64_t NotOnConsole() const { return notOnConsole.load(); }

 private:
  // The rules, and the rule that decided. Holding the rules keeps the rule valid; null rules: nothing was judged.
  using Decider = std::pair<std::shared_ptr<const RulesInForce>, const Rule*>;

  bool ShownOnConsole(const DecisionRecord& record);

  const std::shared_ptr<LogService> log;
  const bool limited;
  std::atomic<std::uint64_t> notOnConsole{0};
  Mutex mutex;
  LineLimit<Decider> limit FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
