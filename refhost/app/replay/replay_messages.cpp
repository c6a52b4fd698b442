// Uses the parsers of the driver kit.
#include "refhost/app/replay/replay_messages.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "fenlux/driver_protocol.h"
#include "refhost/capture/decode/json_text.h"
#include "refhost/capture/decode/protocol_names.h"

namespace fenlux::refhost {
namespace {

// The decision that leads to the verdict.
Decision DecisionOf(std::uint32_t verdict, std::uint32_t clientType) {
  switch (verdict) {
    case FENLUX_VERDICT_2:
      return Decision::kVerdict2;
    case FENLUX_VERDICT_4:
      return Decision::kVerdict4;
    case FENLUX_VERDICT_5:
      return Decision::kVerdict5;
    case FENLUX_VERDICT_CONTEXT:
      return Decision::kContext;
    case FENLUX_VERDICT_UNJUDGED:
      return Decision::kUndecided;
    case FENLUX_VERDICT_PASS_CLIENT_2:
      return clientType == FENLUX_CLIENT_TYPE_2 ? Decision::kPass : Decision::kPassClient2;
    default:
      return Decision::kPass;
  }
}

}  // namespace

MessageBytes WholeBytes(const capture::Packet& packet) {
  MessageBytes bytes(packet.message.begin(), packet.message.end());
  bytes.resize(static_cast<std::size_t>(packet.originalSize));
  return bytes;
}

std::uint32_t CommandOf(const MessageBytes& request) {
  if (request.size() < sizeof(FenluxRequestHeader)) return 0;
  return FenluxLoadU32(request.data() + offsetof(FenluxRequestHeader, command));
}

bool BeginsPolicy(std::uint32_t command) {
  return command == FENLUX_COMMAND_ADD_MONITOR_OBJECT || command == FENLUX_COMMAND_COMMIT_MONITOR_OBJECTS ||
         command == FENLUX_COMMAND_DRIVER_CONFIG;
}

std::optional<std::uint32_t> RecordedDecision(std::string_view judgement) {
  const std::optional<Report> fields = capture::ParseJsonObject(judgement);
  if (!fields) return std::nullopt;
  const auto decision = fields->find("decision");
  if (decision == fields->end() || !decision->is_number_unsigned()) return std::nullopt;
  return decision->get<std::uint32_t>();
}

PlayedJudgement JudgementOf(const MessageBytes& reply, std::optional<std::uint32_t> decision,
                            const MessageBytes& connectContext) {
  PlayedJudgement judgement;
  FenluxReplyView view;
  if (!reply.empty() && FenluxParseReply(reply.data(), reply.size(), &view) == FENLUX_OK) {
    FenluxConnectContextView context{};
    FenluxParseConnectContext(connectContext.data(), connectContext.size(), &context);
    judgement.decision = static_cast<std::uint32_t>(DecisionOf(view.verdict, context.clientType));
    if (view.context.size != 0) judgement.context.assign(view.context.data, view.context.data + view.context.size);
  }
  if (decision) judgement.decision = *decision;
  return judgement;
}

std::string RequestName(std::uint32_t command) {
  return fmt::format("request {} ({})", command, capture::CommandName(command));
}

}  // namespace fenlux::refhost
