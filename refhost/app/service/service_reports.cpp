// Reports at a third of the manager's timeout, so that one late report does not matter.
#include "refhost/app/service/service_reports.h"

#include <algorithm>

#include "refhost/app/reference_host.h"

namespace fenlux::refhost {
namespace {

constexpr std::chrono::microseconds kStatusInterval{1'000'000};

std::chrono::microseconds IntervalOf(const ServiceManager& manager) {
  const std::chrono::microseconds timeout = manager.WatchdogTimeout();
  return timeout.count() == 0 ? kStatusInterval : std::min(kStatusInterval, timeout / 3);
}

}  // namespace

ServiceReports::ServiceReports(const ServiceManager& serviceManager, std::function<std::string()> describeHost)
    : manager(serviceManager), describe(std::move(describeHost)), interval(IntervalOf(serviceManager)) {}

void ServiceReports::Poll(Clock::time_point now) {
  if (now < next) return;
  next = now + interval;
  std::string current = describe();
  if (manager.WatchdogTimeout().count() > 0) manager.Alive();
  if (current == status) return;
  manager.Status(current);
  status = std::move(current);
}

std::string ServiceStatus(const ReferenceHost& host) {
  const SummaryFacts facts = host.Facts();
  if (facts.filterPort) return facts.filterPort->connects > 0 ? "Serving" : "Waiting for the driver";
  return facts.driver.connected ? "Connected to the driver" : "Waiting for the driver";
}

}  // namespace fenlux::refhost
