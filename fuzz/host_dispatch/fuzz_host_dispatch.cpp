// Dispatches any message on the reference host's own services: records, judge, process queries, text conversions and
// log. A message that the driver's protocol allows must be judged; any other must still get a well-formed reply.
//
// An input is two control bytes (see the README) and the message.
#include <array>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fenlux/driver_protocol.h"
#include "fuzz/support/fuzzing.h"
#include "kdi/win_driver_interact.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/emulator/driver/reply_check.h"
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
#include "tests/support/manual_clock.h"

namespace fenlux::refhost {
namespace {

using testing::ExactBytes;
using testing::Require;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kControlBytes = 2;
constexpr std::chrono::milliseconds kRefreshInterval(3'600'000);
constexpr char kContextText[] = "note";

// Rules with every kind of pattern and every decision. The dictionary has texts that they match.
constexpr char kRules[] = R"(
[[rules]]
path = "**/*.secret"
decision = 4
[[rules]]
path = "*.exe"
decision = 1
[[rules]]
path = "C:\\**\\?emp*"
decision = 3
[[rules]]
process = "**/fuzz_*"
decision = 5
context = "note"
[[rules]]
path = "/data/**"
decision = 5
context = "note"
[[rules]]
path = "/undecided/*"
decision = 7
[[rules]]
path = "*.mark"
decision = 6
)";

Rules ReadTheRules() {
  ConfigErrors errors;
  const ConfigDocument document(kRules, "/nowhere/rules.toml", errors);
  Rules rules = ReadRules(document.Root());
  document.Root().Finish();
  Require(errors.Empty(), errors.Text().c_str());
  return rules;
}

// Connects to nothing.
class SilentPort final : public CPortClient {
 public:
  void Connect() override {}
  void Start() override {}
  void Wait() override {}
  void Close() override {}
  void Send(const std::shared_ptr<CBuf>&, std::shared_ptr<CBuf>& reply, bool) override { reply = nullptr; }
};

// Keeps the record that was judged last.
class WatchedJudge final : public CAoArp {
 public:
  WatchedJudge() : judge(ReadTheRules()) {}
  std::uint32_t Evaluate(const std::shared_ptr<CArpRecord>& record) override {
    judged = std::static_pointer_cast<EventRecord>(record);
    return decision = judge.Evaluate(record);
  }

  std::uint32_t decision = 0;
  std::shared_ptr<EventRecord> judged;

 private:
  Judge judge;
};

LogSettings Silent() {
  LogSettings settings;
  settings.consoleLevel = settings.fileLevel = kSeverities;
  return settings;
}

// A host, and a driver interface for each client type.
class Host {
 public:
  Host()
      : log(std::make_shared<LogService>(Silent())),
        judge(std::make_shared<WatchedJudge>()),
        work(std::make_shared<WorkService>(
            SystemImages{}, [](const std::string&, const std::shared_ptr<CBuf>&, std::uint32_t,
                               const NotificationHandler&, std::uint32_t) { return std::make_shared<SilentPort>(); })) {
    for (const bool clientType2 : {false, true}) Make(clientType2);
  }

  void Run(const std::uint8_t* control, const ExactBytes& message) {
    Apply(control[0]);
    const bool clientType2 = (control[1] & 1) != 0;
    const auto& side = sides[clientType2 ? 1 : 0];
    judge->judged = nullptr;
    judge->decision = 0;
    const std::uint64_t problems = log->Totals().Of(Severity::kProblem);
    const std::shared_ptr<CBuf> reply =
        side.interact->DispatchNotification(message.Data(), static_cast<std::uint32_t>(message.Size()));
    Check(message, reply, log->Totals().Of(Severity::kProblem) - problems, clientType2);
  }

 private:
  struct Side {
    std::shared_ptr<Configuration> configuration;
    std::shared_ptr<CWinDriverInteract> interact;
  };

