// Serves the clients of a listening control socket on one thread, several at once.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "refhost/app/control/control_channel.h"
#include "refhost/base/platform/descriptor_posix.h"

struct pollfd;

namespace fenlux::refhost {

class ControlServer {
 public:
  // `listeningSocket` is not owned and must outlive the server. Throws ControlChannelError.
  ControlServer(int listeningSocket, const ControlLimits& clientLimits);

  // Returns after Stop.
  void Serve(const ControlReplies& replies);
  // Any thread.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;

  struct Client {
    Descriptor socket;
    Clock::time_point deadline;
    std::string text = {};   // the request so far, or the answer
    bool answering = false;  // whether `text` is the answer
    std::size_t sent = 0;    // of the answer
    bool over = false;
  };

  // Waits for clients and serves those that are ready.
  void ServeOnce(const ControlReplies& replies);
  std::vector<pollfd> Waits() const;
  int Timeout() const;
  void Accept();
  void Handle(Client& client, bool isReady, const ControlReplies& replies);
  void Receive(Client& client, const ControlReplies& replies);
  // Has the request line answered and begins to send the reply.
  void Answer(Client& client, std::size_t lineLength, const ControlReplies& replies);
  void Reply(Client& client, std::string line);
  void Send(Client& client);

  const int listener;
  const ControlLimits limits;
  const Descriptor wake;
  std::atomic<bool> stopped{false};
  std::vector<Client> clients;     // used only by the serving thread, like all below
  Clock::time_point acceptFrom{};  // after a failed accept, the next one waits
};

}  // namespace fenlux::refhost
