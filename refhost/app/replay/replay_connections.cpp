// The part of the player that opens, closes and abandons connections.
#include <utility>

#include "core/fenlux.h"
#include "fenlux/driver_protocol.h"
#include "refhost/app/replay/replay_messages.h"
#include "refhost/app/replay/replay_player.h"
#include "refhost/capture/format/close_reasons.h"

namespace fenlux::refhost {
namespace {

using capture::Packet;
using Clock = std::chrono::steady_clock;

// How long the module may take to close a connection if the capture does not contain the call that closed it.
constexpr std::chrono::milliseconds kCloseTime{1000};

}  // namespace

void ReplayPlayer::PlayConnect(const Packet& packet) {
  LeaveConnections(packet.header, packet.offset);
  ++totals.connections;
  const std::shared_ptr<PlayedPort> port = driver.AwaitConnect(settings.timeout);
  if (port == nullptr) {
    timedOut = true;
    return Report(packet, "the module did not connect");
  }
  Compare(packet, WholeBytes(packet), port->Context(), "a different connect context");
  const auto found = outline.connections.find(packet.header.connection);
  if (found == outline.connections.end()) return port->Refuse("there are too many connections");
  const capture::ConnectionOutline& connection = found->second;
  if (connection.refused) return port->Refuse(*connection.refused);
  host.SetSystemProcesses(connection.settings.systemProcesses);
  ports[packet.header.connection] = port;
  policyDue = true;
  if (connection.opening) return port->Accept(Answering::kPlayer);
  port->Accept(outline.requests ? Answering::kOpening : Answering::kPort);
  if (!outline.requests || AwaitOpening(*port)) return;
  port->EndOpening();
  Report(packet, "the module did not open the connection completely");
}

bool ReplayPlayer::AwaitOpening(PlayedPort& port) {
  const auto deadline = Clock::now() + settings.timeout;
  while (!port.AwaitOpening(kPolicyInterval)) {
    if (Clock::now() >= deadline) return false;
    port.UnlessPolicyApplied([this] { NotifyOfPolicy(); });
  }
  policyDue = false;
  return true;
}

void ReplayPlayer::NotifyOfPolicy() {
  if (!calls.Running()) host.Context()->Module()->NotifyPolicyChanged();
}

void ReplayPlayer::StopUnrecorded(bool clear) {
  if (outline.calls || calls.Running()) return;
  calls.Begin("stop", clear ? ControlArguments{{"clear", "true"}} : ControlArguments());
}

void ReplayPlayer::PlayClosed(const Packet& packet) {
  const std::shared_ptr<PlayedPort> port = FindPort(packet.header.connection);
  if (port == nullptr) return;
  if (!capture::ClosedByModule(packet.Text())) {
    port->End();
    return;
  }
  if (port->AwaitEnd(outline.calls ? Timeout() : kCloseTime)) return;
  StopUnrecorded(false);
  if (port->AwaitEnd(Timeout())) return;
  port->End();
  Report(packet, "the module did not close the connection");
}

void ReplayPlayer::LeaveConnections(const capture::PacketHeader& header, std::uint64_t offset) {
  for (const auto& [number, port] : ports) {
    const auto known = outline.connections.find(number);
    const bool closed = known != outline.connections.end() && known->second.closed;
    for (const std::shared_ptr<PlayedRequest>& request : port->Waiting()) {
      const std::uint32_t command = CommandOf(request->bytes);
      const auto last = lastCommands.find(request->thread);
      // The policy worker may begin to apply the policy at any time, so a recording may end just before it does.
      const bool atBeginning = last == lastCommands.end() || last->second == FENLUX_COMMAND_DRIVER_CONFIG;
      if (!closed || (atBeginning && BeginsPolicy(command))) continue;
      Packet place;
      place.header = {header.kind, number, 0};
      place.offset = offset;
      Report(place, "the module sent " + RequestName(command) + ", which is not in the capture");
    }
    port->End();
    port->Release();
  }
  ports.clear();
}

}  // namespace fenlux::refhost
