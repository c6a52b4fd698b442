// Plays any module against the emulated driver: opens and closes ports, sends requests, and answers notifications. The
// driver must accept exactly what the protocol allows, and count every notification once.
//
// An input is a sequence of steps (see the README). The expected result of each step follows from the parsers of
// driver_protocol.h, which share no code with the emulator, and from a few facts about the connection that this file
// keeps.
#include <array>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fenlux/driver_protocol.h"
#include "fuzz/support/fuzzing.h"
#include "refhost/emulator/driver/emulated_driver.h"
#include "refhost/emulator/driver/port_client.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

using testing::ExactBytes;
using testing::FuzzInput;
using testing::Require;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMaxSteps = 64;
constexpr char kPortNameText[] = "\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E";
constexpr char kFaultText[] = "the driver fails on request";

// What one call of the driver did.
struct Outcome {
  bool threw = false;
  std::string text;  // of the exception

  bool ByFault() const { return threw && (text.empty() || text.find(kFaultText) != std::string::npos); }
};

template <typename Action>
Outcome Try(const Action& action) {
  try {
    action();
  } catch (const std::exception& error) {
    Require(error.what()[0] != '\0', "a refusal has a reason");
    return {true, error.what()};
  } catch (int) {  // one of the faults
    return {true, {}};
  }
  return {};
}

// A buffer whose memory is exactly its size, as long as the vector was made with that size.
class ExactBuffer final : public CBuf {
 public:
  explicit ExactBuffer(Bytes bytes) : content(std::move(bytes)) {}
  std::uint8_t* GetData() override { return content.empty() ? nullptr : content.data(); }
  std::size_t GetSize() override { return content.size(); }

 private:
  Bytes content;
};

std::shared_ptr<CBuf> Buffer(Bytes bytes) { return std::make_shared<ExactBuffer>(std::move(bytes)); }

struct Port {
  std::shared_ptr<EmulatorPortClient> client;
  bool valid = false;  // its parameters follow the protocol
  std::uint32_t clientType = 0;
  bool connected = false;
  bool started = false;
  bool ended = false;  // closed, or dropped by the driver
};

class Play {
 public:
  Play() { settings.deadline = std::chrono::hours(1); }

  void Run(FuzzInput input) {
    driver = std::make_shared<EmulatedDriver>(settings, EmulatorFaults{}, EmulatorHooks{});
    slot = driver->Deliveries().MakeSlot();
    using Step = void (Play::*)(FuzzInput&);
    static constexpr Step kSteps[] = {&Play::OpenValid, &Play::OpenAny,  &Play::Start, &Play::SendCommand,
                                      &Play::SendRaw,   &Play::Deliver,  &Play::Close, &Play::SetFaults,
                                      &Play::Select,    &Play::Reconnect};
    for (std::size_t i = 0; i < kMaxSteps && !input.Empty(); ++i) {
      (this->*kSteps[input.U8() % std::size(kSteps)])(input);
      CheckState();
    }
    ports.clear();
    driver->BeginStop();
    driver->FinishStop();
    CheckState();
    Require(!driver->Model().State().connected, "nothing is connected after the stop");
  }

 private:
  Port* Current() { return selected < ports.size() ? &ports[selected] : nullptr; }

  void OpenValid(FuzzInput& input) {
    const std::uint32_t type = 1 + input.U8() % 2;
    FenluxConnectContextView view{};
    Bytes context(FENLUX_CONNECT_CONTEXT_SIZE);
    FenluxStoreU64(context.data(), FENLUX_CONNECT_MAGIC);
    FenluxStoreU32(context.data() + 8, FENLUX_CONNECT_VERSION);
    FenluxStoreU32(context.data() + 12, type);
    Require(FenluxParseConnectContext(context.data(), context.size(), &view) == FENLUX_OK, "the context is valid");
    Make(kPortNameText, context, FENLUX_MAX_NOTIFICATION_SIZE, true, type);
    Connect(ports.back());
    Start(input);
  }

  void OpenAny(FuzzInput& input) {
    const std::uint8_t flags = input.U8();
    const std::string name = (flags & 1) != 0 ? std::string(input.TakeText(input.U8())) : kPortNameText;
    const std::uint32_t size = (flags & 2) != 0 ? input.U32() : std::uint32_t{FENLUX_MAX_NOTIFICATION_SIZE};
    const bool handler = (flags & 4) == 0;
    std::optional<Bytes> context;
    if ((flags & 8) == 0) context = input.Take(input.U8());
    FenluxConnectContextView view{};
    const bool contextValid =
        context && FenluxParseConnectContext(Exact(*context).Data(), context->size(), &view) == FENLUX_OK;
    const bool valid = contextValid && name == kPortNameText && size == FENLUX_MAX_NOTIFICATION_SIZE && handler;
    Make(name, context, size, handler, valid ? view.clientType : 0);
    Connect(ports.back());
  }

