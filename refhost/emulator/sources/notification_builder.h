// Builds the driver's notifications as byte blocks from named fields.
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

// What codes 4116 and 8205 tell.
struct RemoteFields {
  bool remote = false;
  std::array<std::uint64_t, 4> words{};
};

// A notification in words. Texts are given without their NUL; an empty one is absent. Lengths follow from the items,
// unless a length is given here on purpose to make the message lie.
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

// The size of the block that the fields make.
std::size_t NotificationSize(const NotificationFields& fields);
// Writes exactly NotificationSize(fields) bytes at `destination`; what no field names is 0. Throws
// std::invalid_argument for identity data of more than 64 bytes.
void WriteNotification(const NotificationFields& fields, std::uint8_t* destination);
// The block as a vector of exactly its size.
std::vector<std::uint8_t> BuildNotification(const NotificationFields& fields);

// The code of a block; 0 where it is too short to hold one.
std::uint32_t NotificationCode(const std::uint8_t* message, std::size_t size);

}  // namespace fenlux::refhost
