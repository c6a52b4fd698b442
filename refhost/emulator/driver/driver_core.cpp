// One connection at a time: its opening and its end, requests, and the way of a notification from the source to its
// answer.
#include "refhost/emulator/driver/driver_core.h"

#include <algorithm>
#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "kdi/driver_records.h"
#include "refhost/emulator/sources/notification_builder.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

using records::Command;

std::string DriverPortName() {
  std::string name;
  for (const wchar_t* unit = records::kPortName; *unit != 0; ++unit) name.push_back(static_cast<char>(*unit));
  return name;
}

const char kClosed[] = "the driver's port is closed";

[[noreturn]] void ThrowSendFailure(SendFailure failure) {
  if (failure == SendFailure::kSystemError) {
    throw boost::system::system_error(boost::system::errc::make_error_code(boost::system::errc::io_error),
                                      "the driver fails on request");
  }
  if (failure == SendFailure::kNotAnException) throw 5;  // what no handler of standard exceptions catches
  throw std::runtime_error("the driver fails on request");
}

}  // namespace

DriverCore::DriverCore(const EmulatorSettings& settings, const EmulatorFaults& scenarioFaults, EmulatorHooks hostHooks)
    : deadline(settings.deadline), hooks(std::move(hostHooks)) {
  faults.driverVersion = settings.driverVersion;
  SetFaults(settings.faults);
  SetFaults(scenarioFaults);
}

// --- Connections ---------------------------------------------------------------------------------------------------

void DriverCore::Connect(const std::shared_ptr<DriverPort>& port) {
  std::uint32_t clientType = 0;
  std::uint64_t connects = 0;
  {
    const std::lock_guard lock(modelMutex);
    if (stopping || port->Ended()) throw std::runtime_error(kClosed);
    if (port->Connected()) RefuseConnect("a port was opened twice", true);
    CheckConnect(*port, clientType);
    // One that has ended may still be here while its end is being dealt with.
    if (const auto current = Present(); current != nullptr && !current->Ended()) {
      RefuseConnect("a second port was opened beside an open one", true);
    }
    if (faults.refuseConnects > 0) {
      --faults.refuseConnects;
      RefuseConnect("the driver refuses the connection", false);
    }
    if (faults.dropAfter != 0) port->LimitDeliveries(faults.dropAfter);
    port->SetConnected(clientType);
    model.Open(clientType, port->Request().portValue);
    connects = model.State().connects;
    const std::lock_guard presentLock(presentMutex);
    present = port;
  }
  UpdateWatch();
  // Stop marks itself before it ends the present port: one of the two sees the other.
  if (stopping) End(port, UnjudgedCause::kStopped, "the emulator stops");
  Log(EmulatorLogLevel::kEvent, "Connection " + std::to_string(connects) + " opened, client type " +
                                    std::to_string(clientType) + ", port value " +
                                    std::to_string(port->Request().portValue) + ".");
}

// Throws where the module did not open the port as the driver demands; gives the client type otherwise.
void DriverCore::CheckConnect(const DriverPort& port, std::uint32_t& clientType) {
  const auto refuse = [this](const std::string& reason) { RefuseConnect(reason, true); };
  const PortRequest& request = port.Request();
  if (request.portName != DriverPortName()) refuse("unknown port name " + request.portName);
  if (request.maxMessageSize != records::kMaxMessageSize) {
    refuse("a largest message of " + std::to_string(request.maxMessageSize) + " bytes");
  }
  if (!port.Handler()) refuse("a port without a notification handler");
  const std::size_t size = request.connectContext == nullptr ? 0 : request.connectContext->GetSize();
  if (size != sizeof(records::ConnectContext)) refuse("a connect context of " + std::to_string(size) + " bytes");
  records::ConnectContext context{};
  std::memcpy(&context, request.connectContext->GetData(), sizeof(context));
  if (context.magic.value() != records::kConnectMagic) refuse("a connect context without its magic");
  if (context.version.value() != records::kConnectVersion) {
    refuse("a connect context of version " + std::to_string(context.version.value()));
  }
  clientType = context.clientType.value();
  if (clientType != records::ClientType(false) && clientType != records::ClientType(true)) {
    refuse("client type " + std::to_string(clientType));
  }
}

void DriverCore::RefuseConnect(const std::string& reason, bool violation) {
  model.CountRefusedConnect();
  if (violation) model.AddViolation("connect: " + reason);
  Log(violation ? EmulatorLogLevel::kProblem : EmulatorLogLevel::kEvent, "Connection refused: " + reason + ".");
  throw std::runtime_error(reason);
}