  void Make(const std::string& name, const std::optional<Bytes>& context, std::uint32_t size, bool hasHandler,
            std::uint32_t clientType) {
    NotificationHandler handler;
    if (hasHandler) handler = [this](const void* message, std::uint32_t bytes) { return Handle(message, bytes); };
    auto port = std::make_shared<DriverPort>(
        PortRequest{name, context ? Buffer(*context) : nullptr, size, std::move(handler), 7});
    ports.push_back({std::make_shared<EmulatorPortClient>(driver, std::move(port)), clientType != 0, clientType});
    selected = ports.size() - 1;
  }

  // The port that is connected and has not ended; null if there is none.
  const Port* Open() const {
    for (const Port& port : ports) {
      if (port.connected && !port.ended) return &port;
    }
    return nullptr;
  }

  void Connect(Port& port) {
    const Port* const open = Open();
    const EmulatorState before = driver->Model().State();
    const Outcome outcome = Try([&] { port.client->Connect(); });
    const EmulatorState after = driver->Model().State();
    const bool allowed = port.valid && !port.ended && !port.connected && open == nullptr;
    if (!outcome.threw) {
      Require(allowed, "only a valid port connects, and only while no other one is open");
      port.connected = true;
      connectedIndex = static_cast<std::size_t>(&port - ports.data());
      openList.reset();
      Require(after.connects == before.connects + 1 && after.connected, "a connection is counted");
      Require(after.clientType == port.clientType, "the connection has the client type of its context");
      Require(after.requests.empty() && after.protocolViolations == before.protocolViolations,
              "a connection begins with nothing");
      return;
    }
    Require(!allowed || refusals > 0, "a valid port is refused only by a fault");
    if (allowed) --refusals;
    Require(after.connects == before.connects, "a refused port is not counted as connected");
  }

  void Reconnect(FuzzInput&) {
    if (Port* port = Current()) Connect(*port);
  }

  void Start(FuzzInput&) {
    Port* const port = Current();
    if (port == nullptr) return;
    const bool allowed = port->connected && !port->ended && !port->started;
    const Outcome outcome = Try([&] { port->client->Start(); });
    Require(outcome.threw != allowed, "a connected port starts once");
    if (allowed) port->started = true;
  }

  void Close(FuzzInput&) {
    Port* const port = Current();
    if (port == nullptr) return;
    port->client->Close();
    port->client->Wait();
    port->ended = true;
  }

  void Select(FuzzInput& input) {
    if (!ports.empty()) selected = input.U8() % ports.size();
  }

  void SetFaults(FuzzInput& input) {
    EmulatorFaults faults;
    const std::uint8_t which = input.U8();
    if ((which & 1) != 0) faults.refuseConnects = refusals = input.U8() % 4;
    if ((which & 2) != 0) faults.dropAfter = input.U8() % 8;
    if ((which & 4) != 0) faults.driverVersion = version = input.U32();
    if ((which & 8) != 0) faults.versionReply = manner = static_cast<VersionReply>(input.U8() % 4);
    if ((which & 16) != 0) {
      const std::uint8_t command = input.U8();
      const std::uint32_t nth = 1 + input.U8() % 4U;
      faults.failSend = FailingSend{command, nth, static_cast<SendFailure>(input.U8() % 3)};
    }
    driver->SetFaults(faults);
  }

  // The magic, a command and its payload; the rest of the request is 0.
  void SendCommand(FuzzInput& input) {
    Bytes request(FENLUX_REQUEST_SIZE);
    FenluxStoreU64(request.data(), FENLUX_REQUEST_MAGIC);
    FenluxStoreU32(request.data() + 8, input.U8());
    const Bytes payload = input.Take(input.U8());
    std::copy(payload.begin(), payload.end(), request.begin() + FENLUX_REQUEST_HEADER_SIZE);
    Send(std::move(request), true);
  }

  void SendRaw(FuzzInput& input) {
    const std::uint8_t flags = input.U8();
    Bytes request = input.Take(input.U8());
    if ((flags & 1) != 0) request.resize(FENLUX_REQUEST_SIZE - (flags >> 6));
    Send(std::move(request), (flags & 2) == 0);
  }

