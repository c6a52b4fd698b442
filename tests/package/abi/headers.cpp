// Includes what a host includes, for its debug information, and what checks at compile time how a host is built.
#include "core/fenlux.h"
#include "fenlux/abi.h"
#include "host/host.h"
#include "kdi/driver_records.h"
#include "kdi/kdi_base.h"
