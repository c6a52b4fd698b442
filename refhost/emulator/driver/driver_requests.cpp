// Delays, fails or carries out one request, and answers it.
#include "refhost/emulator/driver/driver_requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>
#include <cstring>
#include <stdexcept>

#include "kdi/driver_records.h"
#include "refhost/services/heap_buffer.h"

namespace fenlux::refhost {
namespace {

constexpr auto kVersionCommand = static_cast<std::uint32_t>(records::Command::kDriverVersion);

[[noreturn]] void ThrowSendFailure(SendFailure failure) {
  if (failure == SendFailure::kSystemError) {
    throw boost::system::system_error(boost::system::errc::make_error_code(boost::system::errc::io_error),
                                      "the driver fails on request");
  }
  if (failure == SendFailure::kNotAnException) throw 0;  // an int, which no handler of std::exception catches
  throw std::runtime_error("the driver fails on request");
}

// The command of the request; 0 if it is too short to hold one.
std::uint32_t CommandOf(CBuf* request) {
  records::RequestHeader header{};
  if (request == nullptr || request->GetSize() < sizeof(header)) return 0;
  std::memcpy(&header, request->GetData(), sizeof(header));
  return header.command.value();
}

}  // namespace

std::shared_ptr<CBuf> DriverRequests::Send(DriverPort& port, const std::shared_ptr<CBuf>& request,
                                           const std::shared_ptr<CBuf>& replyBuffer, bool flag) {
  if (port.Ended()) throw std::runtime_error(kPortClosed);
  if (!port.Connected()) {
    model.ReportViolation("a request before the port was connected");
    throw std::runtime_error("the port was not connected");
  }
  if (!flag) model.ReportViolation("a request sent with a flag of false");

  const std::chrono::milliseconds pause = Delay();
  if (pause.count() != 0 && port.WaitEndedFor(pause)) throw std::runtime_error(kPortClosed);
  if (const auto failure = TakeFailure(request.get())) ThrowSendFailure(*failure);

  // Read before the request is carried out: a scenario that waits for it may change the faults right after.
  const VersionAnswer answer = CurrentVersion();
  const std::uint8_t* const bytes = request == nullptr ? nullptr : request->GetData();
  const std::size_t size = request == nullptr ? 0 : request->GetSize();
  if (port.Ended()) throw std::runtime_error(kPortClosed);
  const std::optional<RequestEffect> effect = model.CarryOut(port.Connection(), bytes, size);
  if (!effect) throw std::runtime_error(kPortClosed);
  wake.Wake();
  if (!effect->violation.empty()) {
    hooks.Log(EmulatorLogLevel::kProblem, "Protocol violation: " + effect->violation + ".");
    throw std::runtime_error("the driver refuses " + effect->violation);
  }
  if (effect->watchSetChanged) source.UpdateWatch(model);
  return effect->command == kVersionCommand ? AnswerVersion(answer, replyBuffer) : nullptr;
}

std::optional<SendFailure> DriverRequests::TakeFailure(CBuf* request) {
  const std::uint32_t command = CommandOf(request);
  const MutexLock lock(mutex);
  if (!failSend) return std::nullopt;
  if (failSend->command != 0 && failSend->command != command) return std::nullopt;
  if (--failSend->nth != 0) return std::nullopt;
  const SendFailure failure = failSend->failure;
  failSend.reset();
  return failure;
}

std::shared_ptr<CBuf> DriverRequests::AnswerVersion(const VersionAnswer& answer,
                                                    const std::shared_ptr<CBuf>& replyBuffer) {
  if (replyBuffer == nullptr) return nullptr;  // no answer is expected
  if (replyBuffer->GetSize() != records::kRequestSize) {
    model.ReportViolation(fmt::format("a version request with a reply buffer of {} bytes", replyBuffer->GetSize()));
  }
  std::shared_ptr<CBuf> reply;
  switch (answer.manner) {
    case VersionReply::kFill:
      reply = replyBuffer;
      break;
    case VersionReply::kReplace:
      reply = std::make_shared<HeapBuffer>(std::size_t{records::kRequestSize});
      break;
    case VersionReply::kShort:
      reply = std::make_shared<HeapBuffer>(std::size_t{records::kRequestSize - 1});
      break;
    case VersionReply::kEmpty:
      return nullptr;
  }
  records::VersionReply record{};
  record.header.magic = records::kRequestMagic;
  record.header.command = kVersionCommand;
  record.version = answer.driverVersion;
  std::memcpy(reply->GetData(), &record, std::min(sizeof(record), reply->GetSize()));
  return reply;
}

std::chrono::milliseconds DriverRequests::Delay() const {
  const MutexLock lock(mutex);
  return delay;
}

DriverRequests::VersionAnswer DriverRequests::CurrentVersion() const {
  const MutexLock lock(mutex);
  return version;
}

void DriverRequests::SetFaults(const EmulatorFaults& changes) {
  const MutexLock lock(mutex);
  version.driverVersion = changes.driverVersion.value_or(version.driverVersion);
  version.manner = changes.versionReply.value_or(version.manner);
  if (changes.failSend) failSend = changes.failSend;
  delay = changes.delayRequests.value_or(delay);
}

}  // namespace fenlux::refhost
