// Counts what becomes of every notification. One short lock makes each snapshot a picture of a single moment; nothing
// slow ever happens under it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "refhost/emulator/emulator_totals.h"

namespace fenlux::refhost {

// Times in buckets that grow with their value: 32 for every doubling.
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
  // A notification goes to the module. Exactly one of the four ends follows.
  void Delivered(std::uint32_t code);
  void Answered(std::uint32_t verdict, std::chrono::nanoseconds latency);
  void UnansweredByDesign(std::chrono::nanoseconds latency);
  void Late();
  void Lost(UnjudgedCause cause);

  // A permission event was read from the kernel; KernelAnswered follows once.
  void KernelRead();
  void KernelAnswered(bool refused);
  // An event that was never delivered.
  void NotDelivered(UnjudgedCause cause);

  EmulatorTotals Snapshot() const;

 private:
  mutable std::mutex mutex;
  EmulatorTotals totals;  // latency is filled in by Snapshot
  LatencyHistogram latencies;
};

}  // namespace fenlux::refhost
