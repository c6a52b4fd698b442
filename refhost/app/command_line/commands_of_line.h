// The parts of the command tree. Each function adds one command with its options; parsing the command runs it.
#pragma once

#include <CLI/CLI.hpp>

namespace fenlux::refhost {

void AddRun(CLI::App& app, int& code);
void AddCheck(CLI::App& app, int& code);
void AddDecode(CLI::App& app, int& code);
void AddDrive(CLI::App& app, int& code);
void AddReplay(CLI::App& app, int& code);
void AddReport(CLI::App& app, int& code);
void AddExplain(CLI::App& app, int& code);
// `ctl` with all operations of the table in control/control_operations.h.
void AddControl(CLI::App& app, int& code);

}  // namespace fenlux::refhost
