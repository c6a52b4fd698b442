// The completion of command lines in bash, from the tree of commands.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace fenlux::refhost {

// A script for bash that defines and registers the completion of the program.
std::string BashCompletion(const CLI::App& program);

}  // namespace fenlux::refhost
