// Text encoding of paths, console and command line. Inside the program, narrow text is UTF-8.
#pragma once

#include <string>
#include <vector>

namespace fenlux::refhost {

// Switches paths and the console to UTF-8. Call it first in main, before any thread starts.
void PrepareProgramText();

// The command line without the program name, in UTF-8.
std::vector<std::string> ProgramArguments(int argc, char** argv);

}  // namespace fenlux::refhost
