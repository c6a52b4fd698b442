// A module that never registers itself.
#define FENLUX_BUILDING_MODULE
#include "core/fenlux.h"

void init(const std::shared_ptr<fenlux::CGlobalContext>*) {}
