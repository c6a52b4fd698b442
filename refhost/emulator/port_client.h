// What the module holds of its connection: a port client whose other end is the emulated driver.
#pragma once

#include <memory>

#include "host/port_client.h"
#include "refhost/emulator/driver_core.h"
#include "refhost/emulator/driver_port.h"

namespace fenlux::refhost {

// Letting go of it ends the connection, as Close does; neither waits for anybody.
class EmulatorPortClient final : public CPortClient {
 public:
  EmulatorPortClient(std::shared_ptr<DriverCore> core, std::shared_ptr<DriverPort> port)
      : core_(std::move(core)), port_(std::move(port)) {}
  ~EmulatorPortClient() { EndPort("the module let go of it"); }
  EmulatorPortClient(const EmulatorPortClient&) = delete;
  EmulatorPortClient& operator=(const EmulatorPortClient&) = delete;

  void Connect() override { core_->Connect(port_); }
  void Start() override { core_->StartDelivery(port_); }
  void Wait() override { port_->WaitEnded(); }
  void Close() override { EndPort("the module closed it"); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override {
    core_->Send(port_, request, reply, flag);
  }

 private:
  void EndPort(const char* reason) { core_->End(port_, UnjudgedCause::kConnectionEnded, reason); }

  const std::shared_ptr<DriverCore> core_;
  const std::shared_ptr<DriverPort> port_;
};

}  // namespace fenlux::refhost
