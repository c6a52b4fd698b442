// The whole module on the emulated driver, in one process and on the manual clock: how it connects, how it reconnects,
// and how it handles a driver that fails.
#include <boost/dll/runtime_symbol_info.hpp>
#include <map>

#include "core/fenlux_impl.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/configuration.h"
#include "refhost/services/events/decision_verdicts.h"
#include "refhost/services/events/event_record.h"
#include "refhost/services/events/judge.h"
#include "refhost/services/heap_buffer.h"
#include "refhost/services/host_context.h"
#include "refhost/services/locale_service.h"
#include "refhost/services/log/log_service.h"
#include "refhost/services/processes/work_service.h"
#include "refhost/services/record_register.h"
#include "refhost/services/utility_service.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using namespace std::chrono_literals;
using refhost::BuildNotification;

constexpr auto kRestartDelay = 5s;
constexpr char kAlert[] = "Connection with driver failed for a long time!";

// Records every line with its operation, and lets a test wait for one.
class RecordingLog final : public CLog {
 public:
  void LogAlert(std::uint32_t, const std::string& line) override { Add("alert", line); }
  void LogProblem(std::uint32_t, const std::string& line) override { Add("problem", line); }
  void LogWarning(std::uint32_t, const std::string& line) override { Add("warning", line); }
  void LogNotice(std::uint32_t, const std::string& line) override { Add("notice", line); }
  void LogEvent(std::uint32_t, const std::string& line) override { Add("event", line); }
  void LogDetail(std::uint32_t, const std::string& line) override { Add("detail", line); }

  std::size_t Count(const std::string& operation, const std::string& line) {
    const std::lock_guard lock(mutex);
    return counts[operation + ": " + line];
  }
  // Waits until the line has been written this many times; false on timeout.
  bool Await(const std::string& operation, const std::string& line, std::size_t times = 1) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, kTestTimeout, [&] { return counts[operation + ": " + line] >= times; });
  }

 private:
  void Add(const std::string& operation, const std::string& line) {
    {
      const std::lock_guard lock(mutex);
      ++counts[operation + ": " + line];
    }
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::map<std::string, std::size_t> counts;
};

// The module's workers never end, so each test leaves its host alive.
class ModuleOnEmulator : public EmulatorTest {
 protected:
  ModuleOnEmulator() {
    clock.Reset();
    settings.deadline = 1h;
    live.refreshMilliseconds = 3'600'000;
    live.spspFlags = {1, 2, 3, 4};
    live.configBlock = {9, 8, 7};
    live.monitoredObjects = std::vector<boost::filesystem::path>{};
    rules.defaultDecision = Decision::kPass;
  }

  void TearDown() override {
    EmulatorTest::TearDown();
    if (module == nullptr) return;
    static auto& leftBehind = *new std::vector<std::shared_ptr<CFenluxImpl>>();
    leftBehind.push_back(module);
    EXPECT_TRUE(clock.AwaitParked(kRestartDelay));  // so that this worker does not disturb the next test
  }

  // Creates the host around the emulator and the module in it, and starts the module.
  void Start() {
    refhost::LogSettings quiet;  // for lines that bypass the log operations
    quiet.consoleLevel = refhost::kSeverities;
    refhost::FixedSettings fixed;
    fixed.portValue = 77;
    fixed.clientTypeFlag = clientTypeFlag;
    const auto records = std::make_shared<refhost::RecordRegister>();
    const auto configuration = std::make_shared<refhost::Configuration>(fixed, live, records);
    Emulator();
    const boost::filesystem::path self = boost::dll::program_location();  // in place of both system processes
    const auto work = std::make_shared<refhost::WorkService>(
        refhost::SystemImages{{"system32\\csrss.exe", self}, {"system32\\services.exe", self}},
        [emulator = Handle()](const std::string& name, const std::shared_ptr<CBuf>& context, std::uint32_t largest,
                              const NotificationHandler& notificationHandler, std::uint32_t value) {
          return emulator->MakePortClient(name, context, largest, notificationHandler, value);
        });
    module = std::make_shared<CFenluxImpl>(std::make_shared<refhost::HostContext>(refhost::HostServices{
        .cfg = configuration,
        .log = log,
        .locale = std::make_shared<refhost::LocaleService>(refhost::Translations{}),
        .utility = std::make_shared<refhost::UtilityService>(std::make_shared<refhost::LogService>(quiet), false),
        .net = std::make_shared<refhost::NetService>(),
        .recordService = records,
        .winWork = work,
        .arpMgmt = std::make_shared<refhost::EventRecordMaker>(),
        .cfgEx = configuration,
        .aoArp = std::make_shared<refhost::Judge>(rules),
    }));
    module->StartWork();
  }

