// Views of the command tree, in the order in which help shows it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace fenlux::refhost {

// The commands directly below this one.
std::vector<const CLI::App*> Subcommands(const CLI::App& command);
// The command's own options, and its positional arguments.
std::vector<const CLI::Option*> Options(const CLI::App& command);
std::vector<const CLI::Option*> Positionals(const CLI::App& command);

// "fenlux-host ctl monitor add"
std::string FullName(const CLI::App& command);
// "fenlux-host ctl monitor add TYPE PATH [OPTIONS]"
std::string UsageText(const CLI::App& command);

// An option as help shows it: "-h, --help", "--config FILE"; an argument as "TYPE".
std::string OptionText(const CLI::Option& option);

}  // namespace fenlux::refhost
