// _Exit runs no code of the process.
#include "refhost/app/platform/process_end.h"

#include <cstdlib>

namespace fenlux::refhost {

void EndProcess(int code) { std::_Exit(code); }

}  // namespace fenlux::refhost
