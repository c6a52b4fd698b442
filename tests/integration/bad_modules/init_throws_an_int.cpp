// A module whose init throws something other than an exception object.
#define FENLUX_BUILDING_MODULE
#include "core/fenlux.h"

void init(const std::shared_ptr<fenlux::CGlobalContext>*) { throw 42; }
