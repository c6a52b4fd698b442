// The driver's side of the port in a replay. The module's calls wait here until the player reaches their place in
// the capture, so that the module's threads see events in the recorded order.
//
// The module's calls run on its own threads, everything else on the player's. Each port has one lock. The action of
// UnlessPolicyApplied runs under it, and no other code of the module.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/mutex.h"
#include "host/buf.h"
#include "host/port_client.h"

namespace fenlux::refhost {

// The driver's reply to a request.
struct PlayedReply {
  std::string failure;              // sending failed with this text; empty if it did not
  std::vector<std::uint8_t> bytes;  // empty: the driver gave no answer
};

// A request that the module has sent. Its thread waits for the reply.
struct PlayedRequest {
  std::thread::id thread;
  std::vector<std::uint8_t> bytes;
  std::chrono::steady_clock::time_point arrival;
  bool taken = false;  // by the player
  bool answered = false;
  PlayedReply reply;
};

// Who answers requests.
enum class Answering {
  kPlayer,
  // The port itself, until the opening of the connection has ended. Two threads of the module open it: one asks for
  // the driver's version last, the other sends the configuration block last.
  kOpening,
  kPort,  // the port itself
};

class PlayedPort {
 public:
  PlayedPort(const std::shared_ptr<CBuf>& connectContext, NotificationHandler notificationHandler);

  // The operations of CPortClient.
  void Connect();
  void Start();
  void Wait();
  void Close();
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply);

  const std::vector<std::uint8_t>& Context() const { return context; }
  const NotificationHandler& Handler() const { return handler; }
  bool IsConnecting() const;

  void Accept(Answering mode);
  void Refuse(std::string reason);
  // The driver ends the connection.
  void End() { Close(); }
  // Makes all requests fail from now on.
  void Release();

  // Each waits for a step of the module and returns whether it happened in time.
  bool AwaitStart(std::chrono::milliseconds limit);
  bool AwaitOpening(std::chrono::milliseconds limit);
  bool AwaitEnd(std::chrono::milliseconds limit);
  // Ends an opening that the module has not completed.
  void EndOpening();
  // Runs the action if the opening still lacks the configuration block. The module cannot send it while the action
  // runs.
  void UnlessPolicyApplied(const std::function<void()>& action);

  // Takes and returns the first request that `accepts` accepts and that is not taken; null if there is none within the
  // limit. Calls `accepts` repeatedly, because its result may depend on the time.
  using Accepts = std::function<bool(const PlayedRequest& request)>;
  std::shared_ptr<PlayedRequest> Take(const Accepts& accepts, std::chrono::milliseconds limit);
  void Answer(PlayedRequest& request, PlayedReply reply);
  // The requests that are not taken.
  std::vector<std::shared_ptr<PlayedRequest>> Waiting() const;
  bool IsWaiting(std::thread::id thread) const;
  // Whether a request has no reply yet, taken or not.
  bool HasRequests() const;

 private:
  enum class Phase { kNew, kConnecting, kOpen, kRefused };

  // Whether the port answers the request itself; then `reply` is set.
  bool AnswersItself(const PlayedRequest& request, PlayedReply& reply) FENLUX_REQUIRES(mutex);

  const std::vector<std::uint8_t> context;
  const NotificationHandler handler;

  mutable Mutex mutex;
  std::condition_variable changed;
  Phase phase FENLUX_GUARDED_BY(mutex) = Phase::kNew;
  std::string refusal FENLUX_GUARDED_BY(mutex);
  Answering answering FENLUX_GUARDED_BY(mutex) = Answering::kPlayer;
  bool versionAsked FENLUX_GUARDED_BY(mutex) = false;   // during the opening
  bool policyApplied FENLUX_GUARDED_BY(mutex) = false;  // during the opening
  bool started FENLUX_GUARDED_BY(mutex) = false;
  bool ended FENLUX_GUARDED_BY(mutex) = false;
  bool released FENLUX_GUARDED_BY(mutex) = false;
  std::list<std::shared_ptr<PlayedRequest>> requests FENLUX_GUARDED_BY(mutex);  // without a reply, the oldest first
};

// The ports that the module opens, one after the other.
class PlayedDriver {
 public:
  // Any thread.
  std::shared_ptr<CPortClient> MakePortClient(const std::shared_ptr<CBuf>& connectContext,
                                              const NotificationHandler& handler);
  // Waits for a port whose Connect is blocked; null if there is none in time.
  std::shared_ptr<PlayedPort> AwaitConnect(std::chrono::milliseconds limit);

 private:
  Mutex mutex;
  std::shared_ptr<PlayedPort> latest FENLUX_GUARDED_BY(mutex);
};

}  // namespace fenlux::refhost
