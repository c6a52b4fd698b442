// Counts, checks that the counts add up, and computes latency quantiles.
#include "refhost/emulator/driver/shared/totals_counter.h"

#include <algorithm>
#include <bit>
#include <new>
#include <numeric>

namespace fenlux::refhost {
namespace {

std::uint64_t& Cause(EmulatorTotals& totals, UnjudgedCause cause) {
  return totals.unjudged[static_cast<std::size_t>(cause)];
}

std::uint64_t Sum(const std::map<std::uint32_t, std::uint64_t>& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0},
                         [](std::uint64_t sum, const auto& entry) { return sum + entry.second; });
}

}  // namespace

bool EmulatorTotals::AddsUp() const {
  const std::uint64_t lostByCause =
      std::accumulate(kLostCauses.begin(), kLostCauses.end(), std::uint64_t{0},
                      [this](std::uint64_t sum, UnjudgedCause cause) { return sum + Unjudged(cause); });
  return delivered == answered + unansweredByDesign + late + lost + inFlight && delivered == Sum(byCode) &&
         answered == Sum(byVerdict) && late == Unjudged(UnjudgedCause::kLate) && lost == lostByCause &&
         latency.count == answered + unansweredByDesign &&
         kernelEvents == kernelRefused + kernelAllowed + kernelInFlight && kernelRefusedUnjudged <= kernelRefused &&
         kernelRefusedUnjudged <= std::accumulate(unjudged.begin(), unjudged.end(), std::uint64_t{0});
}

std::size_t LatencyHistogram::Bucket(std::uint64_t value) {
  if (value < (1u << kSubBits)) return static_cast<std::size_t>(value);
  const auto exponent = static_cast<unsigned>(std::bit_width(value)) - 1;
  const unsigned shift = exponent - kSubBits;
  const std::uint64_t sub = (value >> shift) - (1u << kSubBits);
  return (static_cast<std::size_t>(shift + 1) << kSubBits) + static_cast<std::size_t>(sub);
}

std::uint64_t LatencyHistogram::UpperEdge(std::size_t bucket) {
  const std::size_t group = bucket >> kSubBits;
  const std::uint64_t sub = bucket & ((1u << kSubBits) - 1);
  if (group == 0) return sub;
  const std::size_t shift = group - 1;
  return (((sub + (1u << kSubBits)) + 1) << shift) - 1;
}

void LatencyHistogram::Add(std::chrono::nanoseconds latency) {
  const auto value = static_cast<std::uint64_t>(std::max<std::chrono::nanoseconds::rep>(latency.count(), 0));
  ++counts[Bucket(value)];
  ++total;
  max = std::max(max, value);
}

LatencySummary LatencyHistogram::Summary() const {
  LatencySummary summary;
  summary.count = total;
  if (total == 0) return summary;
  const auto quantile = [this](std::uint64_t percent) {
    const std::uint64_t rank = std::max<std::uint64_t>(1, (total * percent + 99) / 100);
    std::uint64_t seen = 0;
    std::size_t bucket = 0;
    for (; bucket < kBuckets; ++bucket) {
      seen += counts[bucket];
      if (seen >= rank) break;
    }
    return std::chrono::nanoseconds(std::min(UpperEdge(bucket), max));
  };
  summary.p50 = quantile(50);
  summary.p95 = quantile(95);
  summary.p99 = quantile(99);
  summary.max = std::chrono::nanoseconds(max);
  return summary;
}

void TotalsCounter::Delivered(std::uint32_t code) noexcept {
  const MutexLock lock(mutex);
  ++totals.delivered;
  ++totals.inFlight;
  try {
    ++codes[code].delivered;
  } catch (const std::bad_alloc&) {
    ++withoutCode.delivered;
  }
}

void TotalsCounter::Answered(std::uint32_t code, std::uint32_t verdict, std::chrono::nanoseconds latency) noexcept {
  recent.Add(latency);
  const MutexLock lock(mutex);
  --totals.inFlight;
  ++totals.answered;
  const auto counts = codes.find(code);
  VerdictCounts& verdicts = counts == codes.end() ? withoutCode.verdicts : counts->second.verdicts;
  ++verdicts[std::min<std::size_t>(verdict, records::kMaxVerdict)];
  latencies.Add(latency);
}

void TotalsCounter::UnansweredByDesign(std::chrono::nanoseconds latency) noexcept {
  recent.Add(latency);
  const MutexLock lock(mutex);
  --totals.inFlight;
  ++totals.unansweredByDesign;
  latencies.Add(latency);
}

void TotalsCounter::Late() noexcept {
  const MutexLock lock(mutex);
  --totals.inFlight;
  ++totals.late;
  ++Cause(totals, UnjudgedCause::kLate);
}

void TotalsCounter::Lost(UnjudgedCause cause) noexcept {
  const MutexLock lock(mutex);
  --totals.inFlight;
  ++totals.lost;
  ++Cause(totals, cause);
}

void TotalsCounter::KernelRead() noexcept {
  const MutexLock lock(mutex);
  ++totals.kernelEvents;
  ++totals.kernelInFlight;
}

void TotalsCounter::KernelAnswered(bool refused) noexcept {
  const MutexLock lock(mutex);
  --totals.kernelInFlight;
  ++(refused ? totals.kernelRefused : totals.kernelAllowed);
}

void TotalsCounter::KernelRefusedUnjudged() noexcept {
  const MutexLock lock(mutex);
  --totals.kernelInFlight;
  ++totals.kernelRefused;
  ++totals.kernelRefusedUnjudged;
}

void TotalsCounter::Unjudged(UnjudgedCause cause) noexcept {
  const MutexLock lock(mutex);
  ++Cause(totals, cause);
}

EmulatorTotals TotalsCounter::Snapshot() const {
  EmulatorTotals snapshot;
  LatencyHistogram latencyCounts;
  {
    const MutexLock lock(mutex);
    snapshot = totals;
    const auto add = [&snapshot](std::uint32_t code, const CodeCounts& counts) {
      if (counts.delivered > 0) snapshot.byCode[code] += counts.delivered;
      for (std::uint32_t verdict = 0; verdict < counts.verdicts.size(); ++verdict) {
        if (counts.verdicts[verdict] == 0) continue;
        snapshot.byVerdict[verdict] += counts.verdicts[verdict];
        snapshot.byCodeAndVerdict[code][verdict] += counts.verdicts[verdict];
      }
    };
    for (const auto& [code, counts] : codes) add(code, counts);
    add(0, withoutCode);
    latencyCounts = latencies;
  }
  snapshot.latency = latencyCounts.Summary();
  return snapshot;
}

}  // namespace fenlux::refhost
