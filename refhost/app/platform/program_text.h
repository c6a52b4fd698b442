// Text at the program's edges. Inside, narrow text is UTF-8; the bodies see to it on each platform.
#pragma once

#include <string>
#include <vector>

namespace fenlux::refhost {

// Has paths and the console take and give UTF-8. At the beginning of main, before any thread is started.
void PrepareProgramText();

// The command line without the program's name.
std::vector<std::string> ProgramArguments(int argc, char** argv);

}  // namespace fenlux::refhost
