// The arguments of a control operation: how they are declared, and how an operation reads them.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kdi/drvx_control.h"

namespace fenlux::refhost {

// How an argument is written on the command line. Every kind is sent to the host as text.
enum class ArgumentKind {
  kInteger,
  kPath,            // made absolute by `ctl` if relative
  kItemFile,        // a file of network-control items; `ctl` sends its items
  kFlag,            // "--name"; present or absent
  kOnOff,           // "on" or "off"
  kOption,          // "--name VALUE"; may be absent
  kIntegerOption,   // "--name N"; may be absent
  kRequiredOption,  // "--name VALUE"
};

struct ControlArgument {
  std::string_view name;
  ArgumentKind kind;
  std::string_view help;
  // For integers, the range of the type. The module decides whether a value makes sense.
  std::int64_t min = 0;
  std::uint64_t max = std::numeric_limits<std::uint32_t>::max();
};

// Texts by argument name. A flag or an option that is absent has no entry.
using ControlArguments = std::map<std::string, std::string, std::less<>>;

// The operation cannot run as requested; the text says why.
class ControlRefusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Each function reads one argument and throws ControlRefusal if it is missing or malformed.
std::string_view TextArgument(const ControlArguments& arguments, std::string_view name);
// An integer that fits the type. The module decides whether the value makes sense.
std::int32_t Int32Argument(const ControlArguments& arguments, std::string_view name);
std::uint32_t Uint32Argument(const ControlArguments& arguments, std::string_view name);
std::uint64_t Uint64Argument(const ControlArguments& arguments, std::string_view name);
bool OnOffArgument(const ControlArguments& arguments, std::string_view name);
std::shared_ptr<NetControlItems> ItemsArgument(const ControlArguments& arguments, std::string_view name);

// nullopt if the option is absent.
std::optional<std::string> OptionArgument(const ControlArguments& arguments, std::string_view name);
bool HasFlag(const ControlArguments& arguments, std::string_view name);

}  // namespace fenlux::refhost
