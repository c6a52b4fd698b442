// What the player of a replay reads from messages.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/app/replay/delivery_crew.h"
#include "refhost/capture/format/packet.h"

namespace fenlux::refhost {

using MessageBytes = std::vector<std::uint8_t>;

// The packet's whole message, with the zeros that the recorder cut from its end.
MessageBytes WholeBytes(const capture::Packet& packet);

// The number of a request's command; 0 if the message is no request.
std::uint32_t CommandOf(const MessageBytes& request);
// The command for people: "request 13 (driver version)".
std::string RequestName(std::uint32_t command);

// Whether the command may be the first that the module sends when it applies its policy.
bool BeginsPolicy(std::uint32_t command);

// The decision that a recorded judgement states; nullopt if it states none.
std::optional<std::uint32_t> RecordedDecision(std::string_view judgement);

// The judgement that made the module give this reply. Without a recorded decision, it is the one that leads to the
// reply's verdict.
PlayedJudgement JudgementOf(const MessageBytes& reply, std::optional<std::uint32_t> decision,
                            const MessageBytes& connectContext);

}  // namespace fenlux::refhost