void DriverCore::StartDelivery(const std::shared_ptr<DriverPort>& port) {
  if (port->Ended()) throw std::runtime_error(kClosed);
  if (!port->Connected()) {
    AddViolation("start: the port was not connected");
    throw std::runtime_error("the port was not connected");
  }
  if (!port->SetStarted()) {
    AddViolation("start: the port was started twice");
    throw std::runtime_error("the port was started twice");
  }
  Wake();
}

void DriverCore::End(const std::shared_ptr<DriverPort>& port, UnjudgedCause cause, const std::string& reason) {
  if (!port->MarkEnded()) return;
  bool wasPresent = false;
  {
    const std::lock_guard lock(modelMutex);
    const std::lock_guard presentLock(presentMutex);
    wasPresent = present == port;
    if (wasPresent) {
      present.reset();
      model.Close();
    }
  }
  answers.TakeForEnd(port.get(), cause);
  if (wasPresent) UpdateWatch();
  if (port->Connected()) Log(EmulatorLogLevel::kEvent, "Connection ended: " + reason + ".");
  Wake();
}

void DriverCore::DropConnection(const std::string& reason) {
  if (const auto port = Present()) End(port, UnjudgedCause::kConnectionEnded, reason);
}

std::shared_ptr<DriverPort> DriverCore::Present() const {
  const std::lock_guard lock(presentMutex);
  return present;
}

// --- Requests ------------------------------------------------------------------------------------------------------

void DriverCore::Send(const std::shared_ptr<DriverPort>& port, const std::shared_ptr<CBuf>& request,
                      std::shared_ptr<CBuf>& reply, bool flag) {
  if (port->Ended()) throw std::runtime_error(kClosed);
  if (!port->Connected()) {
    AddViolation("a request before the port was connected");
    throw std::runtime_error("the port was not connected");
  }
  if (!flag) AddViolation("a request sent with a flag of false");

  std::chrono::milliseconds delay{0};
  {
    const std::lock_guard lock(modelMutex);
    delay = faults.delayRequests;
  }
  if (delay.count() != 0 && port->WaitEndedFor(delay)) throw std::runtime_error(kClosed);
  FailSendIfDue(request);

  DriverModel::Effect effect;
  Faults faultsNow;  // as they stand when the request is carried out: a waiting scenario may change them right after
  {
    const std::lock_guard lock(modelMutex);
    if (port->Ended()) throw std::runtime_error(kClosed);
    effect = request == nullptr ? model.Take(nullptr, 0) : model.Take(request->GetData(), request->GetSize());
    faultsNow = faults;
  }
  Wake();
  if (!effect.violation.empty()) {
    Log(EmulatorLogLevel::kProblem, "Protocol violation: " + effect.violation + ".");
    throw std::runtime_error("the driver refuses " + effect.violation);
  }
  if (effect.monitoredSetChanged) UpdateWatch();
  if (effect.command == static_cast<std::uint32_t>(Command::kDriverVersion)) {
    AnswerVersion(faultsNow, reply);
  } else {
    reply.reset();
  }
}

void DriverCore::FailSendIfDue(const std::shared_ptr<CBuf>& request) {
  SendFailure failure = SendFailure::kRuntimeError;
  {
    const std::lock_guard lock(modelMutex);
    if (!faults.failSend) return;
    FailingSend& fault = *faults.failSend;
    records::RequestHeader header{};
    if (request != nullptr && request->GetSize() >= sizeof(header)) {
      std::memcpy(&header, request->GetData(), sizeof(header));
    }
    if (fault.command != 0 && fault.command != header.command.value()) return;
    if (--fault.nth != 0) return;
    failure = fault.failure;
    faults.failSend.reset();
  }
  ThrowSendFailure(failure);
}

void DriverCore::AnswerVersion(const Faults& faultsNow, std::shared_ptr<CBuf>& reply) {
  if (reply == nullptr) return;  // no answer is wanted
  if (reply->GetSize() != records::kRequestSize) {
    AddViolation("a version request with a reply buffer of " + std::to_string(reply->GetSize()) + " bytes");
  }
  const auto write = [&faultsNow](CBuf& buffer) {
    records::VersionReply record{};
    record.header.magic = records::kRequestMagic;
    record.header.command = static_cast<std::uint32_t>(Command::kDriverVersion);
    record.version = faultsNow.driverVersion;
    std::memcpy(buffer.GetData(), &record, std::min(sizeof(record), buffer.GetSize()));
  };
  switch (faultsNow.versionReply) {
    case VersionReply::kFill:
      write(*reply);
      return;
    case VersionReply::kReplace:
      reply = std::make_shared<HeapBuffer>(std::size_t{records::kRequestSize});
      write(*reply);
      return;
    case VersionReply::kShort:
      reply = std::make_shared<HeapBuffer>(std::size_t{records::kRequestSize - 1});
      write(*reply);
      return;
    case VersionReply::kEmpty:
      reply.reset();
      return;
  }
}

