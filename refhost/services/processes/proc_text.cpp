// Parsing of the texts of /proc.
#include "refhost/services/processes/proc_text.h"

#include <algorithm>
#include <charconv>

namespace fenlux::refhost {
namespace {

constexpr std::uint32_t kNoLoginSession = 0xFFFFFFFF;
constexpr std::string_view kRemoved = " (deleted)";

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

std::string ImageFromLink(std::string_view target) {
  if (target.ends_with(kRemoved)) target.remove_suffix(kRemoved.size());
  return std::string(target);
}

}  // namespace fenlux::refhost
