// One function for each kind of packet.
#include "refhost/app/replay/replay_player.h"

#include <algorithm>
#include <utility>

#include "core/fenlux.h"
#include "fenlux/driver_protocol.h"
#include "refhost/app/control/control_protocol.h"
#include "refhost/app/replay/replay_messages.h"
#include "refhost/capture/format/packet_loop.h"

namespace fenlux::refhost {
namespace {

using capture::Kind;
using capture::Packet;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A request with different content is accepted as the recorded one if no identical one arrives within this time.
constexpr milliseconds kSimilarAfter{1500};
// After this, the module is notified even if the capture does not show why it applied its policy.
constexpr milliseconds kPolicyTimeout{1000};
constexpr milliseconds kTimeoutAfterFailure{2000};
// How long to wait for a call while another thread waits for the driver, possibly with a lock that the call needs.
constexpr milliseconds kBlockedTimeout{1000};

}  // namespace

ReplayPlayer::ReplayPlayer(const capture::CaptureOutline& captureOutline, const ReplayFacts& firstFacts,
                           ReplayHost& replayHost, PlayedDriver& playedDriver, ReplaySettings replaySettings)
    : outline(captureOutline),
      host(replayHost),
      driver(playedDriver),
      settings(std::move(replaySettings)),
      rules{.requestContents = firstFacts.complete, .rootNames = firstFacts.samePlatform},
      facts(captureOutline.facts),
      calls(replayHost.Context()) {}

void ReplayPlayer::Play(capture::CaptureReader& reader) {
  startTime = Clock::now();
  if (!outline.startsWork) host.Context()->Module()->StartWork();
  capture::ReadPackets(reader, {.packet = [this](const Packet& packet) { PlayPacket(packet); },
                                .problem = [](const capture::Problem&) {},  // the outline has reported it
                                .progress = settings.progress});
  Finish();
}

void ReplayPlayer::PlayPacket(const Packet& packet) {
  Pace(packet);
  switch (packet.header.kind) {
    case Kind::kConnectContext:
      return PlayConnect(packet);
    case Kind::kRequest:
      return PlayRequest(packet);
    case Kind::kRequestReply:
      return PlayRequestReply(packet);
    case Kind::kNotification:
      return PlayNotification(packet);
    case Kind::kNotificationReply:
      return PlayNotificationReply(packet);
    case Kind::kJudgement:
      return PlayJudgement(packet);
    case Kind::kClosed:
      return PlayClosed(packet);
    case Kind::kFacts:
      return PlayFacts(packet);
    case Kind::kCall:
      return PlayCall(packet);
  }
}

void ReplayPlayer::Pace(const Packet& packet) {
  if (!settings.recordedPace) return;
  if (!firstTime) firstTime = packet.time;
  const Kind kind = packet.header.kind;
  if (packet.time <= *firstTime || kind == Kind::kConnectContext || kind == Kind::kRequest) return;
  std::this_thread::sleep_until(startTime + std::chrono::nanoseconds(packet.time - *firstTime));
}

void ReplayPlayer::PlayFacts(const Packet& packet) {
  const std::string text(packet.Text());
  if (text == facts) return;  // the host has them
  host.Replace(ReadReplayFacts(text, {}));
  facts = text;
}

void ReplayPlayer::PlayCall(const Packet& packet) {
  const std::optional<ControlRequest> call = DecodeRequest(std::string(packet.Text()));
  if (!call) return Report(packet, "the call is malformed");
  ++totals.calls;
  if (call->operation == "start-work") return host.Context()->Module()->StartWork();
  if (call->operation == "policy-changed") {
    policyDue = true;  // the module is notified when the capture shows that it was
    return;
  }
  const auto settle = [&] {
    calls.Settle({
        .isWaiting =
            [&](std::thread::id thread) {
              return std::ranges::any_of(ports, [&](const auto& entry) { return entry.second->IsWaiting(thread); });
            },
        .mayBlock =
            [&] { return std::ranges::any_of(ports, [](const auto& entry) { return entry.second->HasRequests(); }); },
        .blockedTimeout = kBlockedTimeout,
        .timeout = Timeout(),
    });
  };
  settle();  // the recording host ran one operation after the other, unless one waited for the driver
  if (!calls.Begin(call->operation, call->arguments)) {
    return Report(packet, "this host has no such operation: " + call->operation);
  }
  settle();
}

void ReplayPlayer::PlayRequest(const Packet& packet) {
  const std::shared_ptr<PlayedPort> port = FindPort(packet.header.connection);
  if (port == nullptr) return;
  const Bytes recorded = WholeBytes(packet);
  const std::uint32_t command = CommandOf(recorded);
  const std::shared_ptr<PlayedRequest> request = AwaitRequest(packet, recorded);
  if (request == nullptr) {
    timedOut = true;
    return Report(packet, "the module did not send " + RequestName(command));
  }
  timedOut = false;
  ++totals.requests;
  Compare(packet, recorded, request->bytes, "a different request");
  lastCommands[request->thread] = command;
  if (command == FENLUX_COMMAND_DRIVER_CONFIG) policyDue = false;
  exchanges[packet.header.exchange] = {port, request, nullptr, std::nullopt};
}

std::shared_ptr<PlayedRequest> ReplayPlayer::AwaitRequest(const Packet& packet, const Bytes& recorded) {
  const std::shared_ptr<PlayedPort> port = FindPort(packet.header.connection);
  const std::uint32_t command = CommandOf(recorded);
  const Clock::time_point begin = Clock::now();
  std::map<const PlayedRequest*, bool> same;  // results of earlier comparisons
  const auto accepts = [&](const PlayedRequest& request) {
    const auto [known, isNew] = same.try_emplace(&request, false);
    if (isNew) known->second = !CompareMessages(Kind::kRequest, recorded, request.bytes, rules);
    if (known->second) return true;
    return CommandOf(request.bytes) == command && Clock::now() - std::max(begin, request.arrival) >= kSimilarAfter;
  };
  auto request = port->Take(accepts, milliseconds(0));
  while (request == nullptr && Clock::now() - begin < Timeout()) {
    const bool isLate = Clock::now() - begin >= kPolicyTimeout;
    // A commit without a policy before it clears the objects, as when a host stops the module's work.
    const bool clears = command == FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS && !outline.calls && !policyDue;
    if (clears && isLate) StopUnrecorded(true);
    if (!clears && capture::BelongsToPolicy(command) && (policyDue || isLate)) NotifyOfPolicy();
    request = port->Take(accepts, kPolicyInterval);
  }
  return request;
}

void ReplayPlayer::PlayRequestReply(const Packet& packet) {
  const auto found = exchanges.find(packet.header.exchange);
  if (found == exchanges.end() || found->second.request == nullptr) return;
  found->second.port->Answer(*found->second.request, {std::string(packet.comment), WholeBytes(packet)});
  exchanges.erase(found);
}

void ReplayPlayer::PlayNotification(const Packet& packet) {
  const std::shared_ptr<PlayedPort> port = FindPort(packet.header.connection);
  if (port == nullptr) return;
  if (!port->AwaitStart(Timeout())) return Report(packet, "the module did not start the port");
  const auto delivery = std::make_shared<PlayedDelivery>(port->Handler(), WholeBytes(packet));
  exchanges[packet.header.exchange] = {port, nullptr, delivery, std::nullopt};
  crew.Begin(delivery);
  delivery->AwaitProgress(Timeout());
}

void ReplayPlayer::PlayJudgement(const Packet& packet) {
  const auto found = exchanges.find(packet.header.exchange);
  if (found == exchanges.end()) return;
  found->second.decision = RecordedDecision(packet.Text());
}

void ReplayPlayer::PlayNotificationReply(const Packet& packet) {
  const auto found = exchanges.find(packet.header.exchange);
  if (found == exchanges.end() || found->second.delivery == nullptr) return;
  const Exchange exchange = std::move(found->second);
  exchanges.erase(found);
  const Bytes recorded = WholeBytes(packet);
  exchange.delivery->Judge(JudgementOf(recorded, exchange.decision, exchange.port->Context()));
  if (!exchange.delivery->AwaitReply(Timeout())) {
    timedOut = true;
    return Report(packet, "the module did not reply");
  }
  // In the recording, the host could not handle the notification, for reasons unrelated to the module.
  if (!packet.comment.empty()) return;
  ++totals.notifications;
  if (!exchange.delivery->Failure().empty()) {
    return Report(packet, "the module's handler failed: " + exchange.delivery->Failure());
  }
  Compare(packet, recorded, exchange.delivery->Reply(), "a different reply");
}

void ReplayPlayer::Finish() {
  for (auto& [number, exchange] : exchanges) {
    if (exchange.delivery != nullptr) exchange.delivery->Judge({});
  }
  LeaveConnections({}, 0);
  calls.Settle({.isWaiting = [](std::thread::id) { return false; },
                .mayBlock = [] { return false; },
                .blockedTimeout = kBlockedTimeout,
                .timeout = kTimeoutAfterFailure});
}

void ReplayPlayer::Report(const Packet& packet, std::string what, std::optional<capture::MessageDifference> message) {
  ++totals.differences;
  settings.difference(
      {packet.offset, packet.header.connection, packet.header.exchange, std::move(what), std::move(message)});
}

void ReplayPlayer::Compare(const Packet& packet, const Bytes& recorded, const Bytes& replayed, const char* what) {
  auto difference = capture::CompareMessages(packet.header.kind, recorded, replayed, rules);
  if (difference) Report(packet, what, std::move(difference));
}

milliseconds ReplayPlayer::Timeout() const {
  return timedOut ? std::min(kTimeoutAfterFailure, settings.timeout) : settings.timeout;
}

std::shared_ptr<PlayedPort> ReplayPlayer::FindPort(std::uint32_t connection) const {
  const auto found = ports.find(connection);
  return found == ports.end() ? nullptr : found->second;
}

}  // namespace fenlux::refhost
