// Parses texts from /proc.
#include "refhost/services/processes/proc_text.h"

#include <algorithm>
#include <charconv>

namespace fenlux::refhost {
namespace {

constexpr std::uint32_t kNoLoginSession = 0xFFFFFFFF;
constexpr std::string_view kUserLine = "\nUid:\t";

}  // namespace

std::optional<std::uint32_t> LeadingNumber(std::string_view text) {
  std::uint32_t number{};
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr == text.data()) return std::nullopt;
  return number;
}

std::uint32_t SessionFromText(std::string_view text) {
  const std::uint32_t session = LeadingNumber(text).value_or(kNoLoginSession);
  return session == kNoLoginSession ? 0 : session;
}

std::string CommandLineFromText(std::string text) {
  while (!text.empty() && text.back() == '\0') text.pop_back();
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

std::optional<std::uint32_t> UserFromText(std::string_view text) {
  // "Uid:", then the real and the effective user. The kernel escapes line breaks in the program's name before it.
  const std::size_t line = text.find(kUserLine);
  if (line == std::string_view::npos) return std::nullopt;
  const std::string_view numbers = text.substr(line + kUserLine.size());
  const std::size_t tab = numbers.find('\t');
  if (tab == std::string_view::npos) return std::nullopt;
  return LeadingNumber(numbers.substr(tab + 1));
}

}  // namespace fenlux::refhost
