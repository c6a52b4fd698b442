// The text form of an account's identity block.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace fenlux::refhost {

inline constexpr std::size_t kIdentityBlockSize = 64;

// "S-1-5-21-..." for a security identifier in binary form. For other bytes, their hexadecimal digits up to the last
// nonzero byte.
std::string IdentityText(std::span<const std::uint8_t, kIdentityBlockSize> block);

}  // namespace fenlux::refhost
