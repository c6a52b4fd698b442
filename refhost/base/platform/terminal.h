// Whether the program's outputs are terminals. The bodies are platform-specific.
#pragma once

namespace fenlux::refhost {

bool OutputIsTerminal();
bool ErrorIsTerminal();

}  // namespace fenlux::refhost
