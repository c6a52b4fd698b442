// Counts what becomes of every notification. One lock makes each snapshot consistent; only counting and copying happens
// under it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "refhost/emulator/emulator_totals.h"

namespace fenlux::refhost {

// Times in buckets that grow with the value: 32 for every doubling.
class LatencyHistogram {
 public:
  void Add(std::chrono::nanoseconds latency);
  LatencySummary Summary() const;

 private:
  static constexpr unsigned kSubBits = 5;
  static constexpr std::size_t kBuckets = (64 - kSubBits + 1) << kSubBits;

  static std::size_t Bucket(std::uint64_t value);
  static std::uint64_t UpperEdge(std::size_t bucket);

  std::array<std::uint64_t, kBuckets> counts{};
  std::uint64_t total = 0;
  std::uint64_t max = 0;
};

// All operations: any thread.
class TotalsCounter {
 public:
  // A notification goes to the module. Exactly one of the next four calls follows.
  void Delivered(std::uint32_t code);
  void Answered(std::uint32_t verdict, std::chrono::nanoseconds latency);
  void UnansweredByDesign(std::chrono::nanoseconds latency);
  void Late();
  void Lost(UnjudgedCause cause);

  // A permission event was read from the kernel. One call of the next two follows.
  void KernelRead();
  void KernelAnswered(bool refused);
  void KernelRefusedUnjudged();
  // An event that was not delivered, or answered without a judgement. Late and Lost count their causes themselves.
  void Unjudged(UnjudgedCause cause);

  EmulatorTotals Snapshot() const;

 private:
  mutable Mutex mutex;
  EmulatorTotals totals FENLUX_GUARDED_BY(mutex);  // Snapshot fills in the latency
  LatencyHistogram latencies FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
