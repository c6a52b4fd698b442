// Registration of 10,000 monitored directories in one batch, beside the making, filling and handing over of its
// buffers.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/allocation_counter.h"
#include "bench/connected_interact.h"
#include "kdi/driver_records.h"

namespace fenlux::bench {
namespace {

constexpr int kPaths = 10'000;
constexpr int kObjectType = 1;

std::vector<std::string> Paths() {
  std::vector<std::string> paths;
  for (int index = 0; index < kPaths; ++index)
    paths.push_back("/var/tmp/fenlux-bench/monitored/" + std::to_string(index));
  return paths;
}

void RegisterModule(benchmark::State& state) {
  ConnectedInteract connected;
  const auto paths = Paths();
  for (auto _ : state) {
    state.PauseTiming();
    for (const auto& path : paths) connected.interact->AddMonitorObject(false, path.c_str(), kObjectType);
    state.ResumeTiming();
    connected.interact->SendMonitorObjects(kObjectType);
  }
}

void RegisterFloor(benchmark::State& state) {
  ConnectedInteract connected;
  std::vector<std::wstring> paths;
  for (const auto& path : Paths()) {
    std::wstring wide;
    paths.push_back(connected.host.utility()->ToWideString(wide, path));
  }
  const auto client = connected.host.PortClient();
  for (auto _ : state) {
    for (const auto& path : paths) {
      std::shared_ptr<CBuf> request;
      connected.host.utility()->CreateBuffer(request, true, records::kRequestSize, false);
      auto* const bytes = request->GetData() + offsetof(records::MonitorObjectRequest, path);
      connected.host.utility()->CopyToField(bytes, sizeof(records::MonitorObjectRequest::path), path);
      std::shared_ptr<CBuf> reply;
      client->Send(request, reply, true);
    }
  }
}

BENCHMARK(RegisterFloor)->Name("register 10000 paths/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(RegisterModule)->Name("register 10000 paths/module")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace fenlux::bench
