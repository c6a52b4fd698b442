// A module whose init fails.
#define FENLUX_BUILDING_MODULE
#include <stdexcept>

#include "core/fenlux.h"

void init(const std::shared_ptr<fenlux::CGlobalContext>*) { throw std::runtime_error("bad log init!"); }
