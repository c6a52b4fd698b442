// The driver's side of a host: the emulated driver, or the port to a real one.
#pragma once

#include <memory>

#include "host/port_client.h"
#include "refhost/app/host_config.h"

namespace fenlux::refhost {

class DecisionSink;
class DriverEmulator;
class FilterPort;

// Moves the emulator's settings out of `config`. Throws what DriverEmulator's constructor throws.
std::shared_ptr<DriverEmulator> MakeEmulator(HostConfig& config, const std::shared_ptr<LogService>& log,
                                             const std::shared_ptr<DecisionSink>& decisions);

// Null if the emulated driver is used.
std::shared_ptr<FilterPort> MakeFilterPort(const DriverSettings& settings, const std::shared_ptr<LogService>& log);

// Wraps `handler` to pass a record of every judged event to `decisions`. For a real driver's port: what the driver does
// with a verdict is unknown, so verdicts 4 and 5 count as refusing.
NotificationHandler ObservedHandler(const NotificationHandler& handler, std::shared_ptr<DecisionSink> decisions);

}  // namespace fenlux::refhost
