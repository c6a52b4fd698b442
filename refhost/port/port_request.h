// The arguments of CWinWork::CreatePortClient, with which the module requests a port client.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/buf.h"
#include "host/port_client.h"

namespace fenlux::refhost {

struct PortRequest {
  std::string portName;
  std::shared_ptr<CBuf> connectContext;
  std::uint32_t maxMessageSize = 0;
  NotificationHandler handler;
  std::uint32_t portValue = 0;
};

}  // namespace fenlux::refhost
