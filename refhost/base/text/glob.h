// Patterns of paths, as rules write them.
#pragma once

#include <string>
#include <string_view>

namespace fenlux::refhost {

// "*" stands for any characters of one path component, "**" for any characters at all, "?" for one character of a
// component, and everything else for itself. "/" and "\" are both separators, and each matches only itself. A pattern
// without a separator is matched against the last component, any other against the whole path.
class Glob {
 public:
  // `pattern` is UTF-8.
  explicit Glob(std::string_view pattern);

  // Any thread, several at once.
  bool Matches(std::wstring_view path) const;

 private:
  std::wstring pattern;
  bool lastComponentOnly;
};

}  // namespace fenlux::refhost
