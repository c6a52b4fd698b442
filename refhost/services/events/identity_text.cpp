// Format of a security identifier: revision, count of sub-authorities, a 48-bit authority (big-endian) and the
// sub-authorities (32 bits each, little-endian).
#include "refhost/services/events/identity_text.h"

#include <fmt/format.h>

#include <boost/endian/conversion.hpp>
#include <iterator>

#include "refhost/base/text/hex.h"

namespace fenlux::refhost {
namespace {

constexpr std::uint8_t kRevision = 1;
constexpr std::size_t kAuthorityOffset = 2;
constexpr std::size_t kSubAuthorityOffset = 8;
// The format allows 15, but the block has room for fewer.
constexpr std::size_t kMaxSubAuthorities = (kIdentityBlockSize - kSubAuthorityOffset) / 4;

std::span<const std::uint8_t> WithoutTrailingZeros(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty() && bytes.back() == 0) bytes = bytes.first(bytes.size() - 1);
  return bytes;
}

}  // namespace

std::string IdentityText(std::span<const std::uint8_t, kIdentityBlockSize> block) {
  const std::size_t count = block[1];
  if (block[0] != kRevision || count == 0 || count > kMaxSubAuthorities) return HexText(WithoutTrailingZeros(block));
  std::string text = fmt::format("S-1-{}", boost::endian::load_big_u48(block.data() + kAuthorityOffset));
  for (std::size_t index = 0; index < count; ++index) {
    const std::uint8_t* const subAuthority = block.data() + kSubAuthorityOffset + 4 * index;
    fmt::format_to(std::back_inserter(text), "-{}", boost::endian::load_little_u32(subAuthority));
  }
  return text;
}

}  // namespace fenlux::refhost
