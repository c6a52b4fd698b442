// The system's own words for its errors, with the number that a search for them needs.
#include "refhost/base/error_text_win.h"

#include <windows.h>

#include <array>
#include <cstdio>

#include "refhost/base/utf_text.h"

namespace fenlux::refhost {
namespace {

// Small numbers are written as the system's own tables write them, results with a facility in hexadecimal.
std::string NumberText(unsigned long code) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), code <= 0xFFFF ? "error %lu" : "error 0x%08lX", code);
  return text.data();
}

}  // namespace

std::string SystemErrorText(unsigned long code) {
  std::array<wchar_t, 512> text{};
  const DWORD found = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                       text.data(), static_cast<DWORD>(text.size()), nullptr);
  std::wstring_view message(text.data(), found);
  while (!message.empty() && (message.back() <= L' ' || message.back() == L'.')) message.remove_suffix(1);
  if (message.empty()) return NumberText(code);
  return NarrowFromWide(message) + " (" + NumberText(code) + ")";
}

std::string LastErrorText() { return SystemErrorText(::GetLastError()); }

}  // namespace fenlux::refhost
