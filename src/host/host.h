// Everything that the module requires of its host, in one include.
//
// Each interface is a table of operations: pure virtual, in a fixed order, without data or overloads. A host and the
// module share C++ types across the library boundary, so build both with the same compiler and runtime.
//
// Getters that return a reference return a handle that the host keeps. The module copies it, on several threads at
// once; do not replace the handle while the module may be reading it.
//
// The comments name the threads that call an operation:
//   host thread         a thread of the host that calls init or an operation of CFenlux or CKDIBase
//   connection worker   the module's thread that makes driver interfaces and runs their connections, one at a time
//   policy worker       the module's thread that applies the monitoring policy
//   refresh thread      the module's thread that keeps the process cache current, one per driver interface
//   delivery thread     a thread of the host's port client that calls the NotificationHandler; several at once
//   any thread          any of these, several at once
//
// The module calls the host without holding a lock, except in these cases:
//   adding, sending and clearing monitor objects     the driver interface's list lock
//   RegisterSystemProcess                            the driver interface's base lock
//   clearing and shutting down by StartWork,         the module's interface lock
//   StopWork, or the end of a connection attempt
//   the first GetLocale of the module core           a separate lock
//   everything on the connection worker and the      a lock that keeps a second such thread from running
//   refresh thread
// The policy worker has no such lock. A service must not call back into the operation that called it.
#pragma once

#include "host/ao_arp.h"
#include "host/arp_mgmt.h"
#include "host/arp_record.h"
#include "host/buf.h"
#include "host/cfg.h"
#include "host/cfg_ex.h"
#include "host/global_context.h"
#include "host/locale.h"
#include "host/log.h"
#include "host/net.h"
#include "host/port_client.h"
#include "host/record_service.h"
#include "host/utility.h"
#include "host/win_work.h"
