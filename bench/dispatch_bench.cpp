// Dispatch of one notification on one delivery thread, compared with the host calls that it requires.
#include <benchmark/benchmark.h>

#include "bench/allocation_counter.h"
#include "bench/dispatch_cases.h"

namespace fenlux::bench {
namespace {

template <class Body>
void Measure(benchmark::State& state, Body&& body) {
  benchmark::DoNotOptimize(body());  // fills the process cache
  const std::uint64_t before = AllocationsOfThisThread();
  for (auto _ : state) benchmark::DoNotOptimize(body());
  state.counters["allocations"] = benchmark::Counter(static_cast<double>(AllocationsOfThisThread() - before) /
                                                     static_cast<double>(state.iterations()));
}

void MeasureModule(benchmark::State& state, const testing::Bytes& message) {
  ConnectedInteract connected;
  Measure(state, [&] {
    return connected.interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
  });
}

void MeasureFloor(benchmark::State& state, bool twoPaths) {
  ConnectedInteract connected;
  Floor floor(connected.host.Context());
  if (twoPaths) floor.UseTwoPaths();
  Measure(state, [&] { return floor.Run(); });
}

BENCHMARK_CAPTURE(MeasureFloor, dispatch_path_less, false)->Name("dispatch path-less/floor");
BENCHMARK_CAPTURE(MeasureModule, dispatch_path_less, PathLess())->Name("dispatch path-less/module");
BENCHMARK_CAPTURE(MeasureFloor, dispatch_two_paths, true)->Name("dispatch two paths/floor");
BENCHMARK_CAPTURE(MeasureModule, dispatch_two_paths, TwoPaths())->Name("dispatch two paths/module");

}  // namespace
}  // namespace fenlux::bench
