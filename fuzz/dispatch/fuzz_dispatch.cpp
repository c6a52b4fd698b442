// Dispatches any message on a host that may fail in any way. Dispatch must return a well-formed reply, or none for the
// one code that needs none.
//
// An input is seven control bytes, which select how the fake host behaves (see the README), and the message. Runs do
// not influence each other: every process that the cache may hold is in it before the first run.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "fuzz/support/fuzzing.h"
#include "kdi/driver_records.h"
#include "kdi/win_driver_interact.h"
#include "tests/support/fake_host/fake_host.h"
#include "tests/support/manual_clock.h"

namespace fenlux::testing {
namespace {

constexpr std::size_t kControlBytes = 7;
// Numbers of the protocol, written out so that the check does not depend on the module's own constants.
constexpr std::uint32_t kNoReplyCode = 4113;
constexpr std::uint32_t kContextDecision = 5;
constexpr std::uint32_t kContextVerdict = 6;
constexpr std::uint32_t kUnjudged = 8;
constexpr std::uint32_t kCachedProcesses = 64;  // ids below this one are in the cache from the start
constexpr std::chrono::milliseconds kRefreshInterval(3'600'000);

// Operations that a control byte selects by index; 0 selects none.
constexpr const char* kGivesEmpty[] = {nullptr,
                                       "CUtility::CreateBuffer",
                                       "CArpMgmt::CreateRecord",
                                       "CArpRecord::ProcessPart",
                                       "CArpRecord::GetContextData",
                                       "CUtility::BufferFromBytes",
                                       "CUtility::CreateMeasurement",
                                       "CGlobalContext::GetCfg",
                                       "CGlobalContext::GetUtility",
                                       "CGlobalContext::GetLog"};
constexpr const char* kAlwaysThrows[] = {nullptr,
                                         "CLog::LogProblem",
                                         "CLog::LogDetail",
                                         "CUtility::ConvertText",
                                         "CLocale::TranslateText",
                                         "CMeasurement::GetResultText",
                                         "CAoArp::Evaluate",
                                         "CUtility::ToRecordString"};

std::uint32_t U32At(const std::uint8_t* bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
         static_cast<std::uint32_t>(bytes[offset + 2]) << 16 | static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

// How the host behaves for one input.
struct Behaviour {
  std::uint32_t decision;
  bool clientType2, stopped, cacheBypassed, identityTextAdded, measuring, convertsPaths, nullMessage;
  std::optional<Bytes> contextData;
  std::size_t throwingCall;  // index of the call that throws, from 1; 0: none
  Failure throwing;
  const char* givesEmpty;
  std::size_t emptyCall;  // index of the call that does, from 1; 0: every call
  const char* alwaysThrows;
  Failure alwaysThrowing;
};

Behaviour Read(const std::uint8_t* control) {
  Behaviour behaviour{};
  behaviour.decision = control[0] == 0xFF ? 0xFFFFFFFF : control[0] % 10;
  behaviour.clientType2 = (control[1] & 0x01) != 0;
  behaviour.stopped = (control[1] & 0x02) != 0;
  behaviour.cacheBypassed = (control[1] & 0x04) != 0;
  behaviour.identityTextAdded = (control[1] & 0x08) != 0;
  behaviour.measuring = (control[1] & 0x10) != 0;
  behaviour.convertsPaths = (control[1] & 0x20) != 0;
  behaviour.nullMessage = (control[1] & 0x40) != 0;
  if (control[2] != 0) behaviour.contextData = Bytes(control[2] == 0xFF ? 70000U : control[2] - 1U, 0x5A);
  behaviour.throwingCall = control[3];
  behaviour.givesEmpty = kGivesEmpty[(control[4] & 0x0F) % std::size(kGivesEmpty)];
  behaviour.emptyCall = control[4] >> 4;
  behaviour.alwaysThrows = kAlwaysThrows[(control[5] & 0x0F) % std::size(kAlwaysThrows)];
  behaviour.alwaysThrowing = kAllFailures[(control[5] >> 4) % std::size(kAllFailures)];
  behaviour.throwing = kAllFailures[control[6] % std::size(kAllFailures)];
  return behaviour;
}

// The verdict of a judged notification.
std::uint32_t VerdictOf(const Behaviour& behaviour) {
  const std::uint32_t pass = behaviour.clientType2 ? 7 : 3;
  const std::uint32_t verdicts[] = {kUnjudged, 2, pass, 4, 5, kContextVerdict, 7};
  return behaviour.decision < std::size(verdicts) ? verdicts[behaviour.decision] : kUnjudged;
}

// The host, and a driver interface for each client type, running and stopped.
class Setting {
 public:
  Setting() {
    CallGate& gate = host.Gate();
    gate.SetJournal(false);
    HostSettings& settings = host.Settings();
    settings.recordedRequestBytes = 0;
    settings.recordsKept = false;
    settings.refreshInterval = static_cast<std::uint32_t>(kRefreshInterval.count());
    settings.processValue = [this](std::uint32_t processId) {
      return processId < kCachedProcesses || host.Settings().cacheBypassed ? processId % 4 : kUnknownProcess;
    };
    std::size_t parked = 0;
    for (const bool clientType2 : {false, true}) {
      for (const bool stopped : {false, true}) {
        settings.clientTypeFlag = clientType2;
        const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
        interact->RunDriverConnection();  // the fake port client's Wait returns at once
        // Its refresh thread stays parked from here on, so that only the fuzzed calls are counted.
        Require(ManualClock::Instance().AwaitParked(kRefreshInterval, ++parked), "the refresh threads park");
        FillCache(*interact);
        if (stopped) interact->StopInteract();
        interacts[clientType2 ? 1 : 0][stopped ? 1 : 0] = interact;
      }
    }
    gate.OnCall("CLog::LogProblem", [this] { ++problems; });
    gate.OnCall("CArpMgmt::CreateRecord", [this] { recordReached = true; });
    gate.OnCall("CUtility::CreateBuffer", [this] { ++buffersAsked; });
  }

  void Run(const Behaviour& behaviour, const std::uint8_t* message, std::size_t size) {
    Prepare(behaviour);
    const auto& interact = interacts[behaviour.clientType2 ? 1 : 0][behaviour.stopped ? 1 : 0];
    const bool null = behaviour.nullMessage && size == 0;
    std::shared_ptr<CBuf> reply;
    std::optional<std::string> thrown;
    try {
      reply = interact->DispatchNotification(null ? nullptr : message, static_cast<std::uint32_t>(size));
    } catch (const std::exception& error) {
      thrown = error.what() == nullptr ? "" : error.what();
    } catch (...) {
      thrown = "";
    }
    Relax(behaviour);
    if (thrown) {
      CheckThrown(*thrown);
    } else {
      CheckReply(behaviour, reply, message, size);
    }
  }

 private:
  static void FillCache(CWinDriverInteract& interact) {
    Bytes message(records::kNotificationFixedSize, 0);
    message[20] = 0x02;  // code 4098
    message[21] = 0x10;
    for (std::uint32_t id = 0; id < kCachedProcesses; ++id) {
      message[12] = static_cast<std::uint8_t>(id);
      interact.DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
    }
  }

  void Prepare(const Behaviour& behaviour) {
    HostSettings& settings = host.Settings();
    settings.decision = behaviour.decision;
    settings.cacheBypassed = behaviour.cacheBypassed;
    settings.identityTextAdded = behaviour.identityTextAdded;
    settings.measuring = behaviour.measuring;
    settings.contextData = [data = behaviour.contextData] { return data; };
    settings.toRecord = nullptr;
    if (behaviour.convertsPaths) settings.toRecord = [](const std::wstring& path) { return L"\\??\\" + path; };
    {
      const std::lock_guard lock(host.Core()->mutex);
      host.Core()->identities.clear();
    }
    problems = 0;
    recordReached = false;
    buffersAsked = 0;
    CallGate& gate = host.Gate();
    if (behaviour.alwaysThrows != nullptr) gate.FailAlways(behaviour.alwaysThrows, behaviour.alwaysThrowing);
    if (behaviour.throwingCall != 0) gate.FailAt(behaviour.throwingCall, behaviour.throwing);
    if (behaviour.givesEmpty == nullptr) return;
    if (behaviour.emptyCall == 0) {
      gate.GiveEmpty(behaviour.givesEmpty);
    } else {
      gate.GiveEmptyAt(behaviour.givesEmpty, behaviour.emptyCall);
    }
  }

  void Relax(const Behaviour& behaviour) {
    host.Gate().StopFailing();
    if (behaviour.givesEmpty != nullptr) host.Gate().StopGivingEmpty(behaviour.givesEmpty);
  }

  // The operation that threw last in this run; empty if none was selected to throw.
  std::string FailedOperation(const Behaviour& behaviour) const {
    const bool planned = behaviour.alwaysThrows != nullptr || behaviour.throwingCall != 0;
    return planned ? host.Gate().FailedOperation() : std::string();
  }

  // Dispatch may throw only if it cannot create the first reply, before it reads any of the message.
  void CheckThrown(const std::string& thrown) const {
    Require(buffersAsked == 1 && !recordReached && thrown.find("wdaokd") == std::string::npos,
            "an exception comes from making the reply");
    Require(problems == 0, "an exception is not logged as well");
  }

  void CheckReply(const Behaviour& behaviour, const std::shared_ptr<CBuf>& reply, const std::uint8_t* message,
                  std::size_t size) const {
    const std::uint32_t code = size >= records::kNotificationFixedSize ? U32At(message, 20) : 0;
    Require(problems <= 1, "a failure is logged as one line");
    if (!reply) {
      Require(code == kNoReplyCode, "only code 4113 has no reply");
      return;
    }
    const Bytes bytes = BytesOf(reply);
    static constexpr std::uint8_t kReplyMagic[] = {0xe4, 0x42, 0x33, 0xb1, 0xb2, 0xc3, 0x65, 0x53};
    Require(bytes.size() >= 156, "a reply has its fixed part");
    Require(std::memcmp(bytes.data(), kReplyMagic, sizeof(kReplyMagic)) == 0, "a reply starts with its magic");
    Require(U32At(bytes.data(), 8) == 156, "a reply has the size of its fixed part");
    const std::uint32_t verdict = U32At(bytes.data(), 12);
    Require(verdict >= 2 && verdict <= 8, "a verdict is 2 to 8");
    Require(code != kNoReplyCode || problems == 1, "code 4113 has a reply only after a failure");

    const bool oplock = code != 0 && message[29] != 0;
    const std::uint32_t judged = oplock ? (behaviour.clientType2 ? 7U : 3U) : VerdictOf(behaviour);
    Require(verdict == judged || verdict == kUnjudged, "the verdict is that of the decision, or 8");
    Require(verdict == kUnjudged || problems == 0, "a judged reply logs no problem");
    Require(verdict != kUnjudged || judged == kUnjudged || problems == 1, "verdict 8 comes with a line");
    const std::string failed = FailedOperation(behaviour);
    const bool lineLost = failed == "CLog::LogDetail" || failed == "CLocale::TranslateText";
    Require(!lineLost || verdict == judged, "a lost line does not change the verdict");
    Require(code >= 4097 && code <= 8206 ? true : verdict == kUnjudged, "an unknown code is not judged");
    CheckContext(behaviour, bytes, verdict);
  }

  static void CheckContext(const Behaviour& behaviour, const Bytes& bytes, std::uint32_t verdict) {
    if (bytes.size() == 156) {
      Require(verdict != kContextVerdict, "verdict 6 has context data");
      return;
    }
    const auto& data = behaviour.contextData;
    Require(behaviour.decision == kContextDecision && data && !data->empty(), "only decision 5 has context data");
    Require(bytes.size() == 156 + data->size() + 2, "a reply has room for its context data and two bytes");
    Require(U32At(bytes.data(), 16) == data->size() + 2, "a reply has the size of what follows");
    Require(std::memcmp(bytes.data() + 156, data->data(), data->size()) == 0, "context data arrives unchanged");
  }

  FakeHost host;
  std::shared_ptr<CWinDriverInteract> interacts[2][2];  // by client type, by stopped
  int problems = 0;                                     // problem lines of the current run
  bool recordReached = false;                           // whether the current run created its record
  int buffersAsked = 0;                                 // buffers that the current run requested
};

}  // namespace
}  // namespace fenlux::testing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::testing;
  if (size < kControlBytes) return 0;
  // Never destroyed: the parked refresh threads use it to the end.
  static auto& setting = *new Setting;
  setting.Run(Read(data), data + kControlBytes, size - kControlBytes);
  return 0;
}
