// Includes the headers that a host includes, for their debug information, and those that check how a host is compiled.
#include "core/fenlux.h"
#include "fenlux/abi.h"
#include "host/host.h"
#include "kdi/driver_records.h"
#include "kdi/kdi_base.h"
