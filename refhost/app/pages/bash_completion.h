// Bash completion of command lines, generated from the command tree.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace fenlux::refhost {

// A script for bash that defines and registers the completion of the program.
std::string BashCompletion(const CLI::App& program);

}  // namespace fenlux::refhost