  void Send(Bytes bytes, bool flag) {
    Port* const port = Current();
    if (port == nullptr) return;
    const bool alive = port->connected && !port->ended;
    const EmulatorState before = driver->Model().State();
    // Large memory is slow under the address sanitizer, so only the request that needs a reply buffer gets one.
    const bool asksVersion = bytes.size() >= 12 && FenluxLoadU32(bytes.data() + 8) == FENLUX_COMMAND_DRIVER_VERSION;
    std::shared_ptr<CBuf> versionReply =
        std::make_shared<HeapBuffer>(std::size_t{asksVersion ? FENLUX_REQUEST_SIZE : 1});
    const std::shared_ptr<CBuf> request = Buffer(std::move(bytes));
    const CBuf* const given = versionReply.get();
    const Outcome outcome = Try([&] { port->client->Send(request, versionReply, flag); });
    const EmulatorState after = driver->Model().State();
    if (!alive) return Require(outcome.threw, "a port that is not open accepts no request");
    const std::uint64_t flagViolation = flag ? 0 : 1;
    if (outcome.ByFault()) {
      return Require(after.protocolViolations == before.protocolViolations + flagViolation,
                     "a fault is no violation of the protocol");
    }
    FenluxRequestView view{};
    const bool parsed = FenluxParseRequest(request->GetData(), request->GetSize(), &view) == FENLUX_OK;
    const bool allowed = parsed && AllowedNow(view, *port);
    Require(outcome.threw != allowed, "the driver accepts exactly the requests that the protocol allows");
    Require(after.protocolViolations == before.protocolViolations + flagViolation + (allowed ? 0 : 1),
            "a refused request is a violation, an accepted one is none");
    if (!allowed) return;
    const auto counted = after.requests.find(view.command);
    Require(counted != after.requests.end(), "an accepted request is counted");
    if (view.command == FENLUX_COMMAND_NET_ITEM_LIST_BEGIN) openList = view.payload.listType;
    if (view.command == FENLUX_COMMAND_NET_ITEM_LIST_END) openList.reset();
    CheckAnswer(view.command, versionReply.get(), given);
  }

  // The rules that depend on the connection.
  bool AllowedNow(const FenluxRequestView& view, const Port& port) const {
    switch (view.command) {
      case FENLUX_COMMAND_GRPM_SWITCH:
      case FENLUX_COMMAND_GRSP_SWITCH:
        return view.payload.clientSwitch.clientType == port.clientType;
      case FENLUX_COMMAND_NET_ITEM_LIST_BEGIN:
        return !openList;
      case FENLUX_COMMAND_NET_ITEM:
        return openList == view.payload.netItem.listType;
      case FENLUX_COMMAND_NET_ITEM_LIST_END:
        return openList == view.payload.listType;
      default:
        return true;
    }
  }

  void CheckAnswer(FenluxCommand command, CBuf* received, const CBuf* given) const {
    if (command != FENLUX_COMMAND_DRIVER_VERSION || manner == VersionReply::kEmpty) {
      return Require(received == nullptr, "only the version request is answered");
    }
    Require((received == given) == (manner == VersionReply::kFill), "the version is in the expected buffer");
    const bool complete = manner != VersionReply::kShort;
    Require(FenluxReadVersionReply(received->GetData(), received->GetSize()) == version || !complete,
            "the answer holds the version");
  }

  // A notification, and the module's answer to it.
  void Deliver(FuzzInput& input) {
    const std::uint8_t flags = input.U8();
    const std::uint16_t code = input.U16();
    const Bytes tail = input.Take(input.U8() % 16U);
    Bytes message(FENLUX_NOTIFICATION_FIXED_SIZE);
    FenluxStoreU32(message.data() + 20, code);
    message[29] = (flags & 0x10) != 0 ? 1 : 0;
    message.insert(message.end(), tail.begin(), tail.end());
    if ((flags & 0x20) != 0) message.resize(tail.size() * 10);
    answer = static_cast<Answer>(flags % 4);
    reply = answer == Answer::kReply ? Bytes(FENLUX_REPLY_FIXED_SIZE) : Bytes();
    if (answer == Answer::kReply) {
      FenluxStoreU64(reply.data(), FENLUX_REPLY_MAGIC);
      FenluxStoreU32(reply.data() + 8, FENLUX_REPLY_FIXED_SIZE);
      FenluxStoreU32(reply.data() + 12, input.U8());
      FenluxStoreU32(reply.data() + 16, input.U8());
      const Bytes context = input.Take(input.U8());
      reply.insert(reply.end(), context.begin(), context.end());
    } else if (answer == Answer::kAny) {
      reply = input.Take(input.U8());
    }

    const Port* const open = Open();
    const EmulatorTotals before = driver->Totals().Snapshot();
    const ExactBytes exact(message);
    DeliveryOptions options;
    handled = false;
    const Delivery delivery =
        driver->Deliveries().Deliver(*slot, NotificationView(exact.Data(), exact.Size()), options);
    const EmulatorTotals after = driver->Totals().Snapshot();
    if (!handled) {
      Require(delivery.outcome == Delivery::Outcome::kNotConnected && after.delivered == before.delivered,
              "what is not delivered is not counted");
      return Require(open == nullptr || !open->started, "a started port gets every notification");
    }
    Require(open != nullptr && open->started, "only a started port gets notifications");
    Require(after.delivered == before.delivered + 1, "a delivery is counted");
    CheckDelivery(delivery, message, open->clientType);
  }