// --- Notifications -------------------------------------------------------------------------------------------------

Delivery DriverCore::Deliver(AnswerSlot& slot, const std::uint8_t* message, std::uint32_t size,
                             const DeliveryOptions& options) {
  Delivery delivery;
  const std::shared_ptr<DriverPort> port = Present();
  if (port == nullptr || !port->Deliverable()) return delivery;
  const DriverPort::Ticket ticket = port->TakeTicket();
  if (ticket == DriverPort::Ticket::kNone) return delivery;
  const auto start = std::chrono::steady_clock::now();
  if (!slot.Open(port, NotificationCode(message, size), start + deadline, options.release)) return delivery;

  if (options.release != nullptr) options.release->Delivered();

  // From here on the module has the duty to answer, until it returns or the slot is taken.
  Answer answer = CallHandler(*port, message, size);
  if (options.expectedVerdict && !answer.lostFor && answer.verdict != *options.expectedVerdict) {
    answer.violation = "verdict " + std::to_string(answer.verdict) + " where " +
                       std::to_string(*options.expectedVerdict) + " was expected";
  }
  if (!answer.violation.empty()) {
    AddViolation("notification " + std::to_string(NotificationCode(message, size)) + ": " + answer.violation);
  }
  const auto end = [this, &port] {
    End(port, UnjudgedCause::kConnectionEnded, "the driver has delivered as many notifications as it was to");
  };
  const bool last = ticket == DriverPort::Ticket::kLast;
  if (last && options.holdUntilEnd) end();
  HoldReply(*port, options);

  const auto taken = slot.TakeBack();
  // Whoever ended the port may not have come to this slot yet.
  if (port->Ended()) answer.lostFor = stopping ? UnjudgedCause::kStopped : UnjudgedCause::kConnectionEnded;
  if (taken) {
    delivery = {Delivery::Outcome::kTaken, 0, *taken};
  } else {
    CountAnswer(answer, std::chrono::steady_clock::now() - start);
    if (answer.lostFor) {
      delivery = {Delivery::Outcome::kLost, 0, *answer.lostFor};
    } else {
      delivery.outcome = answer.verdict == 0 ? Delivery::Outcome::kUnansweredByDesign : Delivery::Outcome::kAnswered;
      delivery.verdict = answer.verdict;
    }
  }
  if (last) end();
  return delivery;
}

DriverCore::Answer DriverCore::CallHandler(const DriverPort& port, const std::uint8_t* message, std::uint32_t size) {
  const ReplyDue due = DueReply(message, size, port.ClientType());
  Answer answer;
  try {
    const std::shared_ptr<CBuf> reply = port.Handler()(message, size);
    if (reply == nullptr) {
      if (!due.none) answer.lostFor = UnjudgedCause::kEmptyReply;
      return answer;
    }
    ReplyFinding finding = CheckReply(reply->GetData(), reply->GetSize(), due);
    answer.verdict = finding.verdict;
    answer.violation = std::move(finding.violation);
    if (!answer.violation.empty()) answer.lostFor = UnjudgedCause::kMalformedReply;
  } catch (...) {
    answer = {};
    answer.lostFor = UnjudgedCause::kHandlerThrew;
  }
  return answer;
}

void DriverCore::HoldReply(DriverPort& port, const DeliveryOptions& options) {
  if (options.holdUntilEnd) return port.WaitEnded();
  const auto hold = options.holdReply + delayReplies.load();
  if (hold.count() > 0) port.WaitEndedFor(hold);
}

void DriverCore::CountAnswer(const Answer& answer, std::chrono::nanoseconds latency) {
  if (answer.lostFor) return totals.Lost(*answer.lostFor);
  if (answer.verdict == 0) return totals.UnansweredByDesign(latency);
  totals.Answered(answer.verdict, latency);
}

// --- What event sources wait for and set ---------------------------------------------------------------------------

bool DriverCore::WaitDeliverable() {
  std::unique_lock lock(wakeMutex);
  wake.wait(lock, [this] {
    if (stopping) return true;
    const auto port = Present();
    return port != nullptr && port->Deliverable();
  });
  return !stopping;
}

bool DriverCore::Sleep(std::chrono::nanoseconds duration) {
  std::unique_lock lock(wakeMutex);
  return !wake.wait_for(lock, duration, [this] { return Stopping(); });
}

