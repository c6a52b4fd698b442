// The width of the output if there is no terminal.
#include "refhost/base/platform/terminal.h"

#include <charconv>
#include <string>

#include "refhost/base/platform/environment.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kDefaultWidth = 80;
constexpr std::size_t kMinWidth = 20;

}  // namespace

std::size_t ConfiguredWidth() {
  const std::string text = EnvironmentText("COLUMNS").value_or("");
  std::size_t width = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), width);
  const bool isNumber = result.ec == std::errc() && result.ptr == text.data() + text.size();
  return isNumber && width >= kMinWidth ? width : kDefaultWidth;
}

}  // namespace fenlux::refhost
