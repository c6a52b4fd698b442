// Plays a capture to the module: does what the driver and the host did, in the order of the file, and compares what the
// module does with what it did.
//
// The player is one thread. It sends each message to the module, and waits for each message from the module until the
// module has sent it. So what the module did before an event in the recording, it also does before that event in the
// replay. Apart from that, its threads interleave as freely as they did then.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "refhost/app/replay/delivery_crew.h"
#include "refhost/app/replay/host_calls.h"
#include "refhost/app/replay/played_port.h"
#include "refhost/app/replay/replay_services.h"
#include "refhost/capture/replay/capture_outline.h"
#include "refhost/capture/replay/message_difference.h"

namespace fenlux::refhost {

// What the module did differently at a place of the capture.
struct ReplayDifference {
  std::uint64_t offset = 0;  // of the packet in the file
  std::uint32_t connection = 0;
  std::uint64_t exchange = 0;
  std::string what;
  std::optional<capture::MessageDifference> message;
};

struct ReplayTotals {
  std::uint64_t connections = 0;
  std::uint64_t requests = 0;       // compared
  std::uint64_t notifications = 0;  // whose replies were compared
  std::uint64_t calls = 0;
  std::uint64_t differences = 0;
};

struct ReplaySettings {
  bool recordedPace = false;                                     // otherwise as fast as the module answers
  std::chrono::milliseconds timeout = std::chrono::seconds(30);  // the longest wait for the module
  std::function<void(const ReplayDifference& difference)> difference;
  std::function<void(std::uint64_t offset)> progress;
};

// The player's thread.
class ReplayPlayer {
 public:
  // `outline` is that of the capture. All arguments must outlive the player.
  ReplayPlayer(const capture::CaptureOutline& captureOutline, const ReplayFacts& firstFacts, ReplayHost& replayHost,
               PlayedDriver& playedDriver, ReplaySettings replaySettings);

  // Plays the capture. The module must be registered with the host.
  void Play(capture::CaptureReader& reader);
  const ReplayTotals& Totals() const { return totals; }

 private:
  using Bytes = std::vector<std::uint8_t>;
  // How often the module is notified of its policy until it reads it: it misses notifications while it is busy.
  static constexpr std::chrono::milliseconds kPolicyInterval{100};

  struct Exchange {
    std::shared_ptr<PlayedPort> port;
    std::shared_ptr<PlayedRequest> request;    // of a request
    std::shared_ptr<PlayedDelivery> delivery;  // of a notification
    std::optional<std::uint32_t> decision;     // recorded
  };

  void PlayPacket(const capture::Packet& packet);
  void Pace(const capture::Packet& packet);
  void PlayFacts(const capture::Packet& packet);
  void PlayCall(const capture::Packet& packet);
  void PlayConnect(const capture::Packet& packet);
  void PlayRequest(const capture::Packet& packet);
  void PlayRequestReply(const capture::Packet& packet);
  void PlayNotification(const capture::Packet& packet);
  void PlayJudgement(const capture::Packet& packet);
  void PlayNotificationReply(const capture::Packet& packet);
  void PlayClosed(const capture::Packet& packet);
  void Finish();

  // The request that the packet recorded; null if the module does not send it.
  std::shared_ptr<PlayedRequest> AwaitRequest(const capture::Packet& packet, const Bytes& recorded);
  // Waits until the module has opened a connection whose beginning is missing from the capture.
  bool AwaitOpening(PlayedPort& port);
  // Forgets the connections so far, and reports what the module still wanted to send on them.
  void LeaveConnections(const capture::PacketHeader& header, std::uint64_t offset);
  void NotifyOfPolicy();
  // Stops the module's work, as the recording host must have done. Does nothing if the capture contains its calls.
  void StopUnrecorded(bool clear);
  void Report(const capture::Packet& packet, std::string what,
              std::optional<capture::MessageDifference> message = std::nullopt);
  // Compares a message of the module with the packet and reports a difference.
  void Compare(const capture::Packet& packet, const Bytes& recorded, const Bytes& replayed, const char* what);
  // How long to wait for the module; shorter once it has failed to do something.
  std::chrono::milliseconds Timeout() const;
  // Null if the module has not opened the connection.
  std::shared_ptr<PlayedPort> FindPort(std::uint32_t connection) const;

  const capture::CaptureOutline& outline;
  ReplayHost& host;
  PlayedDriver& driver;
  const ReplaySettings settings;
  capture::ComparisonRules rules;
  std::string facts;  // the current facts of the host
  HostCalls calls;
  DeliveryCrew crew;
  ReplayTotals totals;
  std::map<std::uint32_t, std::shared_ptr<PlayedPort>> ports;  // by connection
  std::unordered_map<std::uint64_t, Exchange> exchanges;       // waiting for their reply
  std::map<std::thread::id, std::uint32_t> lastCommands;       // sent last by each thread of the module
  bool policyDue = false;  // the host has notified the module of its policy, or a connection has begun
  bool timedOut = false;   // the module has failed to do something
  std::optional<std::uint64_t> firstTime;
  std::chrono::steady_clock::time_point startTime;
};

}  // namespace fenlux::refhost
