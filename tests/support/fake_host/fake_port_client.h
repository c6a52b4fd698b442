// The fake of host/port_client.h: the port, and the driver behind it.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "host/port_client.h"
#include "host/win_work.h"
#include "tests/support/fake_host/host_core.h"

namespace fenlux::testing {

class FakePortClient final : public CPortClient {
 public:
  FakePortClient(std::shared_ptr<HostCore> hostCore, NotificationHandler notificationHandler);
  void Connect() override;
  void Start() override;
  void Wait() override;
  void Close() override;
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool flag) override;

  // Acts as the driver: delivers a message to the module on the calling thread.
  std::shared_ptr<CBuf> Deliver(const Bytes& message) const;
  const NotificationHandler& Handler() const { return handler; }
  bool IsClosed() const;

 private:
  std::shared_ptr<HostCore> core;
  NotificationHandler handler;
  mutable std::mutex mutex;
  std::condition_variable closing;
  bool closed = false;
};

}  // namespace fenlux::testing
