// _Exit runs no destructors and no exit handlers.
#include "refhost/app/platform/process_end.h"

#include <cstdlib>
#ifdef FENLUX_COVERAGE
extern "C" {
#include <gcov.h>
}
#endif

namespace fenlux::refhost {

void EndProcess(int code) {
#ifdef FENLUX_COVERAGE
  __gcov_dump();  // an exit handler would write the counts
#endif
  std::_Exit(code);
}

}  // namespace fenlux::refhost
