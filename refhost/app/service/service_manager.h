// Messages to the service manager that started this process (systemd). The implementations are platform-specific.
#pragma once

#include <chrono>
#include <string>

namespace fenlux::refhost {

// Without a service manager, nothing happens. Messages never block, and one that cannot be sent is lost. Any thread.
class ServiceManager {
 public:
  // Reads the manager's address and the watchdog's timeout from the environment.
  ServiceManager();

  // The host has started or reloaded, and is ready.
  void Ready() const;
  // The host is reloading its configuration, until Ready.
  void Reloading() const;
  // The host has begun to stop.
  void Stopping() const;
  // What the host is doing, in one line, for people.
  void Status(const std::string& text) const;
  // The host is alive. If this is not sent for longer than WatchdogTimeout, the manager ends and restarts the host.
  void Alive() const;
  // 0: there is no watchdog.
  std::chrono::microseconds WatchdogTimeout() const { return watchdogTimeout; }

 private:
  void Send(const std::string& message) const;

  std::string address;  // of a datagram socket; empty: no manager
  std::chrono::microseconds watchdogTimeout{0};
};

}  // namespace fenlux::refhost
