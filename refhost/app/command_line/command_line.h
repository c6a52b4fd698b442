// The command line of fenlux-host. One tree of commands, options and operations serves parsing, help, the manual pages
// and shell completion, so they always agree.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace fenlux::refhost {

inline constexpr char kProgramName[] = "fenlux-host";

// The tree. Parsing runs the chosen command and puts its exit code into `code`, which must outlive the tree.
std::unique_ptr<CLI::App> MakeCommandLine(int& code);

// Runs the program with these arguments, which do not include its name. Returns its exit code.
int RunCommandLine(const std::vector<std::string>& arguments);

}  // namespace fenlux::refhost
