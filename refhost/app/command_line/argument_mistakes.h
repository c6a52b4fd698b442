// Finds mistakes in a command line. The messages name the wrong word and suggest the right one.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace fenlux::refhost {

// The first mistake: an unknown command, operation or option, an extra argument, or a missing one. Empty if there is
// none. Does not check the values of options.
std::string FindMistake(const CLI::App& root, const std::vector<std::string>& arguments);

}  // namespace fenlux::refhost