  ManualClock& clock = ManualClock::Instance();
  const std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
  refhost::LiveSettings live;
  refhost::Rules rules;
  bool clientTypeFlag = false;
  std::shared_ptr<CFenluxImpl> module;
};

TEST_F(ModuleOnEmulator, ReconnectsAfterFiveSecondsAndAlertsAtTheTenthFailure) {
  settings.faults.refuseConnects = 12;
  Start();
  for (int failure = 1; failure <= 12; ++failure) {
    ASSERT_TRUE(clock.AwaitParked(kRestartDelay));
    EXPECT_EQ(State().refusedConnects, static_cast<unsigned>(failure));
    EXPECT_EQ(log->Count("alert", kAlert), failure < 10 ? 0u : 1u) << failure;
    clock.Advance(4999ms);
    EXPECT_EQ(State().refusedConnects, static_cast<unsigned>(failure));
    clock.Advance(1ms);
  }
  ASSERT_TRUE(log->Await("event", "Driver Interact Ready."));
  EXPECT_EQ(State().connects, 1u);
  EXPECT_EQ(State().protocolViolations, 0u);
  EXPECT_EQ(log->Count("problem", "[dci,tiwk,STDE] info=the driver refuses the connection"), 12u);
}

TEST_F(ModuleOnEmulator, FailuresSpreadBeyondTheWindowRaiseNoAlert) {
  settings.faults.refuseConnects = 11;
  Start();
  for (int failure = 1; failure <= 11; ++failure) {
    ASSERT_TRUE(clock.AwaitParked(kRestartDelay));
    clock.Advance(67s);  // the first of ten failures is then 603 seconds old
  }
  ASSERT_TRUE(log->Await("event", "Driver Interact Ready."));
  EXPECT_EQ(log->Count("alert", kAlert), 0u);
}

TEST_F(ModuleOnEmulator, SendsItsOpeningRequests) {
  clientTypeFlag = true;
  AddStep(refhost::AwaitRequestStep{.command = 20, .times = 2, .limit = kTestTimeout});
  Start();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  const EmulatorState state = State();
  EXPECT_EQ(state.clientType, 2u);
  EXPECT_EQ(state.portValue, 77u);
  EXPECT_EQ(state.spspSwitches, (std::array<std::uint8_t, 4>{1, 2, 3, 4}));
  EXPECT_EQ(state.versionsAsked, 1u);
  EXPECT_EQ(state.systemProcesses.size(), 2u);
  EXPECT_THAT(state.violationTexts, IsEmpty());
  EXPECT_EQ(log->Count("event", "Current driver version=19072701"), 1u);
  EXPECT_EQ(log->Count("event", "Current fenlux version=19072701"), 1u);
}

TEST_F(ModuleOnEmulator, AppliesItsPolicyOnEveryConnection) {
  const TemporaryDirectory directory;
  live.monitoredObjects = std::vector<boost::filesystem::path>{directory.Path()};
  AddStep(refhost::AwaitRequestStep{.command = 24, .times = 1, .limit = kTestTimeout});
  AddStep(refhost::DropStep{});
  AddStep(refhost::AwaitRequestStep{.command = 24, .times = 1, .limit = kTestTimeout});
  clock.PassAtOnce(100ms);  // the policy worker's polls
  clock.PassAtOnce(1s);     // and its pause if they time out
  Start();
  ASSERT_TRUE(clock.AwaitParked(kRestartDelay));
  EXPECT_EQ(State().monitored[1].committed.size(), 1u);
  clock.Advance(kRestartDelay);
  ASSERT_TRUE(log->Await("event", "Driver Interact Ready.", 2));
  // A notification that arrives while the policy worker is not waiting is lost; a host notifies again.
  for (auto tries = kTestTimeout / 10ms; tries > 0 && !Emulator().WaitScenarioFinished(10ms); --tries) {
    module->NotifyPolicyChanged();
  }
  ASSERT_TRUE(Emulator().ScenarioFinished());
  const EmulatorState state = State();
  EXPECT_EQ(state.connects, 2u);
  ASSERT_EQ(state.monitored[1].committed.size(), 1u);
  EXPECT_EQ(state.monitored[1].committed[0].path, directory.Path().string());
  EXPECT_TRUE(state.monitored[1].committed[0].pathFlag);
  EXPECT_GE(state.dumps, 1u);
  EXPECT_EQ(state.configBlock, (Bytes{9, 8, 7}));
  EXPECT_THAT(state.violationTexts, IsEmpty());
}