  void CheckDelivery(const Delivery& delivery, const Bytes& message, std::uint32_t clientType) const {
    const bool complete = message.size() >= FENLUX_NOTIFICATION_FIXED_SIZE;
    const std::uint32_t code = message.size() >= 24 ? FenluxLoadU32(message.data() + 20) : 0;
    const bool judgeable = complete && FenluxIsNotificationCode(code) != 0;
    const bool expected = !judgeable || FenluxIsReplyExpected(code) != 0;
    const bool oplock = judgeable && message[29] != 0;
    using Kind = Delivery::Outcome;
    if (answer == Answer::kThrow) {
      return Require(delivery.outcome == Kind::kLost && delivery.cause == UnjudgedCause::kHandlerThrew,
                     "an exception of the handler is counted as such");
    }
    if (answer == Answer::kNone) {
      if (!expected) return Require(delivery.outcome == Kind::kUnansweredByDesign, "no reply was expected");
      return Require(delivery.outcome == Kind::kLost && delivery.cause == UnjudgedCause::kEmptyReply,
                     "a missing reply is counted as such");
    }
    FenluxReplyView view{};
    const ExactBytes exact(reply);
    const std::uint32_t passing = clientType == 2 ? 7 : 3;
    bool good = FenluxParseReply(exact.Data(), exact.Size(), &view) == FENLUX_OK;
    if (good && view.verdict != FENLUX_VERDICT_UNJUDGED) {
      good = judgeable && expected && !(clientType == 2 && view.verdict == FENLUX_VERDICT_PASS) &&
             (!oplock || view.verdict == passing);
    }
    if (good) {
      Require(delivery.outcome == Kind::kAnswered && delivery.verdict == view.verdict, "a valid reply is accepted");
    } else {
      Require(delivery.outcome == Kind::kLost && delivery.cause == UnjudgedCause::kMalformedReply,
              "an invalid reply is counted as such");
    }
  }

  std::shared_ptr<CBuf> Handle(const void*, std::uint32_t) {
    handled = true;
    if (answer == Answer::kThrow) throw std::runtime_error("the module fails");
    return answer == Answer::kNone ? nullptr : Buffer(reply);
  }

  void CheckState() {
    const EmulatorTotals totals = driver->Totals().Snapshot();
    Require(totals.AddsUp() && totals.inFlight == 0, "the totals add up");
    const EmulatorState state = driver->Model().State();
    if (!state.connected && connectedIndex < ports.size()) ports[connectedIndex].ended = true;
    Require(state.violationTexts.size() <= kMaxViolationTexts, "the kept violations are limited");
    Require(state.violationTexts.size() == std::min<std::uint64_t>(state.protocolViolations, kMaxViolationTexts),
            "every violation has its text");
  }

  static ExactBytes Exact(const Bytes& bytes) { return ExactBytes(bytes); }

  enum class Answer { kReply, kAny, kNone, kThrow };

  EmulatorSettings settings;
  std::shared_ptr<EmulatedDriver> driver;
  std::shared_ptr<AnswerSlot> slot;
  std::vector<Port> ports;
  std::size_t selected = 0;
  std::size_t connectedIndex = ~std::size_t{0};  // the last port that connected
  std::optional<std::uint32_t> openList;
  std::uint32_t refusals = 0;
  std::uint32_t version = EmulatorSettings().driverVersion;
  VersionReply manner = VersionReply::kFill;
  Answer answer = Answer::kNone;
  Bytes reply;
  bool handled = false;
};

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fenlux::refhost::Play().Run(fenlux::testing::FuzzInput(data, size));
  return 0;
}
