// The facts that a replay needs about a capture before it begins: whether the file is complete, and what the host gave
// the module.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "refhost/capture/format/capture_reader.h"

namespace fenlux::capture {

// The host's settings, as the requests at the start of a connection show them.
struct ObservedSettings {
  std::map<std::uint32_t, std::uint64_t> systemProcesses;  // ids by kind
  std::vector<std::uint8_t> spsp;                          // the four switches; empty if none were sent
  std::vector<std::string> paths;                          // monitored, UTF-8, in order
  std::vector<std::uint8_t> configBlock;
  std::uint32_t objectType = 0;  // of the paths and their commit; 0 if none was sent
};

struct ConnectionOutline {
  std::vector<std::uint8_t> context;  // the connect context
  bool anyRequest = false;
  bool anyOutsidePolicy = false;  // a thread other than the one that applies the policy sent a request
  bool opening = false;           // the capture contains the connection from its first request
  bool applied = false;           // the policy was sent; later requests do not change `settings`
  bool closed = false;
  std::optional<std::string> refused;  // the driver's reason, if it refused the connection
  ObservedSettings settings;
};

struct CaptureOutline {
  bool isCapture = false;
  bool cutOff = false;            // the file ends in the middle of a block
  std::vector<Problem> problems;  // the first ones
  std::uint64_t lost = 0;         // messages missing according to the file
  std::uint64_t packets = 0;
  bool requests = false;          // there are any
  bool calls = false;             // there are any
  bool startsWork = false;        // the calls include one to start work
  bool registersProcess = false;  // they include one to register a system process
  bool sendsSwitches = false;     // they include one to send the four switches
  std::string facts;              // the first ones; empty if there are none
  std::map<std::uint32_t, ConnectionOutline> connections;

  // Why the capture cannot be replayed; empty if it can.
  std::string Obstacle() const;
};

// Whether the module sends the command while it applies the policy.
bool BelongsToPolicy(std::uint32_t command);

// Reads the whole stream. `progress` is called periodically with the offset; it may be empty.
CaptureOutline ReadOutline(std::istream& stream, const std::function<void(std::uint64_t offset)>& progress);

}  // namespace fenlux::capture
