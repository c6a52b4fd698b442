// Creates the driver's side, and connects it to the host's log and to the observers of decisions.
#include "refhost/app/driver_parts.h"

#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "host/buf.h"
#include "kdi/driver_records.h"
#include "refhost/emulator/driver_emulator.h"

namespace fenlux::refhost {
namespace {

Severity SeverityOf(EmulatorLogLevel level) {
  switch (level) {
    case EmulatorLogLevel::kDetail:
      return Severity::kDetail;
    case EmulatorLogLevel::kEvent:
      return Severity::kEvent;
    case EmulatorLogLevel::kWarning:
      return Severity::kWarning;
    case EmulatorLogLevel::kProblem:
      break;
  }
  return Severity::kProblem;
}

// A field of a message; 0 if the message is too short.
std::uint32_t FieldAt(const void* message, std::size_t size, std::size_t offset) {
  records::U32 field{};
  if (size < offset + sizeof(field)) return 0;
  std::memcpy(&field, static_cast<const std::uint8_t*>(message) + offset, sizeof(field));
  return field.value();
}

}  // namespace

std::shared_ptr<DriverEmulator> MakeEmulator(HostConfig& config, const std::shared_ptr<LogService>& log,
                                             const std::shared_ptr<DecisionSink>& decisions) {
  EmulatorHooks hooks;
  hooks.decisions = decisions;
  hooks.log = [log](EmulatorLogLevel level, const std::string& line) {
    log->Write(SeverityOf(level), "[emulator] " + line);
  };
  if (!config.emulator.scenarioFile.empty()) {
    hooks.scenarioFinished = [log] { log->Write(Severity::kEvent, "[emulator] scenario finished"); };
  }
  return std::make_shared<DriverEmulator>(std::move(config.emulator), std::move(config.scenario), std::move(hooks));
}

std::shared_ptr<FilterPort> MakeFilterPort(const DriverSettings& settings, const std::shared_ptr<LogService>& log) {
  if (settings.port != DriverPortKind::kFilterManager) return nullptr;
  return std::make_shared<FilterPort>(
      settings.filter, [log](Severity severity, const std::string& line) { log->Write(severity, line); });
}

NotificationHandler ObservedHandler(const NotificationHandler& handler, std::shared_ptr<DecisionSink> decisions) {
  return [handler, decisions = std::move(decisions)](const void* message, std::uint32_t size) {
    const auto begin = std::chrono::steady_clock::now();
    DecisionScope scope(decisions.get(), FieldAt(message, size, offsetof(records::Notification, code)));
    std::shared_ptr<CBuf> reply = handler(message, size);
    DecisionEnd end;
    end.latency = std::chrono::steady_clock::now() - begin;
    if (reply != nullptr) {
      end.verdict = FieldAt(reply->GetData(), reply->GetSize(), offsetof(records::Reply, verdict));
      end.refused = KernelEventSettings().Refuses(end.verdict);
    }
    scope.End(end);
    return reply;
  };
}

}  // namespace fenlux::refhost
