// Reads any bytes as what /proc shows of a process: its session, its command line and the link to its program. A
// process can put almost anything there.
//
// The first byte of an input selects which; the rest are the bytes.
#include <algorithm>
#include <charconv>
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

void FuzzImage(std::string_view text) {
  constexpr std::string_view kRemoved = " (deleted)";
  const std::string image = ImageFromLink(text);
  Require(text == image || text == image + std::string(kRemoved), "a link is the path, without the kernel's remark");
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  if (size == 0) return 0;
  constexpr void (*kTargets[])(std::string_view) = {FuzzSession, FuzzCommandLine, FuzzImage};
  kTargets[data[0] % std::size(kTargets)]({reinterpret_cast<const char*>(data + 1), size - 1});
  return 0;
}
