// Checks TOML text before the library parses it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace fenlux::refhost {

// Both count from 1; columns are characters.
struct TextPlace {
  std::uint32_t line = 1;
  std::uint32_t column = 1;

  bool operator==(const TextPlace&) const = default;
};

// The first character outside strings and comments, or after a backslash in a string, that is not printable ASCII, a
// tab or a line end. TOML allows no other characters there. Check this before parsing, because the library's parser has
// undefined behaviour for some of them. Characters in a quoted part of a dotted key, after the dot, count as outside.
std::optional<TextPlace> FindStrayCharacter(std::string_view text);

}  // namespace fenlux::refhost
