// Windows hosts are not started by systemd.
#include "refhost/app/service/service_manager.h"

namespace fenlux::refhost {

ServiceManager::ServiceManager() = default;
void ServiceManager::Ready() const {}
void ServiceManager::Reloading() const {}
void ServiceManager::Stopping() const {}
void ServiceManager::Status(const std::string& /*text*/) const {}
void ServiceManager::Alive() const {}
void ServiceManager::Send(const std::string& /*message*/) const {}

}  // namespace fenlux::refhost
