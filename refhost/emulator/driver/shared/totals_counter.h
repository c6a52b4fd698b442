// Counts the outcome of every notification. Threads count in separate parts, so they rarely wait for each other. A
// snapshot locks all parts, so it is consistent.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>

#include "common/mutex.h"
#include "common/thread_annotations.h"
#include "kdi/driver_records.h"
#include "refhost/emulator/driver/shared/latency_recorder.h"
#include "refhost/emulator/driver/shared/thread_part.h"
#include "refhost/emulator/emulator_totals.h"

namespace fenlux::refhost {

// A histogram of times whose buckets grow with the value: 32 per doubling.
class LatencyHistogram {
 public:
  void Add(std::chrono::nanoseconds latency);
  void Add(const LatencyHistogram& other);
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

// All operations: any thread. Only Snapshot throws: counting while a notification is handled needs no memory.
class TotalsCounter {
 public:
  // A notification goes to the module. Exactly one of the next four calls follows. If memory runs out for a new code,
  // counts it as code 0.
  void Delivered(std::uint32_t code) noexcept;
  // On the thread that called Delivered. `code` is the one passed to it; `verdict` is one that a reply may have.
  void Answered(std::uint32_t code, std::uint32_t verdict, std::chrono::nanoseconds latency) noexcept;
  void UnansweredByDesign(std::chrono::nanoseconds latency) noexcept;
  void Late() noexcept;
  void Lost(UnjudgedCause cause) noexcept;

  // A permission event was read from the kernel. Exactly one of the next two calls follows.
  void KernelRead() noexcept;
  void KernelAnswered(bool refused) noexcept;
  void KernelRefusedUnjudged() noexcept;
  // Counts an event that was not delivered, or was answered without a verdict. Late and Lost count their own causes.
  void Unjudged(UnjudgedCause cause) noexcept;

  // Clang's analysis does not follow locks in a container.
  EmulatorTotals Snapshot() const FENLUX_NO_THREAD_SAFETY_ANALYSIS;
  // Latencies in coarser buckets than those of Snapshot, for live views of the host. Takes no lock.
  LatencyRecorder& RecentLatencies() { return recent; }

 private:
  using VerdictCounts = std::array<std::uint64_t, records::kMaxVerdict + 1>;
  struct CodeCounts {
    std::uint64_t delivered = 0;
    VerdictCounts verdicts{};
  };

  // The counts of some threads. A notification may end on another thread, so a part alone need not add up, and what is
  // in flight may be below 0 there, modulo 2^64. A snapshot locks the parts in ascending order; nothing else locks two.
  struct Part {
    void AddTo(EmulatorTotals& sum, LatencyHistogram& latencySum) const FENLUX_REQUIRES(mutex);

    mutable Mutex mutex;
    EmulatorTotals totals FENLUX_GUARDED_BY(mutex);  // without codes, verdicts and latency
    std::map<std::uint32_t, CodeCounts> codes FENLUX_GUARDED_BY(mutex);
    CodeCounts withoutCode FENLUX_GUARDED_BY(mutex);
    LatencyHistogram latencies FENLUX_GUARDED_BY(mutex);
  };

  Part& Own() { return parts[PartOfThisThread()]; }

  LatencyRecorder recent;
  std::array<Part, kThreadParts> parts;
};

}  // namespace fenlux::refhost
