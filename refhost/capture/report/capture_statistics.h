// The numbers of a capture's report, collected in one pass over the file with bounded memory.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "refhost/capture/decode/exchange_pairing.h"
#include "refhost/capture/format/capture_reader.h"
#include "refhost/capture/report/time_line.h"
#include "refhost/capture/report/top_list.h"

namespace fenlux::capture {

struct ConnectionNumbers {
  std::uint32_t connection = 0;
  std::uint64_t begin = 0;           // nanoseconds since 1970
  std::optional<std::uint64_t> end;  // nullopt: open at the end of the file
  std::string reason;                // of the end
  std::uint64_t requests = 0;
  std::uint64_t notifications = 0;
};

// An exchange that the report shows.
struct ShownExchange {
  std::uint32_t connection = 0;
  std::uint64_t exchange = 0;
  std::uint64_t offset = 0;
  std::string problem;  // empty: shown because it was slow
  std::string subject;  // the path, or what is malformed, or the name of the code
  std::string text;     // as `decode` shows it
  std::uint64_t latency = 0;
};

struct CaptureStatistics {
  bool isCapture = false;
  bool cutOff = false;
  std::uint64_t packets = 0;
  std::uint64_t begin = 0, end = 0;  // of the first and the last packet
  std::uint64_t requests = 0;
  std::uint64_t notifications = 0;
  std::uint64_t malformed = 0;   // messages
  std::uint64_t failed = 0;      // requests or notifications that ended with an exception
  std::uint64_t unanswered = 0;  // without a reply in the capture
  std::uint64_t lost = 0;        // messages
  std::uint64_t damages = 0;     // damaged places in the file
  std::vector<Problem> damage;   // the first ones

  std::vector<ConnectionNumbers> connections;  // the first ones
  std::map<std::uint32_t, std::uint64_t> codes, verdicts, decisions, commands;
  std::uint64_t withoutReply = 0;  // notifications that got no reply, by design
  TimeLine timeLine;               // of answered notifications
  TopList rules, processes, paths;

  std::vector<ShownExchange> problems;  // the first ones
  std::vector<ShownExchange> slowest;   // notifications, slowest first
};

// Reads the whole stream. `progress` may be empty.
CaptureStatistics CollectStatistics(std::istream& stream, const std::function<void(std::uint64_t offset)>& progress);

}  // namespace fenlux::capture
