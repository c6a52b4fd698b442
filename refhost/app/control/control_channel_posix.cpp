// The two ends of the channel on a Unix-domain socket.
#include "refhost/app/control/control_channel.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "refhost/app/control/control_server_posix.h"
#include "refhost/app/control/control_socket_posix.h"
#include "refhost/base/platform/environment.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;
using Clock = std::chrono::steady_clock;

// Connecting has a shorter limit than waiting for the answer.
constexpr std::chrono::milliseconds kConnectTimeout{5000};

// Whether the socket is ready before the deadline.
bool Await(const Descriptor& socket, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd wait{socket.Get(), events, 0};
    const int ready = ::poll(&wait, 1, static_cast<int>(std::max<std::int64_t>(0, left)));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

bool WriteLine(const Descriptor& socket, std::string line, Clock::time_point deadline) {
  line += '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    if (!Await(socket, POLLOUT, deadline)) return false;
    const ssize_t count = ::send(socket.Get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) return false;
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// Reads one line and strips its end. Returns nothing if the host did not send a whole line.
std::optional<std::string> ReadLine(const Descriptor& socket, Clock::time_point deadline) {
  std::string line;
  std::array<char, 65536> chunk{};
  while (line.size() < kMaxControlAnswer) {
    if (!Await(socket, POLLIN, deadline)) return std::nullopt;
    const ssize_t count = ::recv(socket.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) return std::nullopt;
    line.append(chunk.data(), static_cast<std::size_t>(count));
    if (line.back() == '\n') {
      line.pop_back();
      return line;
    }
  }
  return std::nullopt;
}

// Where the system's service listens. systemd creates the directory.
const fs::path& ServicePath() {
  static const fs::path path = "/run/fenlux/host.sock";
  return path;
}

bool IsOwnDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

}  // namespace

// Root uses neither /tmp, where any user could take the name first, nor the directory of the user who called sudo,
// whose environment may have been kept.
fs::path DefaultControlPath() {
  const std::string runtime = EnvironmentText("XDG_RUNTIME_DIR").value_or("");
  fs::path directory = fs::path("/tmp") / fmt::format("fenlux-{}", ::geteuid());
  if (!runtime.empty() && IsOwnDirectory(runtime)) {
    directory = fs::path(runtime) / "fenlux";
  } else if (::geteuid() == 0) {
    directory = ServicePath().parent_path();
  }
  return directory / "host.sock";
}

std::vector<fs::path> DefaultControlPaths() {
  std::vector<fs::path> paths{DefaultControlPath()};
  if (paths.front() != ServicePath()) paths.push_back(ServicePath());
  return paths;
}

class ControlListener::Body {
 public:
  Body(const fs::path& socketPath, const ControlLimits& limits)
      : path(fs::absolute(socketPath)), socket(ListenAt(path)), server(socket.Get(), limits) {
    ::lstat(path.c_str(), &place);
  }

  ~Body() { Stop(); }

  void Serve(const ControlReplies& replies) { server.Serve(replies); }

  void Stop() {
    if (stopped.exchange(true)) return;
    server.Stop();
    ::shutdown(socket.Get(), SHUT_RDWR);
    struct stat status {};
    const bool isOurs = ::lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
                        status.st_dev == place.st_dev && status.st_ino == place.st_ino;
    if (isOurs) ::unlink(path.c_str());
  }

 private:
  const fs::path path;
  const Descriptor socket;
  ControlServer server;
  struct stat place {};  // identifies the socket's file
  std::atomic<bool> stopped{false};
};

ControlListener::ControlListener(const fs::path& path, const ControlLimits& limits)
    : body(std::make_unique<Body>(path, limits)) {}
ControlListener::~ControlListener() { Stop(); }
void ControlListener::Serve(const ControlReplies& replies) { body->Serve(replies); }
void ControlListener::Stop() { body->Stop(); }

std::string SendControlRequest(const fs::path& path, const std::string& request, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const Descriptor socket = ConnectTo(path, std::min(timeout, kConnectTimeout));
  // A host that refuses a request early answers before it has read all of it.
  WriteLine(socket, request, deadline);
  std::optional<std::string> answer = ReadLine(socket, deadline);
  if (!answer) throw ControlChannelError("no answer from the host on the control socket " + path.native());
  return *std::move(answer);
}

}  // namespace fenlux::refhost
