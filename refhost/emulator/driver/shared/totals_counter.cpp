// Counts, checks that the counts add up, and computes latency quantiles.
#include "refhost/emulator/driver/shared/totals_counter.h"

#include <algorithm>
#include <bit>
#include <new>
#include <numeric>
#include <optional>

namespace fenlux::refhost {
namespace {

// Every plain count.
constexpr std::uint64_t EmulatorTotals::*kCounts[] = {&EmulatorTotals::delivered,
                                                      &EmulatorTotals::answered,
                                                      &EmulatorTotals::unansweredByDesign,
                                                      &EmulatorTotals::late,
                                                      &EmulatorTotals::lost,
                                                      &EmulatorTotals::inFlight,
                                                      &EmulatorTotals::kernelEvents,
                                                      &EmulatorTotals::kernelRefused,
                                                      &EmulatorTotals::kernelAllowed,
                                                      &EmulatorTotals::kernelRefusedUnjudged,
                                                      &EmulatorTotals::kernelInFlight};

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

void LatencyHistogram::Add(const LatencyHistogram& other) {
  if (other.total == 0) return;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) counts[bucket] += other.counts[bucket];
  total += other.total;
  max = std::max(max, other.max);
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
  Part& part = Own();
  const MutexLock lock(part.mutex);
  ++part.totals.delivered;
  ++part.totals.inFlight;
  try {
    ++part.codes[code].delivered;
  } catch (const std::bad_alloc&) {
    ++part.withoutCode.delivered;
  }
}

void TotalsCounter::Answered(std::uint32_t code, std::uint32_t verdict, std::chrono::nanoseconds latency) noexcept {
  recent.Add(latency);
  Part& part = Own();
  const MutexLock lock(part.mutex);
  --part.totals.inFlight;
  ++part.totals.answered;
  const auto counts = part.codes.find(code);
  VerdictCounts& verdicts = counts == part.codes.end() ? part.withoutCode.verdicts : counts->second.verdicts;
  ++verdicts[std::min<std::size_t>(verdict, records::kMaxVerdict)];
  part.latencies.Add(latency);
}

void TotalsCounter::UnansweredByDesign(std::chrono::nanoseconds latency) noexcept {
  recent.Add(latency);
  Part& part = Own();
  const MutexLock lock(part.mutex);
  --part.totals.inFlight;
  ++part.totals.unansweredByDesign;
  part.latencies.Add(latency);
}

void TotalsCounter::Late() noexcept {
  Part& part = Own();
  const MutexLock lock(part.mutex);
  --part.totals.inFlight;
  ++part.totals.late;
  ++Cause(part.totals, UnjudgedCause::kLate);
}

void TotalsCounter::Lost(UnjudgedCause cause) noexcept {
  Part& part = Own();
  const MutexLock lock(part.mutex);
  --part.totals.inFlight;
  ++part.totals.lost;
  ++Cause(part.totals, cause);
}

void TotalsCounter::KernelRead() noexcept {
  Part& part = Own();
  const MutexLock lock(part.mutex);
  ++part.totals.kernelEvents;
  ++part.totals.kernelInFlight;
}

void TotalsCounter::KernelAnswered(bool refused) noexcept {
  Part& part = Own();
  const MutexLock lock(part.mutex);
  --part.totals.kernelInFlight;
  ++(refused ? part.totals.kernelRefused : part.totals.kernelAllowed);
}

void TotalsCounter::KernelRefusedUnjudged() noexcept {
  Part& part = Own();
  const MutexLock lock(part.mutex);
  --part.totals.kernelInFlight;
  ++part.totals.kernelRefused;
  ++part.totals.kernelRefusedUnjudged;
}

void TotalsCounter::Unjudged(UnjudgedCause cause) noexcept {
  Part& part = Own();
  const MutexLock lock(part.mutex);
  ++Cause(part.totals, cause);
}

void TotalsCounter::Part::AddTo(EmulatorTotals& sum, LatencyHistogram& latencySum) const {
  for (std::uint64_t EmulatorTotals::*const count : kCounts) sum.*count += totals.*count;
  for (std::size_t cause = 0; cause < totals.unjudged.size(); ++cause) sum.unjudged[cause] += totals.unjudged[cause];
  const auto add = [&sum](std::uint32_t code, const CodeCounts& counts) {
    if (counts.delivered > 0) sum.byCode[code] += counts.delivered;
    for (std::uint32_t verdict = 0; verdict < counts.verdicts.size(); ++verdict) {
      if (counts.verdicts[verdict] == 0) continue;
      sum.byVerdict[verdict] += counts.verdicts[verdict];
      sum.byCodeAndVerdict[code][verdict] += counts.verdicts[verdict];
    }
  };
  for (const auto& [code, counts] : codes) add(code, counts);
  add(0, withoutCode);
  latencySum.Add(latencies);
}

EmulatorTotals TotalsCounter::Snapshot() const {
  EmulatorTotals snapshot;
  LatencyHistogram latencies;
  {
    std::array<std::optional<MutexLock>, kThreadParts> locks;
    for (std::size_t index = 0; index < parts.size(); ++index) locks[index].emplace(parts[index].mutex);
    for (const Part& part : parts) part.AddTo(snapshot, latencies);
  }
  snapshot.latency = latencies.Summary();
  return snapshot;
}

}  // namespace fenlux::refhost
