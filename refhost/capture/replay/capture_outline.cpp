// Collects the outline in one pass over the packets.
#include "refhost/capture/replay/capture_outline.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "fenlux/driver_protocol.h"
#include "refhost/capture/decode/json_text.h"
#include "refhost/capture/decode/record_fields.h"
#include "refhost/capture/format/close_reasons.h"
#include "refhost/capture/format/packet_loop.h"

namespace fenlux::capture {
namespace {

constexpr std::size_t kMaxProblems = 10;
constexpr std::size_t kMaxConnections = 65536;

void AddRequest(const FenluxRequestView& view, ConnectionOutline& connection) {
  ObservedSettings& settings = connection.settings;
  const auto& payload = view.payload;
  switch (view.command) {
    case FENLUX_COMMAND_SPSP_STATE:
      settings.spsp.assign(payload.switches, payload.switches + 4);
      break;
    case FENLUX_COMMAND_SYSTEM_PROCESS:
      settings.systemProcesses.emplace(payload.systemProcess.kind, payload.systemProcess.processId);
      break;
    case FENLUX_COMMAND_ADD_MONITOR_OBJECT:
      settings.objectType = payload.monitorObject.objectType;
      settings.paths.push_back(Utf8(payload.monitorObject.path));
      break;
    case FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS:
      settings.objectType = payload.objectType;
      break;
    case FENLUX_COMMAND_DRIVER_CONFIG: {
      std::size_t size = payload.configBlock.size;
      while (size > 0 && payload.configBlock.data[size - 1] == 0) --size;
      settings.configBlock.assign(payload.configBlock.data, payload.configBlock.data + size);
      connection.applied = true;
      break;
    }
    default:
      break;
  }
}

class OutlineReader {
 public:
  explicit OutlineReader(CaptureOutline& target) : outline(target) {}

  void Add(const Packet& packet) {
    ++outline.packets;
    outline.lost += packet.dropped;
    switch (packet.header.kind) {
      case Kind::kConnectContext:
        Connect(packet);
        break;
      case Kind::kRequest:
        outline.requests = true;
        AddRequestOf(packet);
        break;
      case Kind::kClosed:
        Close(packet);
        break;
      case Kind::kFacts:
        if (outline.facts.empty()) outline.facts = packet.Text();
        break;
      case Kind::kCall:
        AddCall(packet);
        break;
      default:
        break;
    }
  }

 private:
  void Connect(const Packet& packet) {
    if (outline.connections.size() == kMaxConnections) return;
    outline.connections[packet.header.connection].context.assign(packet.message.begin(), packet.message.end());
  }

  void AddRequestOf(const Packet& packet) {
    const auto found = outline.connections.find(packet.header.connection);
    if (found == outline.connections.end()) return;
    ConnectionOutline& connection = found->second;
    const auto message = WholeMessage(packet.message, packet.originalSize, buffer);
    FenluxRequestView view;
    if (FenluxParseRequest(message.data(), message.size(), &view) != FENLUX_OK) return;
    connection.anyRequest = true;
    // One thread of the module first sends the four switches and then registers system processes. Another thread
    // applies the policy at the same time, and its requests may arrive first.
    if (!connection.anyOutsidePolicy && !BelongsToPolicy(view.command)) {
      connection.anyOutsidePolicy = true;
      connection.opening = view.command == FENLUX_COMMAND_SPSP_STATE && !outline.sendsSwitches;
    }
    if (IsOpening(view.command, connection)) AddRequest(view, connection);
  }

  // Later requests result from the host's calls, as do registrations of processes if it made such a call.
  bool IsOpening(std::uint32_t command, const ConnectionOutline& connection) const {
    if (command == FENLUX_COMMAND_SYSTEM_PROCESS) return !outline.registersProcess;
    if (command == FENLUX_COMMAND_SPSP_STATE) return connection.settings.spsp.empty();
    return !connection.applied;
  }

  void Close(const Packet& packet) {
    const auto found = outline.connections.find(packet.header.connection);
    if (found == outline.connections.end()) return;
    ConnectionOutline& connection = found->second;
    connection.closed = true;
    const bool driverEnded = packet.Text() == kDriverEnded;
    if (!connection.anyRequest && !driverEnded && !ClosedByModule(packet.Text())) {
      connection.refused = std::string(packet.Text());
    }
  }

  void AddCall(const Packet& packet) {
    outline.calls = true;
    const std::optional<refhost::Report> call = ParseJsonObject(packet.Text());
    const auto operation = call ? call->find("operation") : refhost::Report::const_iterator();
    if (!call || operation == call->end()) return;
    if (*operation == "start-work") outline.startsWork = true;
    if (*operation == "register-process") outline.registersProcess = true;
    if (*operation == "spsp") outline.sendsSwitches = true;
  }

  CaptureOutline& outline;
  std::string buffer;
};

}  // namespace

bool BelongsToPolicy(std::uint32_t command) {
  return command == FENLUX_COMMAND_ADD_MONITOR_OBJECT || command == FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS ||
         command == FENLUX_COMMAND_DUMP_DEBUG_INFO || command == FENLUX_COMMAND_DRIVER_CONFIG;
}

std::string CaptureOutline::Obstacle() const {
  if (!isCapture) return "it is not a capture";
  if (!problems.empty()) {
    return fmt::format("it is damaged at offset {}: {}", problems.front().offset, problems.front().text);
  }
  if (lost != 0) return fmt::format("it lacks {} messages, and a replay needs all of them", lost);
  if (packets == 0) return "it has no messages";
  return {};
}

CaptureOutline ReadOutline(std::istream& stream, const std::function<void(std::uint64_t offset)>& progress) {
  CaptureOutline outline;
  OutlineReader collector(outline);
  CaptureReader reader(stream);
  ReadPackets(reader, {.packet = [&](const Packet& packet) { collector.Add(packet); },
                       .problem =
                           [&](const Problem& problem) {
                             if (outline.problems.size() < kMaxProblems) outline.problems.push_back(problem);
                           },
                       .progress = progress});
  for (auto& [number, connection] : outline.connections) {
    if (!connection.opening) connection.settings = {};
  }
  outline.isCapture = reader.IsCapture();
  outline.cutOff = reader.CutOff();
  return outline;
}

}  // namespace fenlux::capture
