// Translation of the module's fixed message texts.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux {

class CLocale {
 public:
  // Writes `text` in the user's language into `out`, or `text` itself where no translation is known, and returns
  // `out`. `text` is NUL-terminated and lives only for the call. The module passes the same text as `second` and 0 as
  // `flags`; the result must not depend on `second`. Any thread, several at once.
  virtual std::string& TranslateText(std::string& out, const char* text, const char* second, std::uint32_t flags) = 0;

 protected:
  ~CLocale() = default;
};

}  // namespace fenlux
