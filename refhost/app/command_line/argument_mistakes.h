// What is wrong with the words of a command line, in messages that name the word and suggest the right one.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace fenlux::refhost {

// The first mistake: an unknown command, operation or option, an argument too many, or one that is missing. Empty if
// there is none. The values of options are not looked at.
std::string FindMistake(const CLI::App& root, const std::vector<std::string>& arguments);

}  // namespace fenlux::refhost
