// Dispatch of one notification on one delivery thread, compared with the host calls that it requires.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/allocation_counter.h"
#include "bench/connected_interact.h"
#include "tests/support/record_builders.h"

namespace fenlux::bench {
namespace {

constexpr std::uint32_t kProcess = 4242;
constexpr std::uint32_t kCode = 4098;

testing::Bytes PathLess() { return testing::NotificationBuilder(kCode).ProcessId(kProcess).Build(); }

testing::Bytes TwoPaths() {
  return testing::NotificationBuilder(kCode)
      .ProcessId(kProcess)
      .Item1(u"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report.docx")
      .Item2(u"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report (2).docx")
      .Build();
}

// The host calls that the contract requires for such a notification, in the same order, without the module.
class Floor {
 public:
  explicit Floor(testing::FakeHost& fakeHost) : host(fakeHost) {
    host.WinWork()->GetProcessNarrowText(narrow, kProcess, 0);
    host.WinWork()->GetProcessWideText(wide, kProcess, 0);
  }

  void UseTwoPaths() {
    path = L"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report.docx";
    secondPath = L"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report (2).docx";
  }

  std::shared_ptr<CBuf> Run() {
    const auto cfg = host.Context()->GetCfg();
    benchmark::DoNotOptimize(cfg->IsMeasuringEnabled(0, 0));
    std::shared_ptr<CBuf> reply;
    host.Utility()->CreateBuffer(reply, true, records::kReplyFixedSize, false);
    benchmark::DoNotOptimize(reply->GetData());
    std::shared_ptr<CArpRecord> record;
    host.ArpMgmt()->CreateRecord(record, 0);
    record->SetSource(kDriverEventSource);
    record->SetCategory(kEventCategory1);
    const auto& process = record->ProcessPart();
    process->SetProcessId(kProcess);
    benchmark::DoNotOptimize(process->GetProcessId());
    benchmark::DoNotOptimize(host.CfgEx()->IsCacheBypassed());
    process->SetSessionId(0);
    process->SetNarrowInfo(narrow);
    record->SetWideInfo(wide);
    benchmark::DoNotOptimize(host.CfgEx()->IsIdentityTextAdded());
    if (!path.empty()) {
      // ToRecordString takes a wide string and a message has none, so making one is part of the floor.
      const std::wstring pathCopy(path.begin(), path.end());
      std::wstring recordPath;
      record->SetPath(host.Utility()->ToRecordString(recordPath, pathCopy));
      record->SetPath(host.Utility()->ToRecordString(recordPath, pathCopy));
      const std::wstring secondPathCopy(secondPath.begin(), secondPath.end());
      record->SetSecondPath(host.Utility()->ToRecordString(recordPath, secondPathCopy));
    }
    record->SetEventType(0x4005);
    benchmark::DoNotOptimize(host.AoArp()->Evaluate(record));
    benchmark::DoNotOptimize(reply->GetData());
    return reply;
  }

 private:
  testing::FakeHost& host;
  std::string narrow;
  std::wstring wide;
  std::wstring path;
  std::wstring secondPath;
};

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
  Floor floor(connected.host);
  if (twoPaths) floor.UseTwoPaths();
  Measure(state, [&] { return floor.Run(); });
}

BENCHMARK_CAPTURE(MeasureFloor, dispatch_path_less, false)->Name("dispatch path-less/floor");
BENCHMARK_CAPTURE(MeasureModule, dispatch_path_less, PathLess())->Name("dispatch path-less/module");
BENCHMARK_CAPTURE(MeasureFloor, dispatch_two_paths, true)->Name("dispatch two paths/floor");
BENCHMARK_CAPTURE(MeasureModule, dispatch_two_paths, TwoPaths())->Name("dispatch two paths/module");

}  // namespace
}  // namespace fenlux::bench
