// A module whose init fails without a word.
#define FENLUX_BUILDING_MODULE
#include "core/fenlux.h"

void init(const std::shared_ptr<fenlux::CGlobalContext>*) { throw 42; }
