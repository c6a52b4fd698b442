// Checks what a driver did on its port, from a recording of the port.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "refhost/app/drive/drive_findings.h"
#include "refhost/capture/decode/exchange_pairing.h"

namespace fenlux::refhost {

// What the driver is checked against.
struct DriveLimits {
  std::chrono::milliseconds request{2000};  // the longest it may take to answer a request
  std::uint32_t version = 0;                // the version it has to report
};

// Replies that did not reach the driver, as its side of the port counts them.
struct DriveReplies {
  std::uint64_t late = 0;        // the driver no longer waited
  std::uint64_t refused = 0;     // the driver waited for a reply that the module does not send, or did not accept it
  std::uint64_t notAwaited = 0;  // the driver asked for no reply
};

// What the recording does not show.
struct DriveOutcome {
  bool connected = false;               // a connection was ready
  bool reconnectTried = false;          // the module closed a connection, and the test waited for the next one
  bool reconnected = false;             // the next connection was ready
  std::uint64_t end = 0;                // when the test ended, in nanoseconds since 1970
  std::string stopped;                  // why not everything was tried; empty if it was
  std::optional<DriveReplies> replies;  // of all notifications
};

// One thread.
class DriverExamination {
 public:
  explicit DriverExamination(const DriveLimits& driveLimits) : limits(driveLimits) {}

  // Adds an exchange of the recording. Call it in the order in which the exchanges were completed.
  void Add(const capture::Exchange& exchange);
  // Checks what needs the whole recording. Call it once, at the end.
  void Finish(const DriveOutcome& outcome);

  const DriveFindings& Findings() const { return findings; }
  // The commands that the module sent.
  const std::set<std::uint32_t>& Commands() const { return commands; }
  // How many messages the recording lacks.
  std::uint64_t Missing() const { return missing; }

 private:
  struct Connection {
    DrivePlace place = {};
    bool closed = false;
    std::uint64_t closeTime = 0;
    std::string reason = {};
    std::string lastRequest = {};
    std::uint64_t lastSuccess = 0;  // when the last request that the driver accepted was sent
  };
  // A request that failed, or has no answer.
  struct Failure {
    DrivePlace place;
    std::uint64_t time = 0;  // of the failure, or of the request if it has no answer
    std::string record;
    std::string text;  // empty: it has no answer
  };

  void AddRequest(const capture::Exchange& exchange);
  void AddVersionReply(const capture::Exchange& exchange);
  void AddRequestTime(const capture::Exchange& exchange, const std::string& record);
  void FinishConnections(const DriveOutcome& outcome);
  // `end`: of the recording.
  void FinishRequests(std::uint64_t end);
  void FinishReplies(const DriveReplies& replies);
  // Whether the request failed because its connection ended.
  bool EndedWith(const Failure& failure) const;

  const DriveLimits limits;
  DriveFindings findings;
  std::map<std::uint32_t, Connection> connections;
  std::vector<Failure> failures;
  std::set<std::uint32_t> commands;
  std::uint64_t missing = 0;
  std::uint64_t notifications = 0;
  std::uint64_t unanswered = 0;    // of these, without a reply by design
  std::uint64_t longestReply = 0;  // the longest time that the module took for a reply, in nanoseconds
};

}  // namespace fenlux::refhost
