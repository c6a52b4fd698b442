// Delivery on two threads, compared with one: through the handler that a port client gets, and the host's part alone.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/unshared_host.h"
#include "tests/support/record_builders.h"

namespace fenlux::bench {
namespace {

UnsharedConnection& Connection() {
  static UnsharedConnection& connection = *new UnsharedConnection;  // its refresh thread never ends
  return connection;
}

testing::Bytes MessageOf(int process) {
  return testing::NotificationBuilder(4098).ProcessId(static_cast<std::uint64_t>(process)).Build();
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
  UnsharedHost& host = *Connection().host;
  const std::string narrow = "editor.exe report.docx";
  const std::wstring wide = L"C:\\Program Files\\Editor\\editor.exe";
  for (auto _ : state) {
    const auto cfg = host.GetCfg();
    benchmark::DoNotOptimize(cfg->IsMeasuringEnabled(0, 0));
    std::shared_ptr<CBuf> reply;
    host.CreateBuffer(reply, true, records::kReplyFixedSize, false);
    std::shared_ptr<CArpRecord> record;
    host.CreateRecord(record, 0);
    record->SetSource(kDriverEventSource);
    record->SetCategory(kEventCategory1);
    CArpProcess& process = *record->ProcessPart();
    process.SetProcessId(1);
    benchmark::DoNotOptimize(process.GetProcessId());
    benchmark::DoNotOptimize(host.IsCacheBypassed());
    process.SetSessionId(1);
    process.SetNarrowInfo(narrow);
    record->SetWideInfo(wide);
    benchmark::DoNotOptimize(host.IsIdentityTextAdded());
    record->SetEventType(0x4005);
    benchmark::DoNotOptimize(host.Evaluate(record));
    benchmark::DoNotOptimize(reply->GetData());
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(Deliver, different, false)->Name("deliver, different processes")->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(Deliver, same, true)->Name("deliver, same process")->ThreadRange(1, 2)->UseRealTime();
BENCHMARK(HostCallsAlone)->Name("deliver, host calls alone")->ThreadRange(1, 2)->UseRealTime();

}  // namespace
}  // namespace fenlux::bench
