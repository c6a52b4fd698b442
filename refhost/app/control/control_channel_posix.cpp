// A Unix-domain socket in a directory that only its owner can enter. Each end also asks the kernel who the peer is and
// talks to its own user only.
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "refhost/app/control/control_channel.h"
#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/environment.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

sockaddr_un AddressOf(const fs::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw ControlChannelError(
        fmt::format("the path of the control socket, {}, is longer than {} bytes; use a shorter one", path.native(),
                    sizeof(address.sun_path) - 1));
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

Descriptor NewSocket() {
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.Valid()) throw ControlChannelError("cannot create a control socket: " + LastErrorText());
  return socket;
}

// The pointer type that the socket calls take.
const sockaddr* Generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

bool HasListener(const sockaddr_un& address) {
  const Descriptor socket = NewSocket();
  return ::connect(socket.Get(), Generic(address), sizeof(address)) == 0;
}

// The directory must be owned by the user and accessible to the user only. Creates it if it is missing.
void PrepareDirectory(const fs::path& directory) {
  if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    throw ControlChannelError(
        fmt::format("cannot create the directory {} of the control socket: {}", directory.native(), LastErrorText()));
  }
  struct stat status {};
  const bool closed = ::lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                      status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (!closed) {
    throw ControlChannelError(fmt::format(
        "the directory {} of the control socket must be owned by you and accessible to you only (chmod 700)",
        directory.native()));
  }
}

void SetTimeout(const Descriptor& socket, std::chrono::seconds timeout) {
  const timeval time{static_cast<time_t>(timeout.count()), 0};
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
}

// Reads one line and strips its end. Returns nothing if the peer did not send a whole line.
std::optional<std::string> ReadLine(const Descriptor& socket) {
  std::string line;
  std::array<char, 4096> chunk{};
  while (line.size() < kMaxControlLine) {
    const ssize_t count = ::read(socket.Get(), chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    line.append(chunk.data(), static_cast<std::size_t>(count));
    if (line.back() == '\n') {
      line.pop_back();
      return line;
    }
  }
  return std::nullopt;
}

bool WriteLine(const Descriptor& socket, std::string line) {
  line += '\n';
  std::size_t written = 0;
  while (written < line.size()) {
    const ssize_t count = ::send(socket.Get(), line.data() + written, line.size() - written, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    written += static_cast<std::size_t>(count);
  }
  return true;
}

bool IsOwnUser(const Descriptor& socket) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  return ::getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

}  // namespace

fs::path DefaultControlPath() {
  const std::string runtime = EnvironmentText("XDG_RUNTIME_DIR").value_or("");
  const fs::path directory =
      runtime.empty() ? fs::path("/tmp") / fmt::format("fenlux-{}", ::geteuid()) : fs::path(runtime) / "fenlux";
  return directory / "host.sock";
}

class ControlListener::Body {
 public:
  explicit Body(const fs::path& socketPath) : path(fs::absolute(socketPath)), socket(NewSocket()) {
    const sockaddr_un address = AddressOf(path);
    PrepareDirectory(path.parent_path());
    if (HasListener(address)) {
      throw ControlChannelError("another host is listening on the control socket " + path.native() +
                                "; stop it, or choose another socket with --socket or [control]");
    }
    ::unlink(path.c_str());  // left by a host that was killed
    if (::bind(socket.Get(), Generic(address), sizeof(address)) != 0) {
      throw ControlChannelError(fmt::format("cannot open the control socket {}: {}", path.native(), LastErrorText()));
    }
    if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(socket.Get(), 8) != 0) {
      const std::string reason = LastErrorText();
      ::unlink(path.c_str());
      throw ControlChannelError(fmt::format("cannot open the control socket {}: {}", path.native(), reason));
    }
  }

  ~Body() { Stop(); }

  void Serve(const std::function<std::string(const std::string&)>& answer) {
    while (!stopped.load()) {
      pollfd waiting{socket.Get(), POLLIN, 0};
      // Stop shuts the socket down, which ends the wait. The timeout is a safety net only.
      if (::poll(&waiting, 1, 500) <= 0) continue;
      const Descriptor client(::accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client.Valid() || !IsOwnUser(client)) continue;
      SetTimeout(client, kControlClientTimeout);
      if (const auto request = ReadLine(client)) WriteLine(client, answer(*request));
    }
  }

  void Stop() {
    if (stopped.exchange(true)) return;
    ::shutdown(socket.Get(), SHUT_RDWR);
    ::unlink(path.c_str());
  }

 private:
  const fs::path path;
  const Descriptor socket;
  std::atomic<bool> stopped{false};
};

ControlListener::ControlListener(const fs::path& path) : body(std::make_unique<Body>(path)) {}
ControlListener::~ControlListener() { Stop(); }
void ControlListener::Serve(const std::function<std::string(const std::string&)>& answer) { body->Serve(answer); }
void ControlListener::Stop() { body->Stop(); }

std::string SendControlRequest(const fs::path& path, const std::string& request, std::chrono::seconds timeout) {
  const sockaddr_un address = AddressOf(path);
  const Descriptor socket = NewSocket();
  if (::connect(socket.Get(), Generic(address), sizeof(address)) != 0) {
    throw ControlChannelError(
        fmt::format("no host reachable on the control socket {}: {}", path.native(), LastErrorText()));
  }
  if (!IsOwnUser(socket)) {
    throw ControlChannelError("the control socket " + path.native() + " belongs to another user's process");
  }
  SetTimeout(socket, timeout);
  std::optional<std::string> answer;
  if (WriteLine(socket, request)) answer = ReadLine(socket);
  if (!answer) throw ControlChannelError("no answer from the host on the control socket " + path.native());
  return *std::move(answer);
}

}  // namespace fenlux::refhost
