// The ways in which the emulated driver can be told to fail.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace fenlux::refhost {

class ConfigTable;

// How the driver answers the version request.
enum class VersionReply {
  kFill,     // writes into the reply buffer that came along
  kReplace,  // hands back a full buffer of its own
  kShort,    // hands back a buffer one byte too short
  kEmpty,    // hands back an empty handle
};

// What a failing Send throws.
enum class SendFailure { kRuntimeError, kSystemError, kNotAnException };

struct FailingSend {
  std::uint32_t command = 0;  // 0: any
  std::uint32_t nth = 1;      // counted from when the fault was set
  SendFailure failure = SendFailure::kRuntimeError;

  bool operator==(const FailingSend&) const = default;
};

// A set of faults. Where a scenario sets faults between its events, only those that it names change.
struct EmulatorFaults {
  std::optional<std::uint32_t> refuseConnects = {};  // so many attempts from now on are refused
  std::optional<std::uint64_t> dropAfter = {};       // end the connection after so many notifications on it; 0: never
  std::optional<std::uint32_t> driverVersion = {};
  std::optional<VersionReply> versionReply = {};
  std::optional<FailingSend> failSend = {};
  std::optional<std::chrono::milliseconds> delayRequests = {};  // before a request is carried out
  std::optional<std::chrono::milliseconds> delayReplies = {};   // before a reply is taken

  bool operator==(const EmulatorFaults&) const = default;
};

// Reads the table's faults and reports what is wrong with them; the caller calls Finish.
EmulatorFaults ReadEmulatorFaults(const ConfigTable& table);

}  // namespace fenlux::refhost
