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

// The first stray character: one that is not printable ASCII, a tab or a line end, and is outside strings and comments
// or follows a backslash in a string, even after white space. Check this before parsing, because the library's parser
// has undefined behaviour for some of them. TOML allows them only in two of these places: after a backslash at the end
// of a line, and in a quoted part of a key after a dot.
std::optional<TextPlace> FindStrayCharacter(std::string_view text);

}  // namespace fenlux::refhost
