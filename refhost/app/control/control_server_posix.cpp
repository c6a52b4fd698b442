// A loop around poll. A client has one deadline for its request and another for reading the answer; meanwhile, the loop
// serves the others.
#include "refhost/app/control/control_server_posix.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <new>
#include <utility>

#include "refhost/app/control/control_socket_posix.h"
#include "refhost/base/platform/error_text.h"

namespace fenlux::refhost {
namespace {

// How long to wait after a failed accept, so that the loop does not spin while there are no descriptors.
constexpr std::chrono::milliseconds kAcceptPause{100};

}  // namespace

ControlServer::ControlServer(int listeningSocket, const ControlLimits& clientLimits)
    : listener(listeningSocket), limits(clientLimits), wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake.Valid()) throw ControlChannelError("cannot serve the control socket: " + LastErrorText());
}

void ControlServer::Serve(const ControlReplies& replies) {
  while (!stopped) {
    try {
      ServeOnce(replies);
    } catch (const std::bad_alloc&) {  // in the loop itself: try again
    }
  }
  clients.clear();
}

void ControlServer::ServeOnce(const ControlReplies& replies) {
  std::vector<pollfd> waits = Waits();
  const int ready = ::poll(waits.data(), waits.size(), Timeout());
  if (stopped) return;
  const std::size_t served = clients.size();  // before Accept adds one
  if (ready > 0 && waits[1].revents != 0) Accept();
  for (std::size_t index = 0; index < served; ++index) {
    const bool isReady = ready > 0 && waits[index + 2].revents != 0;
    try {
      Handle(clients[index], isReady, replies);
    } catch (const std::bad_alloc&) {  // the client gets no answer
      clients[index].over = true;
    }
  }
  std::erase_if(clients, [](const Client& client) { return client.over; });
}

void ControlServer::Stop() {
  stopped = true;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(wake.Get(), &one, sizeof(one));
}

// The wake-up, the listener, then the clients in their order.
std::vector<pollfd> ControlServer::Waits() const {
  std::vector<pollfd> waits;
  waits.reserve(clients.size() + 2);
  waits.push_back({wake.Get(), POLLIN, 0});
  const bool accepts = clients.size() < limits.clients && Clock::now() >= acceptFrom;
  waits.push_back({accepts ? listener : -1, POLLIN, 0});  // poll ignores a negative descriptor
  for (const Client& client : clients) {
    waits.push_back({client.socket.Get(), static_cast<short>(client.answering ? POLLOUT : POLLIN), 0});
  }
  return waits;
}

// Until the first deadline, in milliseconds; -1 if there is none.
int ControlServer::Timeout() const {
  const Clock::time_point now = Clock::now();
  Clock::time_point first = Clock::time_point::max();
  if (acceptFrom > now) first = acceptFrom;
  for (const Client& client : clients) first = std::min(first, client.deadline);
  if (first == Clock::time_point::max()) return -1;
  return static_cast<int>(std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(first - now).count()));
}

void ControlServer::Accept() {
  Descriptor socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.Valid()) {
    acceptFrom = Clock::now() + kAcceptPause;
    return;
  }
  if (!IsOwnUser(socket)) return;
  clients.push_back({.socket = std::move(socket), .deadline = Clock::now() + limits.requestTime});
}

// Handles input before the deadline, because the loop itself may have been late.
void ControlServer::Handle(Client& client, bool isReady, const ControlReplies& replies) {
  if (isReady) client.answering ? Send(client) : Receive(client, replies);
  if (client.over || Clock::now() < client.deadline) return;
  if (client.answering) {
    client.over = true;
  } else {
    Reply(client, replies.refuse(fmt::format("the request did not arrive within {} ms", limits.requestTime.count())));
  }
}

// Reads what has arrived. An incomplete line is kept until the rest arrives.
void ControlServer::Receive(Client& client, const ControlReplies& replies) {
  std::array<char, 65536> chunk{};
  for (;;) {
    const ssize_t count = ::recv(client.socket.Get(), chunk.data(), chunk.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) {
      client.over = true;
      return;
    }
    const std::size_t before = client.text.size();
    client.text.append(chunk.data(), static_cast<std::size_t>(count));
    const std::size_t end = client.text.find('\n', before);
    if (std::min(end, client.text.size()) > limits.requestBytes) {
      return Reply(client, replies.refuse(fmt::format("the request is longer than {} bytes", limits.requestBytes)));
    }
    if (end != std::string::npos) return Answer(client, end, replies);
  }
}

void ControlServer::Answer(Client& client, std::size_t lineLength, const ControlReplies& replies) {
  client.text.resize(lineLength);
  const Clock::time_point start = Clock::now();
  std::string line = replies.answer(client.text);
  // The other clients could not be served during the operation, so they get more time.
  const Clock::duration taken = Clock::now() - start;
  for (Client& other : clients) other.deadline += taken;
  Reply(client, std::move(line));
}

void ControlServer::Reply(Client& client, std::string line) {
  client.text = std::move(line);
  client.text += '\n';
  client.answering = true;
  client.deadline = Clock::now() + limits.requestTime;
  Send(client);
}

// Sends as much as fits.
void ControlServer::Send(Client& client) {
  while (client.sent < client.text.size()) {
    const ssize_t count =
        ::send(client.socket.Get(), client.text.data() + client.sent, client.text.size() - client.sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) break;
    client.sent += static_cast<std::size_t>(count);
  }
  client.over = true;
}

}  // namespace fenlux::refhost
