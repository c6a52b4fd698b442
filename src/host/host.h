// Everything the module requires of its host, in one include.
//
// Every interface here is a table of operations: pure virtual, in a fixed order, without data and without overloads. A
// host and the module share C++ types across the library boundary, so both are built with one compiler and one runtime.
//
// Getters that return a reference give a handle that the host keeps; the module copies it, on several threads at once.
// The host must not replace the handle behind such a reference while the module may be reading it.
//
// Words used beside the operations, here and in kdi/, for the threads that call them:
//   host thread         a thread of the host that calls init or an operation of CFenlux or CKDIBase
//   connection worker   the module's thread that makes driver interfaces and runs their connections, one at a time
//   policy worker       the module's thread that applies the monitoring policy
//   refresh thread      the module's thread that keeps the process cache current, one per driver interface
//   delivery thread     a thread of the host's port client inside the NotificationHandler, several at once
//   any thread          any of these, several at once
//
// Most calls are made without a lock of the module. These hold one: the registration and clearing of monitor objects
// (the driver interface's list lock), RegisterSystemProcess (its base lock), the clearing and shutdown of the current
// driver interface (the module's interface lock), the first GetLocale (a lock of its own), and everything that a worker
// calls (a lock that only says that the worker is there). A service must therefore never call back into the operation
// that it is being called from.
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
