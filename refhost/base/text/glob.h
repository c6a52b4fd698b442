// Path patterns of rules.
#pragma once

#include <string>
#include <string_view>

namespace fenlux::refhost {

// "*" matches any characters within a path component, "**" any characters at all, "?" one character of a component, and
// any other character itself. "/" and "\" are both separators, but each matches only itself. A pattern without a
// separator is matched against the last component, any other against the whole path.
class Glob {
 public:
  // `pattern` is UTF-8.
  explicit Glob(std::string_view pattern);

  // Any thread.
  bool Matches(std::wstring_view path) const;
  // Whether both have the same pattern.
  bool operator==(const Glob&) const = default;
  // UTF-8.
  std::string Pattern() const;

 private:
  std::wstring pattern;
  bool lastComponentOnly;
};

}  // namespace fenlux::refhost
