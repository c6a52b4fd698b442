// Messages to the service manager that started this process (systemd). The bodies are platform-specific.
#pragma once

#include <chrono>
#include <string>

namespace fenlux::refhost {

// Without a service manager, nothing happens. Messages never block, and one that cannot be sent is lost. Any thread.
class ServiceManager {
 public:
  // Reads from the environment where to send, and what is expected.
  ServiceManager();

  // The host serves: it is started, or reloaded.
  void Ready() const;
  // The host reloads its configuration until Ready.
  void Reloading() const;
  // The host begins to stop.
  void Stopping() const;
  // What the host is doing, in one line, for people.
  void Status(const std::string& text) const;
  // The host works. If this is not said for longer than WatchdogTimeout, the manager ends and restarts the host.
  void Alive() const;
  // 0: the manager does not watch.
  std::chrono::microseconds WatchdogTimeout() const { return watchdogTimeout; }

 private:
  void Send(const std::string& message) const;

  std::string address;  // of a datagram socket; empty: no manager
  std::chrono::microseconds watchdogTimeout{0};
};

}  // namespace fenlux::refhost
