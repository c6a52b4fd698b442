// A socket of the file system inside a directory that is closed to everyone but its owner; the kernel tells the user at
// the other end, and only the host's own is answered.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "refhost/app/control/control_channel.h"
#include "refhost/base/platform/descriptor_posix.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kLongestLine = std::size_t{64} << 20;
// A client that connects and says nothing must not keep others waiting.
constexpr std::chrono::seconds kClientPatience{5};

sockaddr_un AddressOf(const fs::path& place) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string& path = place.native();
  if (path.size() >= sizeof(address.sun_path)) {
    throw ControlChannelError("the control socket's path " + path + " is longer than " +
                              std::to_string(sizeof(address.sun_path) - 1) + " bytes; name a shorter one");
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

Descriptor NewSocket() {
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.Valid()) throw ControlChannelError("no control socket can be made: " + LastErrorText());
  return socket;
}

// A pointer of the general type that the socket calls take.
const sockaddr* Generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

bool SomeoneListens(const sockaddr_un& address) {
  const Descriptor socket = NewSocket();
  return ::connect(socket.Get(), Generic(address), sizeof(address)) == 0;
}

// The directory must be the user's own and closed to all others; one that is missing is made so.
void PrepareDirectory(const fs::path& directory) {
  if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    throw ControlChannelError("the control socket's directory " + directory.string() +
                              " cannot be made: " + LastErrorText());
  }
  struct stat status {};
  const bool closed = ::lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                      status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (!closed) {
    throw ControlChannelError("the control socket's directory " + directory.string() +
                              " must be a directory of your own that is closed to others (chmod 700)");
  }
}

void SetPatience(const Descriptor& socket, std::chrono::seconds patience) {
  const timeval time{static_cast<time_t>(patience.count()), 0};
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
}

// One line without its end; false where the other side did not send a whole one.
bool ReadLine(const Descriptor& socket, std::string& line) {
  std::array<char, 4096> chunk{};
  while (line.size() < kLongestLine) {
    const ssize_t count = ::read(socket.Get(), chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    line.append(chunk.data(), static_cast<std::size_t>(count));
    if (line.back() == '\n') {
      line.pop_back();
      return true;
    }
  }
  return false;
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

fs::path DefaultControlPlace() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const fs::path directory = runtime != nullptr && *runtime != '\0'
                                 ? fs::path(runtime) / "fenlux"
                                 : fs::path("/tmp") / ("fenlux-" + std::to_string(::geteuid()));
  return directory / "host.sock";
}

class ControlListener::Body {
 public:
  explicit Body(const fs::path& socketPath) : place(socketPath), socket(NewSocket()) {
    const sockaddr_un address = AddressOf(place);
    PrepareDirectory(place.parent_path());
    if (SomeoneListens(address)) {
      throw ControlChannelError("another host listens on the control socket " + place.string() +
                                "; end it, or name another socket under [control]");
    }
    ::unlink(place.c_str());  // left behind by a host that ended without its stop
    if (::bind(socket.Get(), Generic(address), sizeof(address)) != 0) {
      throw ControlChannelError("the control socket " + place.string() + " cannot be opened: " + LastErrorText());
    }
    if (::chmod(place.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(socket.Get(), 8) != 0) {
      const std::string reason = LastErrorText();
      ::unlink(place.c_str());
      throw ControlChannelError("the control socket " + place.string() + " cannot be opened: " + reason);
    }
  }

  ~Body() { Stop(); }

  void Serve(const std::function<std::string(const std::string&)>& answer) {
    while (!stopped.load()) {
      pollfd waiting{socket.Get(), POLLIN, 0};
      // Stop shuts the socket down, which ends the wait; the limit only guards against a kernel that does not tell.
      if (::poll(&waiting, 1, 500) <= 0) continue;
      const Descriptor client(::accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client.Valid() || !IsOwnUser(client)) continue;
      SetPatience(client, kClientPatience);
      std::string request;
      if (ReadLine(client, request)) WriteLine(client, answer(request));
    }
  }

  void Stop() {
    if (stopped.exchange(true)) return;
    ::shutdown(socket.Get(), SHUT_RDWR);
    ::unlink(place.c_str());
  }

 private:
  const fs::path place;
  const Descriptor socket;
  std::atomic<bool> stopped{false};
};

ControlListener::ControlListener(const fs::path& place) : body(std::make_unique<Body>(place)) {}
ControlListener::~ControlListener() { Stop(); }
void ControlListener::Serve(const std::function<std::string(const std::string&)>& answer) { body->Serve(answer); }
void ControlListener::Stop() { body->Stop(); }

std::string ControlExchange(const fs::path& place, const std::string& request, std::chrono::seconds limit) {
  const sockaddr_un address = AddressOf(place);
  const Descriptor socket = NewSocket();
  if (::connect(socket.Get(), Generic(address), sizeof(address)) != 0) {
    throw ControlChannelError("no host can be reached on the control socket " + place.string() + ": " +
                              LastErrorText());
  }
  if (!IsOwnUser(socket)) {
    throw ControlChannelError("the control socket " + place.string() + " belongs to another user's process");
  }
  SetPatience(socket, limit);
  std::string answer;
  if (!WriteLine(socket, request) || !ReadLine(socket, answer)) {
    throw ControlChannelError("the host at the control socket " + place.string() + " gave no answer");
  }
  return answer;
}

}  // namespace fenlux::refhost
