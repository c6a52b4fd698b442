// Translation of the module's message texts.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux {

// The translation. One object for the life of the host.
class CLocale {
 public:
  // Writes the translation of `text`, or `text` itself if there is none, into `out` and returns `out`. `text` is an
  // English message in ASCII, the fixed part of a log line; the module appends values to the result. It is
  // NUL-terminated and valid during the call only. The module passes the same text as `second` and 0 as `flags`; the
  // result must not depend on `second`. Any thread, concurrently.
  virtual std::string& TranslateText(std::string& out, const char* text, const char* second, std::uint32_t flags) = 0;

 protected:
  ~CLocale() = default;
};

}  // namespace fenlux