  void Make(bool clientType2) {
    FixedSettings fixed;
    fixed.clientTypeFlag = clientType2;
    LiveSettings live;
    live.refreshMilliseconds = static_cast<std::uint32_t>(kRefreshInterval.count());
    const auto records = std::make_shared<RecordRegister>();
    Side& side = sides[clientType2 ? 1 : 0];
    side.configuration = std::make_shared<Configuration>(fixed, live, records);
    const auto context = std::make_shared<HostContext>(HostServices{
        .cfg = side.configuration,
        .log = log,
        .locale = std::make_shared<LocaleService>(Translations{}),
        .utility = std::make_shared<UtilityService>(log, false),
        .net = std::make_shared<NetService>(),
        .recordService = records,
        .winWork = work,
        .arpMgmt = std::make_shared<EventRecordMaker>(),
        .cfgEx = side.configuration,
        .aoArp = judge,
    });
    side.interact = std::make_shared<CWinDriverInteract>(context);
    side.interact->RunDriverConnection();
    // A running refresh thread would drop cached processes while a message is handled.
    Require(testing::ManualClock::Instance().AwaitParked(kRefreshInterval, clientType2 ? 2 : 1),
            "the refresh threads wait");
  }

  // Replaces the live settings only if they differ, because that is slow.
  void Apply(std::uint8_t flags) {
    flags &= 7;
    if (flags == applied) return;
    applied = flags;
    LiveSettings live;
    live.cacheBypassed = (flags & 1) != 0;
    live.identityTextAdded = (flags & 2) == 0;
    live.measuring = (flags & 4) != 0;
    live.refreshMilliseconds = static_cast<std::uint32_t>(kRefreshInterval.count());
    for (const Side& side : sides) side.configuration->Replace(live);
  }

  void Check(const ExactBytes& message, const std::shared_ptr<CBuf>& reply, std::uint64_t problems,
             bool clientType2) const {
    FenluxNotificationView view{};
    const bool allowed = FenluxParseNotification(message.Data(), message.Size(), &view) == FENLUX_OK;
    const NotificationView notification(message.Data(), message.Size());
    const ReplyDue due = DueReply(notification, clientType2 ? 2 : 1);
    Require(problems <= 1, "a failure is logged as one line");
    Require(!allowed || problems == 0, "a message that the protocol allows is handled without a problem");
    if (reply == nullptr) return Require(due.none && problems == 0, "only the code that expects no reply gets none");

    const ReplyFinding finding = CheckReply(reply->GetData(), reply->GetSize(), due);
    Require(finding.violation.empty(), finding.violation.c_str());
    FenluxReplyView replyView{};
    Require(FenluxParseReply(reply->GetData(), reply->GetSize(), &replyView) == FENLUX_OK, "a reply is well-formed");
    const bool failed = problems != 0;
    Require(!due.none || failed, "the code that expects no reply gets one only after a failure");
    if (failed) return Require(finding.verdict == FENLUX_VERDICT_UNJUDGED, "a failure leaves the event unjudged");
    Require(finding.verdict == ExpectedVerdict(notification, clientType2), "the verdict is that of the decision");
    if (judge->judged != nullptr) {
      Require(judge->judged->Data().processId == FenluxLoadU64(message.Data() + 12),
              "the record has the message's process id");
    }
    if (finding.verdict != FENLUX_VERDICT_CONTEXT) return;
    Require(replyView.context.size == 2 * (sizeof(kContextText) - 1), "the context data is the rule's");
    for (std::size_t i = 0; i + 1 < sizeof(kContextText); ++i) {
      Require(replyView.context.data[2 * i] == kContextText[i] && replyView.context.data[2 * i + 1] == 0,
              "the context data is the rule's");
    }
  }

  std::uint32_t ExpectedVerdict(const NotificationView& notification, bool clientType2) const {
    const std::uint32_t pass = clientType2 ? 7 : 3;
    if (notification.Oplock()) return pass;
    Require(judge->judged != nullptr, "without a failure, the event was judged");
    const std::array<std::uint32_t, 8> verdicts{8, 2, pass, 4, 5, 6, 7, 8};
    Require(judge->decision < verdicts.size(), "decisions are 1 to 7");
    return verdicts[judge->decision];
  }

  const std::shared_ptr<LogService> log;
  const std::shared_ptr<WatchedJudge> judge;
  const std::shared_ptr<WorkService> work;
  std::array<Side, 2> sides;
  std::uint8_t applied = 0;
};

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fenlux::refhost::kControlBytes;
  if (size < kControlBytes) return 0;
  // Never destroyed: the parked refresh threads use it to the end.
  static auto& host = *new fenlux::refhost::Host;
  host.Run(data, fenlux::testing::ExactBytes({data + kControlBytes, data + size}));
  return 0;
}
