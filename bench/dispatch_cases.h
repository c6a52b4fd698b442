// The notifications whose dispatch is measured, and their floor: the host calls that the contract requires for them.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>

#include "bench/connected_interact.h"
#include "tests/support/record_builders.h"

namespace fenlux::bench {

inline constexpr std::uint32_t kProcess = 4242;
inline constexpr std::uint32_t kCode = 4098;

inline testing::Bytes PathLess() { return testing::NotificationBuilder(kCode).ProcessId(kProcess).Build(); }

inline testing::Bytes TwoPaths() {
  return testing::NotificationBuilder(kCode)
      .ProcessId(kProcess)
      .Item1(u"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report.docx")
      .Item2(u"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report (2).docx")
      .Build();
}

// The host calls that the contract requires for such a notification, in the same order, without the module. For one
// thread.
class Floor {
 public:
  explicit Floor(const std::shared_ptr<CGlobalContext>& host)
      : context(host),
        utility(host->GetUtility()),
        arpMgmt(host->GetArpMgmt()),
        cfgEx(host->GetCfgEx()),
        aoArp(host->GetAoArp()) {
    host->GetWinWork()->GetProcessNarrowText(narrow, kProcess, 0);
    host->GetWinWork()->GetProcessWideText(wide, kProcess, 0);
  }

  void UseTwoPaths() {
    path = L"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report.docx";
    secondPath = L"\\Device\\HarddiskVolume2\\Users\\someone\\Documents\\report (2).docx";
  }

  std::shared_ptr<CBuf> Run() {
    const auto cfg = context->GetCfg();
    benchmark::DoNotOptimize(cfg->IsMeasuringEnabled(0, 0));
    std::shared_ptr<CBuf> reply;
    utility->CreateBuffer(reply, true, records::kReplyFixedSize, false);
    benchmark::DoNotOptimize(reply->GetData());
    std::shared_ptr<CArpRecord> record;
    arpMgmt->CreateRecord(record, 0);
    record->SetSource(kDriverEventSource);
    record->SetCategory(kEventCategory1);
    const auto& process = record->ProcessPart();
    process->SetProcessId(kProcess);
    benchmark::DoNotOptimize(process->GetProcessId());
    benchmark::DoNotOptimize(cfgEx->IsCacheBypassed());
    process->SetSessionId(0);
    process->SetNarrowInfo(narrow);
    record->SetWideInfo(wide);
    benchmark::DoNotOptimize(cfgEx->IsIdentityTextAdded());
    if (!path.empty()) {
      // ToRecordString takes a wide string and a message has none, so making one is part of the floor.
      const std::wstring pathCopy(path.begin(), path.end());
      std::wstring recordPath;
      record->SetPath(utility->ToRecordString(recordPath, pathCopy));
      record->SetPath(utility->ToRecordString(recordPath, pathCopy));
      const std::wstring secondPathCopy(secondPath.begin(), secondPath.end());
      record->SetSecondPath(utility->ToRecordString(recordPath, secondPathCopy));
    }
    record->SetEventType(0x4005);
    benchmark::DoNotOptimize(aoArp->Evaluate(record));
    benchmark::DoNotOptimize(reply->GetData());
    return reply;
  }

 private:
  const std::shared_ptr<CGlobalContext> context;
  const std::shared_ptr<CUtility> utility;
  const std::shared_ptr<CArpMgmt> arpMgmt;
  const std::shared_ptr<CCfgEx> cfgEx;
  const std::shared_ptr<CAoArp> aoArp;
  std::string narrow;
  std::wstring wide;
  std::wstring path;
  std::wstring secondPath;
};

}  // namespace fenlux::bench
