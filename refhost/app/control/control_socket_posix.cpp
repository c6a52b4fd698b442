// A socket in a directory that only its owner can enter. Each end also asks the kernel who the peer is and talks to its
// own user only.
#include "refhost/app/control/control_socket_posix.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "refhost/app/control/control_channel.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

// A live listener accepts a connection at once, unless its process is stopped and its queue is full.
constexpr std::chrono::milliseconds kProbeTimeout{1000};
// While it holds the lock, a host probes at most one other listener.
constexpr std::chrono::seconds kLockTimeout{5};
constexpr std::chrono::milliseconds kLockInterval{5};

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

// The pointer type that the socket calls expect.
const sockaddr* Generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

// Returns 0 or the error. It is EAGAIN if the listener's queue stays full: without the time limit, connect would wait
// for room indefinitely. A signal, or a stop and continuation of this process, interrupts a wait with a time limit.
int Connect(const Descriptor& socket, const sockaddr_un& address, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return EAGAIN;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timeval time{static_cast<time_t>(seconds.count()), static_cast<suseconds_t>((left - seconds).count())};
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
    if (::connect(socket.Get(), Generic(address), sizeof(address)) == 0) return 0;
    if (errno != EINTR) return errno;
  }
}

// The directory must be owned by the user and accessible to the user only.
void CheckDirectory(const fs::path& directory) {
  struct stat status {};
  const bool closed = ::lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                      status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (closed) return;
  throw ControlChannelError(
      fmt::format("the directory {} of the control socket must be owned by you and accessible to you only (chmod 700)",
                  directory.native()));
}

// Creates the directory if it is missing.
void PrepareDirectory(const fs::path& directory) {
  if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    throw ControlChannelError(
        fmt::format("cannot create the directory {} of the control socket: {}", directory.native(), LastErrorText()));
  }
  CheckDirectory(directory);
}

[[noreturn]] void RefuseOtherFile(const fs::path& path) {
  throw ControlChannelError(
      fmt::format("cannot open the control socket {}: something that is not a socket is in its place; move it away, "
                  "or choose another socket with --socket or [control]",
                  path.native()));
}

// Removes a socket that nobody listens on any more. Throws if anything else is in its place.
void RemoveLeftover(const fs::path& path, const sockaddr_un& address) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) RefuseOtherFile(path);
  const int error = Connect(NewSocket(), address, kProbeTimeout);
  if (error == 0 || error == EAGAIN) {
    throw ControlChannelBusy("another host is listening on the control socket " + path.native() +
                             "; stop it, or choose another socket with --socket or [control]");
  }
  if (error != ECONNREFUSED) {
    throw ControlChannelError(
        fmt::format("cannot open the control socket {}: another program's socket is there ({}); choose another socket "
                    "with --socket or [control]",
                    path.native(), SystemErrorText(error)));
  }
  ::unlink(path.c_str());
}

// Keeps other hosts from opening a socket in the directory until the result is closed. Otherwise two hosts could
// find the same leftover, and the slower one would remove the new socket of the faster one.
Descriptor LockDirectory(const fs::path& directory) {
  Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto deadline = std::chrono::steady_clock::now() + kLockTimeout;
  while (opened.Valid() && ::flock(opened.Get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) break;
    if (std::chrono::steady_clock::now() >= deadline) {
      throw ControlChannelBusy(
          fmt::format("another host has been opening a control socket in {} for {} seconds; is it "
                      "stopped?",
                      directory.native(), kLockTimeout.count()));
    }
    std::this_thread::sleep_for(kLockInterval);
  }
  return opened;  // on a file system without locks, continue without one
}

}  // namespace

Descriptor ListenAt(const fs::path& path) {
  const sockaddr_un address = AddressOf(path);
  PrepareDirectory(path.parent_path());
  const Descriptor lock = LockDirectory(path.parent_path());
  RemoveLeftover(path, address);
  Descriptor socket = NewSocket();
  // bind creates the file with the mode of the socket, so the mode need not be changed by name afterwards.
  if (::fchmod(socket.Get(), S_IRUSR | S_IWUSR) != 0 || ::bind(socket.Get(), Generic(address), sizeof(address)) != 0) {
    throw ControlChannelError(fmt::format("cannot open the control socket {}: {}", path.native(), LastErrorText()));
  }
  if (::listen(socket.Get(), SOMAXCONN) != 0) {
    const std::string reason = LastErrorText();
    ::unlink(path.c_str());
    throw ControlChannelError(fmt::format("cannot open the control socket {}: {}", path.native(), reason));
  }
  return socket;
}

std::string WhyNoListener(const fs::path& path) {
  try {
    AddressOf(path);
    struct stat status {};
    const fs::path directory = path.parent_path();
    if (::lstat(directory.c_str(), &status) == 0) {
      CheckDirectory(directory);
    } else if (::access(directory.parent_path().c_str(), W_OK | X_OK) != 0) {
      return fmt::format("cannot create the directory {} of the control socket: {}", directory.native(),
                         LastErrorText());
    }
    if (::lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) RefuseOtherFile(path);
    return {};
  } catch (const ControlChannelError& error) {
    return error.what();
  }
}

Descriptor ConnectTo(const fs::path& path, std::chrono::milliseconds limit) {
  const sockaddr_un address = AddressOf(path);
  Descriptor socket = NewSocket();
  if (const int error = Connect(socket, address, limit); error != 0) {
    const std::string prefix = fmt::format("no host reachable on the control socket {}: ", path.native());
    if (error == EAGAIN) {
      throw ControlChannelError(prefix + "a host listens there, but does not accept clients; is it stopped?");
    }
    const std::string hint = error == EACCES ? " (it is another user's, such as root's service; use sudo)" : "";
    throw ControlChannelUnreachable(prefix + SystemErrorText(error) + hint);
  }
  if (!IsOwnUser(socket)) {
    throw ControlChannelError("the control socket " + path.native() + " belongs to another user's process");
  }
  return socket;
}

bool IsOwnUser(const Descriptor& socket) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  return ::getsockopt(socket.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

}  // namespace fenlux::refhost