bool DriverCore::WaitForRequest(std::uint32_t command, std::uint64_t times, std::chrono::milliseconds limit) {
  std::unique_lock lock(wakeMutex);
  bool received = false;
  wake.wait_for(lock, limit, [&] {
    const std::lock_guard modelLock(modelMutex);
    const auto& requests = model.State().requests;
    const auto entry = requests.find(command);
    received = model.State().connected && entry != requests.end() && entry->second >= times;
    return received || stopping;
  });
  return received;
}

void DriverCore::SetFaults(const EmulatorFaults& changes) {
  {
    const std::lock_guard lock(modelMutex);
    const auto set = [](auto& target, const auto& value) {
      if (value) target = *value;
    };
    set(faults.refuseConnects, changes.refuseConnects);
    set(faults.dropAfter, changes.dropAfter);
    set(faults.driverVersion, changes.driverVersion);
    set(faults.versionReply, changes.versionReply);
    if (changes.failSend) faults.failSend = changes.failSend;
    set(faults.delayRequests, changes.delayRequests);
    set(delayReplies, changes.delayReplies);
    if (const auto port = Present(); port != nullptr && changes.dropAfter) {
      if (*changes.dropAfter == 0) {
        port->UnlimitDeliveries();
      } else {
        port->LimitDeliveries(*changes.dropAfter);
      }
    }
  }
  Wake();
}

void DriverCore::AddViolation(const std::string& text) {
  {
    const std::lock_guard lock(modelMutex);
    model.AddViolation(text);
  }
  Log(EmulatorLogLevel::kProblem, "Protocol violation: " + text + ".");
}

void DriverCore::Log(EmulatorLogLevel level, const std::string& line) {
  const std::lock_guard lock(hooksMutex);
  if (hooks.log) hooks.log(level, line);
}

void DriverCore::ReportScenarioFinished() {
  const std::lock_guard lock(hooksMutex);
  if (hooks.scenarioFinished) hooks.scenarioFinished();
}

void DriverCore::UpdateWatch() {
  std::shared_ptr<EventSource> attached;
  {
    const std::lock_guard lock(sourceMutex);
    attached = source;
  }
  if (attached == nullptr) return;
  std::vector<std::string> paths;
  std::uint64_t revision = 0;
  {
    const std::lock_guard lock(modelMutex);
    paths = model.MonitoredPaths();
    revision = ++watchRevision;
  }
  attached->Watch(revision, paths);
}

void DriverCore::Wake() {
  // Whoever is between testing and waiting holds the lock; after it, the notification reaches them.
  { const std::lock_guard lock(wakeMutex); }
  wake.notify_all();
}

// --- Life ----------------------------------------------------------------------------------------------------------

void DriverCore::Attach(std::shared_ptr<EventSource> eventSource) {
  {
    const std::lock_guard lock(sourceMutex);
    source = std::move(eventSource);
  }
  UpdateWatch();
  watchdog = std::thread([this] { RunWatchdog(); });
}

void DriverCore::BeginStop() {
  stopping = true;
  if (const auto port = Present()) End(port, UnjudgedCause::kStopped, "the emulator stops");
  answers.TakeForEnd(nullptr, UnjudgedCause::kStopped);
  Wake();
}

void DriverCore::FinishStop() {
  {
    const std::lock_guard lock(watchdogMutex);
    watchdogStop = true;
  }
  watchdogWake.notify_all();
  if (watchdog.joinable()) watchdog.join();
  {
    const std::lock_guard lock(sourceMutex);
    source.reset();
  }
  const std::lock_guard lock(hooksMutex);
  hooks = {};
}

EmulatorState DriverCore::State() const {
  const std::lock_guard lock(modelMutex);
  return model.State();
}

void DriverCore::RunWatchdog() {
  // A notification delivered right after a round falls due a whole deadline later: two rounds in that time miss none.
  const auto round = std::max<std::chrono::nanoseconds>(deadline / 2, std::chrono::milliseconds(1));
  std::unique_lock lock(watchdogMutex);
  while (!watchdogStop) {
    lock.unlock();
    const auto now = std::chrono::steady_clock::now();
    const auto next = answers.TakeOverdue(now);
    std::shared_ptr<EventSource> attached;
    {
      const std::lock_guard sourceLock(sourceMutex);
      attached = source;
    }
    if (attached != nullptr) attached->OnWatchdog();
    attached.reset();
    auto until = now + round;
    if (next && *next < until) until = *next;
    lock.lock();
    watchdogWake.wait_until(lock, until, [this] { return watchdogStop; });
  }
}

}  // namespace fenlux::refhost
