// The operations that an operator can have a running host carry out: what they are called, what they take, what they
// do.
#pragma once

#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/base/report.h"

namespace fenlux::refhost {

class ReferenceHost;

// How an argument is written on the command line. All of them travel to the host as text.
enum class ArgumentKind {
  kInteger,  // a whole number
  kText,
  kPath,      // a text; a relative path is made absolute on the operator's side
  kItemFile,  // a file of network-control items; its items travel
  kFlag,      // "--name"; present or not
  kOnOff,     // "on" or "off"
};

struct ControlArgument {
  std::string_view name;
  ArgumentKind kind;
  std::string_view help;
};

using ControlArguments = std::map<std::string, std::string, std::less<>>;

// The request cannot be carried out as it was put; the text says why. What the module throws is let through as it is.
class ControlRefusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ControlOperation {
  std::string_view name;  // one or two words
  std::string_view help;
  std::vector<ControlArgument> arguments;
  Report (*carryOut)(ReferenceHost& host, const ControlArguments& arguments);
};

// In the order in which help shows them.
std::span<const ControlOperation> ControlOperations();
// The groups of the operations of two words, each with its help.
std::string_view ControlGroupHelp(std::string_view group);

// Nothing where no operation has the name.
const ControlOperation* FindControlOperation(std::string_view name);

}  // namespace fenlux::refhost
