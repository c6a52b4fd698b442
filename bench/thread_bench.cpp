// Delivery on two threads, compared with one: through the handler that a port client gets, and the host's part alone.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench/dispatch_cases.h"
#include "bench/unshared_host.h"

namespace fenlux::bench {
namespace {

UnsharedConnection& Connection() {
  static UnsharedConnection& connection = *new UnsharedConnection;  // its threads never end
  return connection;
}

testing::Bytes MessageOf(int process) {
  return testing::NotificationBuilder(kCode).ProcessId(static_cast<std::uint64_t>(process)).Build();
}

void Deliver(benchmark::State& state, bool sameProcess) {
  const NotificationHandler& handler = Connection().host->handler;
  const testing::Bytes message = MessageOf(1 + (sameProcess ? 0 : state.thread_index()));
  const auto size = static_cast<std::uint32_t>(message.size());
  benchmark::DoNotOptimize(handler(message.data(), size));  // fills the process cache
  for (auto _ : state) benchmark::DoNotOptimize(handler(message.data(), size));
  state.SetItemsProcessed(state.iterations());
}

// What the machine allows: the host calls of a notification, without the module.
void HostCallsAlone(benchmark::State& state) {
  Floor floor(Connection().host);
  for (auto _ : state) benchmark::DoNotOptimize(floor.Run());
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(Deliver, different, false)->Name("deliver, different processes")->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(Deliver, same, true)->Name("deliver, same process")->ThreadRange(1, 2)->UseRealTime();
BENCHMARK(HostCallsAlone)->Name("deliver, host calls alone")->ThreadRange(1, 2)->UseRealTime();

}  // namespace
}  // namespace fenlux::bench
