// Checks how the module opens a port, keeps the current one, and ends it.
#include "refhost/emulator/driver/driver_connections.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>
#include <utility>

#include "kdi/driver_records.h"

namespace fenlux::refhost {
namespace {

std::string DriverPortName() {
  std::string name;
  for (const wchar_t* unit = records::kPortName; *unit != 0; ++unit) name.push_back(static_cast<char>(*unit));
  return name;
}

struct ConnectFinding {
  std::uint32_t clientType = 0;  // 0 if the port may not be connected
  std::string violation;         // empty if it may
};

ConnectFinding Violation(std::string text) { return {0, std::move(text)}; }

// Checks the module's connect parameters; reports the first violation.
ConnectFinding CheckConnect(const DriverPort& port) {
  const PortRequest& request = port.Request();
  if (request.portName != DriverPortName()) return Violation("unknown port name " + request.portName);
  if (request.maxMessageSize != records::kMaxMessageSize) {
    return Violation(fmt::format("a maximum message size of {} bytes", request.maxMessageSize));
  }
  if (!port.Handler()) return Violation("a port without a notification handler");
  const std::size_t size = request.connectContext == nullptr ? 0 : request.connectContext->GetSize();
  if (size != sizeof(records::ConnectContext)) return Violation(fmt::format("a connect context of {} bytes", size));
  records::ConnectContext context{};
  std::memcpy(&context, request.connectContext->GetData(), sizeof(context));
  if (context.magic.value() != records::kConnectMagic) return Violation("a connect context without its magic");
  if (context.version.value() != records::kConnectVersion) {
    return Violation(fmt::format("a connect context of version {}", context.version.value()));
  }
  const std::uint32_t clientType = context.clientType.value();
  if (clientType != records::kClientType1 && clientType != records::kClientType2) {
    return Violation(fmt::format("client type {}", clientType));
  }
  return {clientType, {}};
}

}  // namespace

void DriverConnections::Connect(const std::shared_ptr<DriverPort>& port) {
  std::uint64_t connection = 0;
  {
    const MutexLock lock(connectMutex);
    connection = Open(port);
  }
  source.UpdateWatch(model);
  // Stop sets its flag before it ends the current port, so one of the two sees the other.
  if (wake.Stopping()) End(port, UnjudgedCause::kStopped, "the emulator stops");
  hooks.Log(EmulatorLogLevel::kEvent, fmt::format("Connection {} opened, client type {}, port value {}.", connection,
                                                  port->ClientType(), port->Request().portValue));
}

std::uint64_t DriverConnections::Open(const std::shared_ptr<DriverPort>& port) {
  if (wake.Stopping() || port->Ended()) throw std::runtime_error(kPortClosed);
  if (port->Connected()) RefuseViolation("a port was opened twice");
  const ConnectFinding finding = CheckConnect(*port);
  if (!finding.violation.empty()) RefuseViolation(finding.violation);
  // A port that has ended is still the current one until End removes it.
  if (const auto open = CurrentPort(); open != nullptr && !open->Ended()) {
    RefuseViolation("a second port was opened while another was open");
  }
  if (connectsToRefuse > 0) {
    --connectsToRefuse;
    Refuse(EmulatorLogLevel::kEvent, "the driver refuses the connection");
  }
  if (dropAfter != 0) port->LimitDeliveries(dropAfter);
  const std::uint64_t connection = model.Open(finding.clientType, port->Request().portValue);
  port->SetConnected(finding.clientType, connection);
  SetCurrentPort(port);
  return connection;
}

void DriverConnections::RefuseViolation(const std::string& violation) {
  model.CountViolation("connect: " + violation);
  Refuse(EmulatorLogLevel::kProblem, violation);
}

void DriverConnections::Refuse(EmulatorLogLevel level, const std::string& reason) {
  model.CountRefusedConnect(reason);
  hooks.Log(level, "Connection refused: " + reason + ".");
  throw std::runtime_error(reason);
}

void DriverConnections::Start(const std::shared_ptr<DriverPort>& port) {
  if (port->Ended()) throw std::runtime_error(kPortClosed);
  if (!port->Connected()) {
    model.ReportViolation("start: the port was not connected");
    throw std::runtime_error("the port was not connected");
  }
  if (!port->SetStarted()) {
    model.ReportViolation("start: the port was started twice");
    throw std::runtime_error("the port was started twice");
  }
  wake.Wake();
}

void DriverConnections::End(const std::shared_ptr<DriverPort>& port, UnjudgedCause cause,
                            std::string_view reason) noexcept {
  if (!port->MarkEnded()) return;
  bool wasCurrent = false;
  {
    const MutexLock lock(connectMutex);
    wasCurrent = CurrentPort() == port;
    if (wasCurrent) {
      SetCurrentPort(nullptr);
      model.Close(reason);
    }
  }
  answers.TakeForEnd(port.get(), cause);
  try {
    if (wasCurrent) source.UpdateWatch(model);
    if (port->Connected()) hooks.Log(EmulatorLogLevel::kEvent, fmt::format("Connection ended: {}.", reason));
  } catch (const std::exception&) {  // no memory
  }
  wake.Wake();
}

void DriverConnections::EndCurrent(UnjudgedCause cause, std::string_view reason) noexcept {
  if (const auto port = CurrentPort()) End(port, cause, reason);
}

std::shared_ptr<DriverPort> DriverConnections::CurrentPort() const {
  const MutexLock lock(currentMutex);
  return current;
}

void DriverConnections::SetCurrentPort(std::shared_ptr<DriverPort> port) {
  const MutexLock lock(currentMutex);
  current.swap(port);
}

void DriverConnections::SetFaults(const EmulatorFaults& changes) {
  {
    const MutexLock lock(connectMutex);
    if (changes.refuseConnects) connectsToRefuse = *changes.refuseConnects;
    if (changes.dropAfter) {
      dropAfter = *changes.dropAfter;
      if (const auto port = CurrentPort()) port->LimitDeliveries(dropAfter);
    }
  }
  wake.Wake();
}

}  // namespace fenlux::refhost