TEST_F(ModuleOnEmulator, AnswersManyNotificationsOnManyThreadsAcrossADrop) {
  scenario.threads = 4;
  rules.ordered.push_back({.name = "context",
                           .events = {},
                           .path = refhost::Glob("*.context"),
                           .process = {},
                           .decision = Decision::kContext,
                           .context = std::make_shared<refhost::HeapBuffer>(std::size_t{10})});
  const auto add = [this](std::uint32_t code, std::u16string path, std::uint32_t verdict) {
    auto& step = AddNotifications(BuildNotification({.code = code, .processId = 1, .path = std::move(path)}), 500);
    step.threads = 4;
    step.expectedVerdict = verdict;
  };
  add(4097, u"C:\\plain", 3);
  add(4098, u"C:\\some.context", 6);
  AddStep(refhost::DropStep{});
  add(4113, u"C:\\plain", 0);
  add(4115, u"C:\\plain", 8);
  add(8206, u"C:\\plain", 3);
  clock.PassAtOnce(kRestartDelay, 1);
  Start();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  const EmulatorTotals totals = Totals();
  EXPECT_EQ(totals.delivered, 2500u);
  EXPECT_EQ(totals.answered, 2000u);
  EXPECT_EQ(totals.unansweredByDesign, 500u);
  EXPECT_EQ(totals.byVerdict, (std::map<std::uint32_t, std::uint64_t>{{3, 1000}, {6, 500}, {8, 500}}));
  EXPECT_THAT(State().violationTexts, IsEmpty());
  EXPECT_EQ(State().connects, 2u);
}

// The reference host has its own copy of this table, which decides which decisions count as refusals.
class ModuleVerdicts : public ModuleOnEmulator {
 protected:
  void ExpectThoseOfTheTable() {
    for (std::uint32_t number = kMinDecision; number <= kMaxDecision; ++number) {
      const auto decision = static_cast<Decision>(number);
      rules.ordered.push_back({.name = {},
                               .events = {},
                               .path = refhost::Glob("*." + std::to_string(number)),
                               .process = {},
                               .decision = decision,
                               .context = std::make_shared<refhost::HeapBuffer>(std::size_t{10})});
      const std::string path = "C:\\x." + std::to_string(number);
      AddNotifications(BuildNotification({.code = 4098, .processId = 1, .path = {path.begin(), path.end()}}))
          .expectedVerdict = refhost::VerdictOfDecision(decision, clientTypeFlag);
    }
    Start();
    ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
    EXPECT_THAT(State().violationTexts, IsEmpty());
    EXPECT_EQ(Totals().answered, kMaxDecision);
  }
};

TEST_F(ModuleVerdicts, MatchTheHostsTable) { ExpectThoseOfTheTable(); }

TEST_F(ModuleVerdicts, MatchTheHostsTableForClientType2) {
  clientTypeFlag = true;
  ExpectThoseOfTheTable();
}

TEST_F(ModuleOnEmulator, AnswersGarbageAsUnjudged) {
  for (const std::size_t size : {0u, 1u, 23u, 24u, 155u, 156u, 157u, 5000u}) {
    AddNotifications(Bytes(size, 0xEE)).expectedVerdict = 8;
  }
  // Lengths beyond the end of the message, and lengths that would overflow 32 bits.
  AddNotifications(BuildNotification({.code = 4098, .statedItem1Size = 0xffffffff})).expectedVerdict = 8;
  AddNotifications(BuildNotification({.code = 4098, .statedItem2Size = 0xffffffff})).expectedVerdict = 8;
  AddNotifications(BuildNotification({.code = 4098, .statedItem3Size = 0xffffff64})).expectedVerdict = 8;
  Start();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_THAT(State().violationTexts, IsEmpty());
  EXPECT_EQ(Totals().answered, 11u);
}

