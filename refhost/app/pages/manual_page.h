// Manual pages, generated from the command tree.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace fenlux::refhost {

// The manual page of the program or of one of its commands, for section 1. The page of a command with operations
// describes all of them.
std::string ManualPage(const CLI::App& command);

// "fenlux-host-run": the page's name.
std::string PageName(const CLI::App& command);

}  // namespace fenlux::refhost
