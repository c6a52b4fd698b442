// Carries out requests under the model's lock and keeps the state they change.
#include "refhost/emulator/driver/shared/driver_model.h"

#include <fmt/format.h>

#include <exception>
#include <new>
#include <utility>

#include "kdi/driver_records.h"

namespace fenlux::refhost {
namespace {

// Leaves the text empty if memory runs out.
void SetText(std::string& text, std::string_view value) noexcept {
  text.clear();
  try {
    text = value;
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

std::uint64_t DriverModel::Open(std::uint32_t clientType, std::uint32_t portValue) {
  const MutexLock lock(mutex);
  EmulatorState& old = data.state;
  EmulatorState fresh;
  fresh.connected = true;
  fresh.connects = old.connects + 1;
  fresh.refusedConnects = old.refusedConnects;
  fresh.connectionOpened = std::chrono::system_clock::now();
  fresh.connectionEnded = old.connectionEnded;
  fresh.endReason = std::move(old.endReason);
  fresh.refusalReason = std::move(old.refusalReason);
  fresh.clientType = clientType;
  fresh.portValue = portValue;
  fresh.protocolViolations = old.protocolViolations;
  fresh.violationTexts = std::move(old.violationTexts);
  data = {std::move(fresh), {}};
  return data.state.connects;
}

void DriverModel::Close(std::string_view reason) noexcept {
  const MutexLock lock(mutex);
  data.state.connected = false;
  data.state.connectionEnded = std::chrono::system_clock::now();
  SetText(data.state.endReason, reason);
}

std::optional<RequestEffect> DriverModel::CarryOut(std::uint64_t connection, const std::uint8_t* request,
                                                   std::size_t size) {
  RequestEffect effect;
  const MutexLock lock(mutex);
  if (!data.state.connected || data.state.connects != connection) return std::nullopt;
  if (request == nullptr || size != records::kRequestSize) {
    effect.violation = fmt::format("a request of {} bytes", request == nullptr ? 0 : size);
  } else {
    const auto header = ReadRequest<records::RequestHeader>(request);
    const CommandRow* row = FindCommand(header.command.value());
    if (header.magic.value() != records::kRequestMagic) {
      effect.violation = "a request without the request's magic";
    } else if (row == nullptr) {
      effect.violation = fmt::format("a request with the unknown command {}", header.command.value());
    } else {
      effect.command = header.command.value();
      ++data.state.requests[effect.command];
      const std::string wrong = row->effect(data, request);
      if (!wrong.empty()) effect.violation = fmt::format("request {} ({}): {}", effect.command, row->name, wrong);
      effect.watchSetChanged = wrong.empty() && row->command == records::Command::kCommitMonitorObjects &&
                               ReadRequest<records::ValueRequest>(request).value.value() != records::kObjectType3;
      if (effect.watchSetChanged) KeepWatchedDirectories();
    }
  }
  if (!effect.violation.empty()) AddViolation(effect.violation);
  return effect;
}

bool DriverModel::Received(std::uint32_t command, std::uint64_t times) const {
  const MutexLock lock(mutex);
  const auto entry = data.state.requests.find(command);
  return data.state.connected && entry != data.state.requests.end() && entry->second >= times;
}

void DriverModel::AddViolation(const std::string& text) noexcept {
  ++data.state.protocolViolations;
  if (text.empty() || data.state.violationTexts.size() >= kMaxViolationTexts) return;
  try {
    data.state.violationTexts.push_back(text);
  } catch (const std::bad_alloc&) {  // counted, without its text
  }
}

void DriverModel::CountViolation(const std::string& text) noexcept {
  const MutexLock lock(mutex);
  AddViolation(text);
}

void DriverModel::ReportViolation(const std::string& text) noexcept {
  CountViolation(text);
  try {
    hooks.Log(EmulatorLogLevel::kProblem, "Protocol violation: " + text + ".");
  } catch (const std::exception&) {  // counted, without its line
  }
}

void DriverModel::CountRefusedConnect(std::string_view reason) noexcept {
  const MutexLock lock(mutex);
  ++data.state.refusedConnects;
  SetText(data.state.refusalReason, reason);
}

EmulatorState DriverModel::State() const {
  const MutexLock lock(mutex);
  return data.state;
}

WatchSet DriverModel::TakeWatchSet() {
  const MutexLock lock(mutex);
  return {++watchRevision, watchedDirectories};
}

void DriverModel::KeepWatchedDirectories() {
  std::vector<std::string> directories;
  for (const int type : {records::kObjectType1, records::kObjectType2}) {
    const auto index = static_cast<std::size_t>(type - records::kObjectType1);
    for (const MonitoredObject& object : data.state.monitored[index].committed) {
      directories.push_back(object.path);
    }
  }
  watchedDirectories.swap(directories);
}

}  // namespace fenlux::refhost
