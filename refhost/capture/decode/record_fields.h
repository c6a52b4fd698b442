// The fields of the protocol's records by name, as the test vectors of the driver kit write them in JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "refhost/base/report.h"
#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

using refhost::Report;

// A message as it was before its zeros were cut: `message`, or a copy of it in `buffer`.
std::span<const std::uint8_t> WholeMessage(std::span<const std::uint8_t> message, std::uint64_t originalSize,
                                           std::string& buffer);

// The fields of a whole message: "record" is its type, and "error" says what is wrong with one that is malformed. Every
// kind but kRequestReply, which is read as a version reply.
Report RecordFields(Kind kind, std::span<const std::uint8_t> message);

// What filters need of a message, without its other fields; nullopt if it is malformed or of another kind.
std::optional<std::uint32_t> CommandOf(std::span<const std::uint8_t> request);
std::optional<std::uint32_t> CodeOf(std::span<const std::uint8_t> notification);
std::optional<std::uint32_t> VerdictOf(std::span<const std::uint8_t> reply);

}  // namespace fenlux::capture
