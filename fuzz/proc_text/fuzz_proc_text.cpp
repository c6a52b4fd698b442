// Reads any bytes as what /proc shows of a process: its session, its command line and its user. A
// process can put almost anything there.
//
// The first byte of an input selects which; the rest are the bytes.
#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/support/fuzzing.h"
#include "refhost/services/processes/proc_text.h"

namespace fenlux::refhost {
namespace {

using testing::Require;

void FuzzSession(std::string_view text) {
  const std::uint32_t session = SessionFromText(text);
  Require(session != 0xFFFFFFFF, "no session is 0");
  std::uint64_t number = 0;
  std::size_t digits = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9' && number <= 0xFFFFFFFF) {
    number = number * 10 + static_cast<std::uint64_t>(text[digits++] - '0');
  }
  Require(session == (digits == 0 || number >= 0xFFFFFFFF ? 0 : number), "a session is the number at the start");
}

void FuzzCommandLine(std::string_view text) {
  const std::string line = CommandLineFromText(std::string(text));
  Require(line.find('\0') == std::string::npos, "arguments are separated by spaces");
  Require(line.size() <= text.size(), "nothing is added");
  for (std::size_t i = 0; i < line.size(); ++i) {
    Require(line[i] == (text[i] == '\0' ? ' ' : text[i]), "arguments are not changed");
  }
  Require(text.find_first_not_of('\0', line.size()) == std::string_view::npos, "only zeros at the end are dropped");
}

void FuzzUser(std::string_view text) {
  const std::optional<std::uint32_t> user = UserFromText(text);
  if (!user) return;
  const std::size_t line = text.find("\nUid:\t");
  Require(line != std::string_view::npos, "a user comes from the line of that name");
  const std::size_t tab = text.find('\t', line + 6);
  Require(tab != std::string_view::npos, "the effective user is the second one");
  Require(user == LeadingNumber(text.substr(tab + 1)), "a user is the number after the second tab");
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  if (size == 0) return 0;
  constexpr void (*kTargets[])(std::string_view) = {FuzzSession, FuzzCommandLine, FuzzUser};
  kTargets[data[0] % std::size(kTargets)]({reinterpret_cast<const char*>(data + 1), size - 1});
  return 0;
}
