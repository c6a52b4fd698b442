// The process cache: a refresh, compared with the host's queries; look-ups among many processes; and whether a refresh
// delays a dispatch.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/unshared_host.h"
#include "procinfo/auto_refresh_process_info.h"
#include "tests/support/record_builders.h"

namespace fenlux::bench {
namespace {

constexpr std::uint32_t kRefreshed = 10'000;

// Its queries read /proc as those of a host on Linux do, but always about this process, because a machine has no 10,000
// processes to read about.
class ProcHost final : public UnsharedHost {
 public:
  using UnsharedHost::UnsharedHost;

  std::uint32_t QueryProcessValue(std::uint32_t /*processId*/, std::uint32_t /*reserved*/) override {
    return TextOf("/proc/self/stat").empty() ? kUnknownProcess : 1;
  }
  std::string& GetProcessNarrowText(std::string& out, std::uint32_t /*processId*/,
                                    std::uint32_t /*reserved*/) override {
    return out = TextOf("/proc/self/cmdline");
  }
  std::wstring& GetProcessWideText(std::wstring& out, std::uint32_t /*processId*/,
                                   std::uint32_t /*reserved*/) override {
    std::array<char, 4096> path;
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    return ToWideString(out, std::string(path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))));
  }

 private:
  static std::string TextOf(const char* file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }
};

// A cache that knows the processes 1 to `processes` of the host.
std::shared_ptr<CAutoRefreshProcessInfo> FilledCache(const std::shared_ptr<UnsharedHost>& host,
                                                     std::uint32_t processes) {
  auto cache = std::make_shared<CAutoRefreshProcessInfo>(host);
  cache->RefreshAll();  // publishes the map that look-ups add to
  for (std::uint32_t process = 1; process <= processes; ++process) cache->GetProcessInfo(process);
  return cache;
}

void RefreshFloor(benchmark::State& state) {
  ProcHost host(kRefreshed);
  for (auto _ : state) {
    std::shared_ptr<ProcessIdSet> running;
    host.GetRunningProcessIds(running, 0);
    for (std::uint32_t process = 1; process <= kRefreshed; ++process) {
      benchmark::DoNotOptimize(host.QueryProcessValue(process, 0));
      std::string narrow;
      benchmark::DoNotOptimize(host.GetProcessNarrowText(narrow, process, 0).data());
      std::wstring wide;
      benchmark::DoNotOptimize(host.GetProcessWideText(wide, process, 0).data());
    }
  }
}

void RefreshModule(benchmark::State& state) {
  const auto cache = FilledCache(std::make_shared<ProcHost>(kRefreshed), kRefreshed);
  for (auto _ : state) cache->RefreshAll();
}

// In random order, as notifications of different processes arrive.
void LookUp(benchmark::State& state) {
  const auto processes = static_cast<std::uint32_t>(state.range(0));
  const auto cache = FilledCache(std::make_shared<UnsharedHost>(processes), processes);
  std::minstd_rand random(1);
  std::vector<std::uint32_t> order(1 << 16);
  for (std::uint32_t& process : order) process = 1 + static_cast<std::uint32_t>(random()) % processes;
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache->GetProcessInfo(order[next++ % order.size()]));
}

// The 99th percentile of the time of a dispatch, while another thread refreshes 10,000 processes all the time, or not.
void DispatchBesideRefresh(benchmark::State& state, bool refreshing) {
  const auto host = std::make_shared<ProcHost>(kRefreshed);
  const auto cache = FilledCache(host, kRefreshed);
  const auto fill = [&](std::uint32_t process) {
    std::shared_ptr<CArpRecord> record;
    host->CreateRecord(record, 0);
    record->ProcessPart()->SetProcessId(process);
    cache->FillEventProcessInfo(*record, *record->ProcessPart(), nullptr);
  };
  cache->Start();
  std::atomic<bool> stop{false};
  std::thread refresher;
  if (refreshing) {
    refresher = std::thread([&] {
      while (!stop) cache->RefreshAll();
    });
  }
  std::vector<std::int64_t> times;
  times.reserve(1 << 20);
  std::uint32_t process = 0;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    fill(1 + process++ % kRefreshed);
    const auto end = std::chrono::steady_clock::now();
    times.push_back(std::chrono::nanoseconds(end - begin).count());
  }
  stop = true;
  if (refresher.joinable()) refresher.join();
  cache->StopRefresh();
  const auto rank = times.begin() + static_cast<std::ptrdiff_t>(times.size() * 99 / 100);
  std::nth_element(times.begin(), rank, times.end());
  state.counters["p99"] = static_cast<double>(*rank);
}

BENCHMARK(RefreshFloor)->Name("refresh 10000 processes/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(RefreshModule)->Name("refresh 10000 processes/module")->Unit(benchmark::kMillisecond);
BENCHMARK(LookUp)->Name("look-up")->ArgName("processes")->RangeMultiplier(10)->Range(1000, 1'000'000);
BENCHMARK_CAPTURE(DispatchBesideRefresh, quiet, false)->Name("filling an event's process/floor");
BENCHMARK_CAPTURE(DispatchBesideRefresh, refreshing, true)->Name("filling an event's process/during a refresh");

}  // namespace
}  // namespace fenlux::bench
