// Leaves by _Exit, which runs nothing of the process any more.
#include "refhost/app/platform/process_end.h"

#include <cstdlib>

namespace fenlux::refhost {

void EndProcess(int code) { std::_Exit(code); }

}  // namespace fenlux::refhost