TEST_F(ModuleOnEmulator, TreatsAShortVersionReplyAsNone) {
  settings.faults.versionReply = refhost::VersionReply::kShort;
  Start();
  ASSERT_TRUE(log->Await("event", "Current driver version=0"));
}

TEST_F(ModuleOnEmulator, TreatsAnEmptyVersionReplyAsNone) {
  settings.faults.versionReply = refhost::VersionReply::kEmpty;
  Start();
  ASSERT_TRUE(log->Await("event", "Current driver version=0"));
}

TEST_F(ModuleOnEmulator, AcceptsAVersionReplyInTheDriversOwnBuffer) {
  settings.faults.versionReply = refhost::VersionReply::kReplace;
  settings.driverVersion = 42;
  Start();
  ASSERT_TRUE(log->Await("event", "Current driver version=42"));
}

TEST_F(ModuleOnEmulator, ReportsASendThatFails) {
  settings.faults.failSend = refhost::FailingSend{.command = 12};
  AddStep(refhost::AwaitRequestStep{.command = 20, .times = 2, .limit = kTestTimeout});
  Start();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(log->Count("problem", "[wdi,spsp,STDE] info=the driver fails on request"), 1u);
  EXPECT_EQ(State().spspSwitches, std::nullopt);
}

TEST_F(ModuleOnEmulator, ReportsASendThatThrowsANonstandardException) {
  settings.faults.failSend = refhost::FailingSend{.command = 13, .failure = refhost::SendFailure::kNotAnException};
  Start();
  ASSERT_TRUE(log->Await("problem", "[wdi,gdv,OTHE]"));
  ASSERT_TRUE(log->Await("event", "Current driver version=0"));
}

TEST_F(ModuleOnEmulator, StopWorkEndsTheConnectionAndANewOneFollows) {
  live.monitoredObjects.reset();  // no policy, no commits
  AddStep(refhost::AwaitRequestStep{.command = 20, .times = 2, .limit = kTestTimeout});
  Start();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  module->StopWork(true);
  ASSERT_TRUE(clock.AwaitParked(kRestartDelay));
  EXPECT_FALSE(State().connected);
  EXPECT_EQ(State().monitored[1].commits, 1u);  // the clearing
  clock.Advance(kRestartDelay);
  ASSERT_TRUE(log->Await("event", "Driver Interact Ready.", 2));
  EXPECT_EQ(State().connects, 2u);
}

TEST_F(ModuleOnEmulator, ConnectsAgainAfterAThousandDroppedConnections) {
  constexpr unsigned kDrops = 1000;
  live.refreshMilliseconds = 20'000;  // so that refresh threads end after a few connections
  scenario.repeat = kDrops;
  AddNotifications(BuildNotification({.code = 4098, .processId = 1}), 3).expectedVerdict = 3;
  AddStep(refhost::DropStep{});
  Start();
  for (unsigned drop = 1; drop < kDrops; ++drop) {
    ASSERT_TRUE(clock.AwaitParked(kRestartDelay)) << drop;
    clock.Advance(kRestartDelay);
  }
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  ASSERT_TRUE(clock.AwaitParked(kRestartDelay));
  EXPECT_EQ(State().connects, kDrops);
  EXPECT_EQ(Totals().answered, 3 * kDrops);
  EXPECT_THAT(State().violationTexts, IsEmpty());
  clock.Advance(kRestartDelay);
  ASSERT_TRUE(log->Await("event", "Driver Interact Ready.", kDrops + 1));
}

TEST_F(ModuleOnEmulator, AHeldReplyDelaysNothingElse) {
  scenario.threads = 2;
  auto& held = AddNotifications(BuildNotification({.code = 4098, .processId = 1}));
  held.holdUntilEnd = true;
  held.inBackground = true;
  AddNotifications(BuildNotification({.code = 4098, .processId = 1}), 20);
  AddStep(refhost::AwaitRequestStep{.command = 20, .times = 2, .limit = kTestTimeout});
  AddStep(refhost::DropStep{});
  Start();
  ASSERT_TRUE(Emulator().WaitScenarioFinished(kTestTimeout));
  EXPECT_EQ(Totals().answered, 20u);
  EXPECT_EQ(Totals().Unjudged(UnjudgedCause::kConnectionEnded), 1u);
  ASSERT_TRUE(log->Await("event", "Driver interact exit."));
}

}  // namespace
}  // namespace fenlux::testing
