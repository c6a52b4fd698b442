// Matches without recursion: only the last star of each kind may need to match more characters, so the running time is
// at most the product of the lengths.
#include "refhost/base/text/glob.h"

#include <algorithm>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kNone = std::wstring_view::npos;

bool IsSeparator(wchar_t character) { return character == L'/' || character == L'\\'; }

std::wstring_view LastComponent(std::wstring_view path) {
  const auto begin = std::find_if(path.rbegin(), path.rend(), IsSeparator).base();
  return path.substr(static_cast<std::size_t>(begin - path.begin()));
}

// A star of the pattern, and how much text it matches so far.
struct Star {
  std::size_t pattern = kNone;  // the position after the star
  std::size_t text = 0;         // the first character that it does not match
};

}  // namespace

Glob::Glob(std::string_view patternText)
    : pattern(WideFromNarrow(patternText)), lastComponentOnly(std::ranges::none_of(pattern, IsSeparator)) {}

std::string Glob::Pattern() const { return NarrowFromWide(pattern); }

bool Glob::Matches(std::wstring_view path) const {
  if (lastComponentOnly) path = LastComponent(path);
  const std::wstring_view wanted = pattern;
  std::size_t at = 0;
  std::size_t text = 0;
  Star inComponent;
  Star anywhere;
  while (text < path.size() || at < wanted.size()) {
    if (at < wanted.size()) {
      if (wanted[at] == L'*') {
        ++at;
        if (at == wanted.size() || wanted[at] != L'*') {
          inComponent = {at, text};
        } else {
          anywhere = {++at, text};
          inComponent = {};
        }
        continue;
      }
      if (text < path.size() && (wanted[at] == L'?' ? !IsSeparator(path[text]) : wanted[at] == path[text])) {
        ++at;
        ++text;
        continue;
      }
    }
    // No match: let the last star match one more character.
    if (inComponent.pattern != kNone && inComponent.text < path.size() && !IsSeparator(path[inComponent.text])) {
      at = inComponent.pattern;
      text = ++inComponent.text;
    } else if (anywhere.pattern != kNone && anywhere.text < path.size()) {
      at = anywhere.pattern;
      text = ++anywhere.text;
      inComponent = {};
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace fenlux::refhost
