// Registration of 10,000 monitored directories in one batch, compared with creating, filling and sending its buffers.
#include <benchmark/benchmark.h>

#include <array>
#include <boost/filesystem/operations.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/allocation_counter.h"
#include "bench/connected_interact.h"
#include "common/log_codes.h"
#include "kdi/driver_records.h"

namespace fenlux::bench {
namespace {

constexpr int kPaths = 10'000;
constexpr int kObjectType = records::kObjectType1;

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

// Creates a buffer for one object, copies the path into it, and passes it to a port client that does nothing.
void SendBuffer(ConnectedInteract& connected, CPortClient& client, const std::wstring& path) {
  std::shared_ptr<CBuf> request;
  connected.host.Utility()->CreateBuffer(request, true, records::kRequestSize, false);
  auto* const bytes = request->GetData() + offsetof(records::MonitorObjectRequest, path);
  connected.host.Utility()->CopyToField(bytes, sizeof(records::MonitorObjectRequest::path), path);
  std::shared_ptr<CBuf> reply;
  client.Send(request, reply, true);
}

std::vector<std::wstring> WidePaths(CUtility& utility) {
  std::vector<std::wstring> paths;
  for (const auto& path : Paths()) {
    std::wstring wide;
    paths.push_back(utility.ToWideString(wide, path));
  }
  return paths;
}

void RegisterFloor(benchmark::State& state) {
  ConnectedInteract connected;
  const auto paths = WidePaths(*connected.host.Utility());
  const auto client = connected.host.PortClient();
  for (auto _ : state) {
    for (const auto& path : paths) SendBuffer(connected, *client, path);
  }
}

// The floor plus the file status that every request contains.
void RegisterFloorWithStatus(benchmark::State& state) {
  ConnectedInteract connected;
  const auto paths = WidePaths(*connected.host.Utility());
  const auto narrowPaths = Paths();
  const auto client = connected.host.PortClient();
  for (auto _ : state) {
    for (std::size_t index = 0; index < paths.size(); ++index) {
      boost::system::error_code error;
      benchmark::DoNotOptimize(boost::filesystem::status(narrowPaths[index], error));
      SendBuffer(connected, *client, paths[index]);
    }
  }
}

// Every host call that the contract requires for a path that does not exist: also the copy of the root name, the narrow
// text for the log, and the line in the log.
void RegisterFloorWithAllCalls(benchmark::State& state) {
  ConnectedInteract connected;
  CUtility& utility = *connected.host.Utility();
  const auto paths = WidePaths(utility);
  const auto narrowPaths = Paths();
  const auto client = connected.host.PortClient();
  const auto log = connected.host.Context()->GetLog();
  const std::wstring noRootName;
  for (auto _ : state) {
    for (std::size_t index = 0; index < paths.size(); ++index) {
      boost::system::error_code error;
      benchmark::DoNotOptimize(boost::filesystem::status(narrowPaths[index], error));
      std::array<std::uint8_t, sizeof(records::MonitorObjectRequest::rootName)> rootName;
      utility.CopyToField(rootName.data(), static_cast<std::uint32_t>(rootName.size()), noRootName);
      benchmark::DoNotOptimize(rootName);
      SendBuffer(connected, *client, paths[index]);
      std::string narrow;
      utility.ToNarrowString(narrow, paths[index]);
      log->LogEvent(kLogCode, "[Add Monitor OK!][obj path]=" + narrow);
    }
  }
}

BENCHMARK(RegisterFloor)->Name("register 10000 paths/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(RegisterFloorWithStatus)->Name("register 10000 paths/floor with file status")->Unit(benchmark::kMillisecond);
BENCHMARK(RegisterFloorWithAllCalls)
    ->Name("register 10000 paths/floor with all host calls")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(RegisterModule)->Name("register 10000 paths/module")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace fenlux::bench
