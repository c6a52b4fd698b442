// Allocation failures while the reference host judges and delivers: the module, the host's own services and the
// emulated driver in one process. Every allocation fails once; no notification may be lost without being counted.
#include <unistd.h>

#include <algorithm>
#include <boost/dll/runtime_symbol_info.hpp>
#include <chrono>
#include <iostream>

#include "kdi/win_driver_interact.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/events/judge.h"
#include "refhost/services/heap_buffer.h"
#include "refhost/services/host_context.h"
#include "refhost/services/locale_service.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/processes/work_service.h"
#include "refhost/services/record_register.h"
#include "refhost/services/utility_service.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using namespace std::chrono_literals;
using refhost::BuildNotification;

// A driver that accepts everything; its connection ends at once, which leaves the driver interface ready.
class SilentPort final : public CPortClient {
 public:
  void Connect() override {}
  void Start() override {}
  void Wait() override {}
  void Close() override {}
  void Send(const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>&, bool) override {}
};

class AllocationFailuresOnEmulator : public EmulatorTest {
 protected:
  AllocationFailuresOnEmulator() {
    ManualClock::Instance().Reset();
    rules.ordered.push_back({.name = "context",
                             .events = {},
                             .path = refhost::Glob("**/*.context"),
                             .process = refhost::Glob("**"),
                             .decision = Decision::kContext,
                             .context = std::make_shared<refhost::HeapBuffer>(std::size_t{10})});
    refhost::LogSettings logSettings;
    logSettings.consoleLevel = refhost::kSeverities;
    logSettings.file = directory.Path() / "log";
    refhost::LiveSettings live;
    live.refreshMilliseconds = 3'600'000;
    live.cacheBypassed = true;
    live.identityTextAdded = true;
    const auto log = std::make_shared<refhost::LogService>(logSettings);
    const auto records = std::make_shared<refhost::RecordRegister>();
    const auto configuration =
        std::make_shared<refhost::Configuration>(refhost::FixedSettings{}, std::move(live), records);
    const boost::filesystem::path self = boost::dll::program_location();
    const auto work = std::make_shared<refhost::WorkService>(
        refhost::SystemImages{{"system32\\csrss.exe", self}, {"system32\\services.exe", self}},
        [](const std::string&, const std::shared_ptr<CBuf>&, std::uint32_t, const NotificationHandler&, std::uint32_t) {
          return std::make_shared<SilentPort>();
        });
    interact = std::make_shared<CWinDriverInteract>(std::make_shared<refhost::HostContext>(refhost::HostServices{
        .cfg = configuration,
        .log = log,
        .locale = std::make_shared<refhost::LocaleService>(refhost::Translations{}),
        .utility = std::make_shared<refhost::UtilityService>(log, false),
        .net = std::make_shared<refhost::NetService>(),
        .recordService = records,
        .winWork = work,
        .arpMgmt = std::make_shared<refhost::EventRecordMaker>(),
        .cfgEx = configuration,
        .aoArp = std::make_shared<refhost::Judge>(rules),
    }));
    interact->RunDriverConnection();
    EXPECT_TRUE(ManualClock::Instance().AwaitParked(1h));  // the refresh thread is at rest
  }

  // Three kinds of notifications, each sent twice: if the allocation failed in the first round, none fails in the
  // second.
  static refhost::Scenario Notifications() {
    refhost::Scenario scenario;
    scenario.threads = 1;
    const std::u16string path = u"/a/path/that/is/longer/than/a/text/holds/without/memory";
    const auto self = static_cast<std::uint64_t>(::getpid());
    for (int time = 0; time < 2; ++time) {
      for (const Bytes& message :
           {BuildNotification({.code = 4098, .processId = self, .path = path}),
            BuildNotification({.code = 4097, .processId = self, .path = path + u".context"}), Bytes(100, 0xEE)}) {
        refhost::NotifyStep step;
        step.message = message;
        scenario.steps.push_back({step, static_cast<std::uint32_t>(scenario.steps.size() + 1)});
      }
    }
    return scenario;
  }

  const TemporaryDirectory directory;
  refhost::Rules rules;
  std::shared_ptr<CWinDriverInteract> interact;
};

TEST_F(AllocationFailuresOnEmulator, EveryNotificationIsAnsweredOrCountedAsLost) {
  std::size_t n = 1;
  std::uint64_t lost = 0;
  for (bool failed = true; failed && !HasFailure(); ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    DriverEmulator driver(settings, Notifications());
    const auto port = driver.MakePortClient(
        kPortNameText, Buffer(ConnectContext()), records::kMaxMessageSize,
        [&](const void* message, std::uint32_t size) { return interact->DispatchNotification(message, size); }, 7);
    port->Connect();
    {
      const FailingAllocations failing(AllocatingThreads::kOthers, n);
      port->Start();
      ASSERT_TRUE(driver.WaitScenarioFinished(kTestTimeout));
      failed = failing.Failed();
    }
    driver.Stop();
    const EmulatorTotals totals = driver.Totals();
    EXPECT_TRUE(totals.AddsUp());
    EXPECT_EQ(totals.delivered, 6u);
    EXPECT_EQ(totals.answered + totals.lost, 6u);
    EXPECT_LE(totals.lost, 1u);
    lost += totals.lost;
    // At most one notification has a verdict other than the usual one: two pass, two with context, two unjudged.
    const auto usual = [&totals](std::uint32_t verdict) -> std::uint64_t {
      const auto found = totals.byVerdict.find(verdict);
      return found == totals.byVerdict.end() ? 0 : std::min<std::uint64_t>(found->second, 2);
    };
    EXPECT_GE(usual(3) + usual(6) + usual(8), 5u);
    if (!failed) {
      EXPECT_EQ(usual(3) + usual(6) + usual(8), 6u);
    }
    EXPECT_EQ(driver.State().protocolViolations, 0u);
  }
  EXPECT_GT(n, 50u);
  EXPECT_GT(lost, 0u) << "a first reply buffer that cannot be made is counted";
  std::cout << "judging and delivery: " << n - 2 << " allocations failed\n";
}

}  // namespace
}  // namespace fenlux::testing
