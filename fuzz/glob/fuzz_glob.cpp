// Matches any pattern against any path, and compares the result with that of a matcher that follows the definition word
// by word.
//
// The first byte of an input is the pattern's length; the pattern and the path follow, in UTF-8.
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/fuzzing.h"
#include "refhost/base/text/glob.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

bool IsSeparator(wchar_t character) { return character == L'/' || character == L'\\'; }

// matches[t] says whether the rest of the pattern matches the text from `t` on; built from the pattern's end.
bool ReferenceMatches(std::wstring_view pattern, std::wstring_view text) {
  std::vector<std::size_t> tokens;  // where each one starts: "**" is one token
  for (std::size_t at = 0; at < pattern.size();) {
    tokens.push_back(at);
    at += pattern.substr(at, 2) == L"**" ? 2 : 1;
  }
  std::vector<bool> matches(text.size() + 1, false);
  matches[text.size()] = true;
  for (auto token = tokens.rbegin(); token != tokens.rend(); ++token) {
    const bool anything = pattern.substr(*token, 2) == L"**";
    const wchar_t wanted = pattern[*token];
    std::vector<bool> before(text.size() + 1, false);
    for (std::size_t t = text.size() + 1; t-- > 0;) {
      const bool more = t < text.size();
      if (anything) {
        before[t] = matches[t] || (more && before[t + 1]);
      } else if (wanted == L'*') {
        before[t] = matches[t] || (more && !IsSeparator(text[t]) && before[t + 1]);
      } else if (wanted == L'?') {
        before[t] = more && !IsSeparator(text[t]) && matches[t + 1];
      } else {
        before[t] = more && text[t] == wanted && matches[t + 1];
      }
    }
    matches = before;
  }
  return matches[0];
}

bool Expected(std::wstring_view pattern, std::wstring_view path) {
  if (pattern.find_first_of(L"/\\") == std::wstring_view::npos) {
    const std::size_t separator = path.find_last_of(L"/\\");
    if (separator != std::wstring_view::npos) path.remove_prefix(separator + 1);
  }
  return ReferenceMatches(pattern, path);
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  fenlux::testing::FuzzInput input(data, size);
  const std::string_view pattern = input.TakeText(input.U8());
  const std::wstring path = WideFromNarrow(input.RestText());
  fenlux::testing::Require(Glob(pattern).Matches(path) == Expected(WideFromNarrow(pattern), path),
                           "a glob matches what its definition says");
  return 0;
}
