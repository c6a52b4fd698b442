// Converts the text of an argument to the value that an operation needs.
#include "refhost/app/control/control_arguments.h"

#include <fmt/format.h>

#include <charconv>
#include <limits>

#include "refhost/app/control/net_item_file.h"

namespace fenlux::refhost {
namespace {

template <typename Number>
Number NumberArgument(const ControlArguments& arguments, std::string_view name) {
  const std::string_view text = TextArgument(arguments, name);
  Number number{};
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    throw ControlRefusal(fmt::format("{} must be an integer from {} to {}, not \"{}\"", name,
                                     std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max(), text));
  }
  return number;
}

}  // namespace

std::string_view TextArgument(const ControlArguments& arguments, std::string_view name) {
  const auto found = arguments.find(name);
  if (found == arguments.end()) throw ControlRefusal(fmt::format("{} is missing", name));
  return found->second;
}

std::int32_t Int32Argument(const ControlArguments& arguments, std::string_view name) {
  return NumberArgument<std::int32_t>(arguments, name);
}

std::uint32_t Uint32Argument(const ControlArguments& arguments, std::string_view name) {
  return NumberArgument<std::uint32_t>(arguments, name);
}

std::uint64_t Uint64Argument(const ControlArguments& arguments, std::string_view name) {
  return NumberArgument<std::uint64_t>(arguments, name);
}

bool OnOffArgument(const ControlArguments& arguments, std::string_view name) {
  const std::string_view text = TextArgument(arguments, name);
  if (text != "on" && text != "off") throw ControlRefusal(fmt::format("{} must be on or off", name));
  return text == "on";
}

std::shared_ptr<NetControlItems> ItemsArgument(const ControlArguments& arguments, std::string_view name) {
  try {
    return std::make_shared<NetControlItems>(DecodeNetItems(TextArgument(arguments, name)));
  } catch (const std::invalid_argument& error) {
    throw ControlRefusal(error.what());
  }
}

std::optional<std::string> OptionArgument(const ControlArguments& arguments, std::string_view name) {
  const auto found = arguments.find(name);
  return found == arguments.end() ? std::nullopt : std::optional(found->second);
}

bool HasFlag(const ControlArguments& arguments, std::string_view name) { return arguments.contains(name); }

}  // namespace fenlux::refhost
