// The faults that the emulated driver can inject.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace fenlux::refhost {

class ConfigTable;

// How the driver answers the version request.
enum class VersionReply {
  kFill,     // writes into the module's reply buffer
  kReplace,  // returns a new, complete buffer
  kShort,    // returns a buffer one byte too short
  kEmpty,    // returns an empty handle
};

// What a failing Send throws.
enum class SendFailure { kRuntimeError, kSystemError, kNotAnException };

struct FailingSend {
  std::uint32_t command = 0;  // 0: any
  std::uint32_t nth = 1;      // counted from when the fault was set
  SendFailure failure = SendFailure::kRuntimeError;

  bool operator==(const FailingSend&) const = default;
};

// A set of faults. A scenario step that sets faults changes only those it names.
struct EmulatorFaults {
  std::optional<std::uint32_t> refuseConnects = {};  // refuse this many attempts from now on
  std::optional<std::uint64_t> dropAfter = {};       // end a connection after this many notifications; 0: never
  std::optional<std::uint32_t> driverVersion = {};
  std::optional<VersionReply> versionReply = {};
  std::optional<FailingSend> failSend = {};
  std::optional<std::chrono::milliseconds> delayRequests = {};  // before a request is carried out
  std::optional<std::chrono::milliseconds> delayReplies = {};   // before a reply is taken

  bool operator==(const EmulatorFaults&) const = default;
};

// Reads the table's faults and reports errors in them. The caller calls Finish.
EmulatorFaults ReadEmulatorFaults(const ConfigTable& table);

}  // namespace fenlux::refhost
