// systemd's protocol: datagrams of "NAME=value" lines to the socket that NOTIFY_SOCKET names.
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "refhost/app/service/service_manager.h"
#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/environment.h"

namespace fenlux::refhost {
namespace {

// 0 unless the variable is a number.
std::uint64_t NumberOf(const std::string& variable) {
  const std::string text = EnvironmentText(variable).value_or("");
  std::uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() ? number : 0;
}

// The manager compares this time with its own clock.
std::uint64_t MonotonicMicroseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

}  // namespace

ServiceManager::ServiceManager() : address(EnvironmentText("NOTIFY_SOCKET").value_or("")) {
  const bool isPath = address.starts_with('/') || address.starts_with('@');  // "@" begins a name without a file
  if (!isPath || address.size() >= sizeof(sockaddr_un::sun_path)) address.clear();
  // The watchdog may be meant for another process of the service.
  const std::uint64_t watched = NumberOf("WATCHDOG_PID");
  const bool isWatched = watched == 0 || watched == static_cast<std::uint64_t>(::getpid());
  if (!address.empty() && isWatched) watchdogTimeout = std::chrono::microseconds(NumberOf("WATCHDOG_USEC"));
}

void ServiceManager::Ready() const { Send("READY=1"); }

void ServiceManager::Reloading() const { Send(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", MonotonicMicroseconds())); }

void ServiceManager::Stopping() const { Send("STOPPING=1\nSTATUS=Stopping"); }

void ServiceManager::Status(const std::string& text) const { Send("STATUS=" + text); }

void ServiceManager::Alive() const { Send("WATCHDOG=1"); }

void ServiceManager::Send(const std::string& message) const {
  if (address.empty()) return;
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.Valid()) return;
  sockaddr_un target{};
  target.sun_family = AF_UNIX;
  std::memcpy(target.sun_path, address.data(), address.size());
  if (address.front() == '@') target.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
  ::sendto(socket.Get(), message.data(), message.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&target),
           size);
}

}  // namespace fenlux::refhost
