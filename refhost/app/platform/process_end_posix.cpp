// _Exit runs no destructors and no exit handlers.
#include "refhost/app/platform/process_end.h"

#include <cstdlib>

namespace fenlux::refhost {

void EndProcess(int code) { std::_Exit(code); }

}  // namespace fenlux::refhost
