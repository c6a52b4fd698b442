// The port client that the module holds. It forwards every call to the emulated driver.
#pragma once

#include <memory>
#include <utility>

#include "host/port_client.h"
#include "refhost/emulator/driver/driver_port.h"
#include "refhost/emulator/driver/emulated_driver.h"

namespace fenlux::refhost {

// Destroying it ends the connection, as Close does. Neither waits for another thread.
class EmulatorPortClient final : public CPortClient {
 public:
  EmulatorPortClient(std::shared_ptr<EmulatedDriver> emulatedDriver, std::shared_ptr<DriverPort> driverPort)
      : driver(std::move(emulatedDriver)), port(std::move(driverPort)) {}
  ~EmulatorPortClient() { EndPort("the module released it"); }
  EmulatorPortClient(const EmulatorPortClient&) = delete;
  EmulatorPortClient& operator=(const EmulatorPortClient&) = delete;

  void Connect() override { driver->Connections().Connect(port); }
  void Start() override { driver->Connections().Start(port); }
  void Wait() override { port->WaitEnded(); }
  void Close() override { EndPort("the module closed it"); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override {
    reply = driver->Requests().Send(*port, request, reply, flag);
  }

 private:
  void EndPort(const char* reason) { driver->Connections().End(port, UnjudgedCause::kConnectionEnded, reason); }

  const std::shared_ptr<EmulatedDriver> driver;
  const std::shared_ptr<DriverPort> port;
};

}  // namespace fenlux::refhost
