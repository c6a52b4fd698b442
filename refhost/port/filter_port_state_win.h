// The state that all connections of one FilterPort share: its settings, its totals, and whether it is stopped.
#pragma once

#include <string>
#include <utility>

#include "common/mutex.h"
#include "refhost/port/filter_functions_win.h"
#include "refhost/port/filter_port_client.h"

namespace fenlux::refhost {

// Any thread.
class FilterPortState {
 public:
  FilterPortState(FilterFunctions filterFunctions, FilterPortSettings portSettings, FilterPort::LogHook logHook)
      : functions(filterFunctions), settings(std::move(portSettings)), log(std::move(logHook)) {}

  const FilterFunctions& Functions() const { return functions; }
  const FilterPortSettings& Settings() const { return settings; }
  void Log(Severity severity, const std::string& line) const {
    if (log) log(severity, "[driver port] " + line);
  }

  void Count(std::uint64_t FilterPortTotals::*count) {
    const MutexLock lock(mutex);
    ++(totals.*count);
  }
  void CountReceived() {
    const MutexLock lock(mutex);
    ++totals.received;
    ++totals.inFlight;
  }
  // Counts the outcome of a received message.
  void CountOutcome(std::uint64_t FilterPortTotals::*count) {
    const MutexLock lock(mutex);
    ++(totals.*count);
    --totals.inFlight;
  }
  FilterPortTotals Totals() const {
    const MutexLock lock(mutex);
    return totals;
  }

  void Stop() {
    const MutexLock lock(mutex);
    stopped = true;
  }
  bool Stopped() const {
    const MutexLock lock(mutex);
    return stopped;
  }

 private:
  const FilterFunctions functions;
  const FilterPortSettings settings;
  const FilterPort::LogHook log;
  mutable Mutex mutex;
  FilterPortTotals totals FENLUX_GUARDED_BY(mutex);
  bool stopped FENLUX_GUARDED_BY(mutex) = false;
};

}  // namespace fenlux::refhost
