// Reads a table of faults from a configuration or a scenario step; faults it does not name stay unset.
#include "refhost/emulator/emulator_faults.h"

#include "refhost/base/config/config_limits.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/emulator/driver/shared/driver_commands.h"

namespace fenlux::refhost {
namespace {

std::optional<std::chrono::milliseconds> Delay(const ConfigTable& table, std::string_view key) {
  if (!table.Has(key)) return std::nullopt;
  return std::chrono::milliseconds(table.Unsigned(key, 0, 0, kMaxMilliseconds));
}

FailingSend ReadFailingSend(const ConfigTable& table) {
  FailingSend fault;
  fault.command = table.Unsigned("command", fault.command);
  if (fault.command != 0 && FindCommand(fault.command) == nullptr) {
    table.Report("command", "is not a command of the driver");
  }
  fault.nth = table.Unsigned("nth", fault.nth, 1);
  fault.failure = table.Choice("exception", fault.failure,
                               ConfigChoices<SendFailure>{{"runtime", SendFailure::kRuntimeError},
                                                          {"system", SendFailure::kSystemError},
                                                          {"other", SendFailure::kNotAnException}});
  return fault;
}

}  // namespace

EmulatorFaults ReadEmulatorFaults(const ConfigTable& table) {
  EmulatorFaults faults;
  if (table.Has("refuse_connects")) faults.refuseConnects = table.Unsigned("refuse_connects", 0);
  if (table.Has("drop_after")) faults.dropAfter = table.Unsigned("drop_after", 0);
  if (table.Has("driver_version")) faults.driverVersion = table.Unsigned("driver_version", 0);
  if (table.Has("version_reply")) {
    faults.versionReply = table.Choice("version_reply", VersionReply::kFill,
                                       ConfigChoices<VersionReply>{{"fill", VersionReply::kFill},
                                                                   {"replace", VersionReply::kReplace},
                                                                   {"short", VersionReply::kShort},
                                                                   {"empty", VersionReply::kEmpty}});
  }
  if (table.Has("fail_send")) faults.failSend = ReadFailingSend(table.Table("fail_send"));
  faults.delayRequests = Delay(table, "delay_requests_ms");
  faults.delayReplies = Delay(table, "delay_replies_ms");
  return faults;
}

}  // namespace fenlux::refhost
