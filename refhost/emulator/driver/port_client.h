// What the module holds of its connection: a port client whose other end is the emulated driver.
#pragma once

#include <memory>

#include "host/port_client.h"
#include "refhost/emulator/driver/driver_core.h"
#include "refhost/emulator/driver/driver_port.h"

namespace fenlux::refhost {

// Letting go of it ends the connection, as Close does; neither waits for anybody.
class EmulatorPortClient final : public CPortClient {
 public:
  EmulatorPortClient(std::shared_ptr<DriverCore> driverCore, std::shared_ptr<DriverPort> driverPort)
      : core(std::move(driverCore)), port(std::move(driverPort)) {}
  ~EmulatorPortClient() { EndPort("the module let go of it"); }
  EmulatorPortClient(const EmulatorPortClient&) = delete;
  EmulatorPortClient& operator=(const EmulatorPortClient&) = delete;

  void Connect() override { core->Connect(port); }
  void Start() override { core->StartDelivery(port); }
  void Wait() override { port->WaitEnded(); }
  void Close() override { EndPort("the module closed it"); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override {
    core->Send(port, request, reply, flag);
  }

 private:
  void EndPort(const char* reason) { core->End(port, UnjudgedCause::kConnectionEnded, reason); }

  const std::shared_ptr<DriverCore> core;
  const std::shared_ptr<DriverPort> port;
};

}  // namespace fenlux::refhost
