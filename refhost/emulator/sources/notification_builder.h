// Builds the bytes of a driver's notification from named fields.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kdi/driver_records.h"

namespace fenlux::refhost {

// The other end of a network operation (code 4114).
struct EndpointFields {
  std::uint16_t port = 0;
  std::variant<std::uint32_t, std::array<std::uint8_t, 16>> address = 0u;  // IPv4 or IPv6
};

// The detail of codes 4116 and 8205.
struct RemoteFields {
  bool remote = false;
  std::array<std::uint64_t, 4> words{};
};

// A notification's fields. Texts have no NUL here; an empty text is absent. Lengths follow from the items unless
// one is stated here to make the message malformed.
struct NotificationFields {
  std::uint32_t code = 0;
  std::uint64_t processId = 0;
  std::uint8_t variant = 0;
  std::uint8_t conditionA = 0;
  std::uint8_t conditionB = 0;
  std::uint8_t conditionC = 0;
  std::uint8_t oplock = 0;
  std::u16string path = {};                  // item 1
  std::u16string secondPath = {};            // item 2
  std::vector<std::uint8_t> extraData = {};  // item 3
  std::u16string furtherPath = {};           // item 4
  std::vector<std::uint8_t> identity = {};   // at most 64 bytes
  std::variant<std::monostate, EndpointFields, RemoteFields> detail = {};
  std::uint8_t accessKind = 0;
  std::uint32_t accessValueA = 0;
  std::uint32_t accessValueB = 0;
  std::optional<std::uint32_t> statedItem1Size = {};
  std::optional<std::uint32_t> statedItem2Size = {};
  std::optional<std::uint32_t> statedItem3Size = {};
};

// The size of the message.
std::size_t NotificationSize(const NotificationFields& fields);
// Writes exactly NotificationSize(fields) bytes at `destination`; bytes that no field names are 0. Throws
// std::invalid_argument for identity data of more than 64 bytes.
void WriteNotification(const NotificationFields& fields, std::uint8_t* destination);
// Returns the notification as a vector.
std::vector<std::uint8_t> BuildNotification(const NotificationFields& fields);

}  // namespace fenlux::refhost
