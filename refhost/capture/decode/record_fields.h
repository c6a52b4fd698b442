// The fields of the protocol's records by name, with the names that the driver kit's test vectors use.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "refhost/base/report.h"
#include "refhost/capture/format/packet.h"

struct FenluxText;

namespace fenlux::capture {

using refhost::Report;

// The message with its trailing zeros restored: `message` itself, or a copy in `buffer`.
std::span<const std::uint8_t> WholeMessage(std::span<const std::uint8_t> message, std::uint64_t originalSize,
                                           std::string& buffer);

// The fields of a whole message: "record" is its type, and "error" says what is wrong with a malformed one. Accepts
// every kind; a kRequestReply is read as a version reply.
Report RecordFields(Kind kind, std::span<const std::uint8_t> message);

// The text as UTF-8.
std::string Utf8(const FenluxText& text);

// The single field that a filter needs; nullopt if the message is malformed or of another kind.
std::optional<std::uint32_t> CommandOf(std::span<const std::uint8_t> request);
std::optional<std::uint32_t> CodeOf(std::span<const std::uint8_t> notification);
std::optional<std::uint32_t> VerdictOf(std::span<const std::uint8_t> reply);

}  // namespace fenlux::capture
