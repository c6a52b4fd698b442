// Fault injection into the process cache's refresh.
#include "tests/unit/module/fault_injection.h"

namespace fenlux::testing {
namespace {

class FaultInjectionProcessInfo : public FaultInjection {};

}  // namespace

TEST_F(FaultInjectionProcessInfo, AFailedRefreshThrowsAndKeepsTheCache) {
  Settings().running = [] { return std::set<std::uint64_t>{1, 2, 3}; };
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  info->RefreshAll();
  std::shared_ptr<const CSingleProcessInfo> last;
  FailEveryCall(
      [&] {
        for (const std::uint32_t id : {1u, 2u, 3u}) last = info->GetProcessInfo(id);
        return 0;
      },
      [&](int) {
        try {
          info->RefreshAll();
        } catch (...) {
          Gate().StopFailing();
          EXPECT_EQ(info->GetProcessInfo(3), last);
          throw;
        }
      },
      AlwaysPropagates);
}

TEST_F(FaultInjectionProcessInfo, TheRefreshThreadSurvivesEveryFailure) {
  std::size_t injected = 0;
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1;; ++n) {
      FakeHost own;
      own.Settings().refreshInterval = 1000;  // also the thread's fallback
      own.Settings().running = [] { return std::set<std::uint64_t>{1, 2}; };
      const auto info = std::make_shared<CAutoRefreshProcessInfo>(own.Context());
      info->RefreshAll();
      info->GetProcessInfo(1);
      info->GetProcessInfo(2);
      Clock().Reset();
      own.Gate().FailAt(n, failure);
      std::thread thread([&] { info->RefreshThreadMain(); });
      for (int pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(Clock().AwaitParked(1s)) << own.Gate().FailedOperation();
        Clock().Advance(1s);
      }
      EXPECT_TRUE(Clock().AwaitParked(1s));
      info->StopRefresh();
      Clock().Advance(1s);
      thread.join();
      EXPECT_EQ(own.Gate().Count("CLog::"), 0u);
      if (own.Gate().FailedOperation().empty()) break;
      ++injected;
    }
  }
  EXPECT_GE(injected, std::size(kAllFailures) * 15u) << "lines, intervals and queries of three passes";
}

}  // namespace fenlux::testing
