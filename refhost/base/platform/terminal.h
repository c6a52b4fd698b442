// Whether the program's outputs are terminals. The implementations are platform-specific.
#pragma once

#include <cstddef>

namespace fenlux::refhost {

bool OutputIsTerminal();
bool ErrorIsTerminal();

// How many characters fit on a line of standard output: the terminal's width; otherwise the variable COLUMNS, or 80.
std::size_t OutputWidth();
// The width without a terminal: the variable COLUMNS, or 80.
std::size_t ConfiguredWidth();

}  // namespace fenlux::refhost
