// Error messages of Windows, each with its number so that it can be looked up.
#include "refhost/base/platform/error_text.h"

#include <fmt/format.h>
#include <windows.h>

#include <array>

#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

// System error codes in decimal, as the system's tables list them; HRESULTs in hexadecimal.
std::string NumberText(DWORD code) {
  return code <= 0xFFFF ? fmt::format("error {}", code) : fmt::format("error 0x{:08X}", code);
}

}  // namespace

std::string SystemErrorText(std::int64_t code) {
  const auto number = static_cast<DWORD>(code);
  std::array<wchar_t, 512> text{};
  const DWORD found = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, number, 0,
                                       text.data(), static_cast<DWORD>(text.size()), nullptr);
  std::wstring_view message(text.data(), found);
  while (!message.empty() && (message.back() <= L' ' || message.back() == L'.')) message.remove_suffix(1);
  if (message.empty()) return NumberText(number);
  return fmt::format("{} ({})", NarrowFromWide(message), NumberText(number));
}

std::string LastErrorText() { return SystemErrorText(::GetLastError()); }

}  // namespace fenlux::refhost
