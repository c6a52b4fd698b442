// What a host that runs as a service reports to the service manager.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include "refhost/app/service/service_manager.h"

namespace fenlux::refhost {

class ReferenceHost;

// Regularly reports that the host works and what it is doing. One thread.
//
// The host works if its counts can be read: that takes the locks of the judge, the driver's side and the log in turn,
// so a thread that is stuck with one of them stops the reports. A missing driver, a slow reader or an operation that
// waits inside the module does not.
class ServiceReports {
 public:
  using Clock = std::chrono::steady_clock;

  // `describe` reads the host's counts and says in one line what it is doing.
  ServiceReports(const ServiceManager& serviceManager, std::function<std::string()> describeHost);

  // Call it several times a second.
  void Poll(Clock::time_point now);

 private:
  const ServiceManager& manager;
  const std::function<std::string()> describe;
  const std::chrono::microseconds interval;
  Clock::time_point next;  // of the next report
  std::string status;      // the last one sent
};

// "connected to the driver", or what else the host is doing.
std::string ServiceStatus(const ReferenceHost& host);

}  // namespace fenlux::refhost
