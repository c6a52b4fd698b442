// Checks exchanges one by one. What depends on how a connection ended is decided at the end.
#include "refhost/app/drive/driver_examination.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "fenlux/driver_protocol.h"
#include "refhost/app/drive/notification_examination.h"
#include "refhost/capture/decode/protocol_names.h"
#include "refhost/capture/decode/record_fields.h"
#include "refhost/capture/format/close_reasons.h"

namespace fenlux::refhost {
namespace {

using capture::Exchange;
using capture::Kind;

constexpr std::uint64_t kNanosecondsPerMillisecond = 1'000'000;

DrivePlace PlaceOf(const Exchange& exchange) {
  return {exchange.header.connection, exchange.header.exchange, exchange.offset};
}

std::string RequestName(std::uint32_t command) {
  return fmt::format("request {} ({})", command, capture::CommandName(command));
}

std::string Text(const capture::HeldMessage& message) {
  return {reinterpret_cast<const char*>(message.bytes.data()), message.bytes.size()};
}

}  // namespace

void DriverExamination::Add(const Exchange& exchange) {
  missing += exchange.dropped;
  switch (exchange.header.kind) {
    case Kind::kConnectContext:
      // A new file begins with the contexts of open connections again.
      if (connections.emplace(exchange.header.connection, Connection{.place = PlaceOf(exchange)}).second) {
        findings.Saw(DriveCheck::kConnect);
      }
      break;
    case Kind::kClosed: {
      Connection& connection = connections[exchange.header.connection];
      connection.closed = true;
      connection.closeTime = exchange.message.time;
      connection.reason = Text(exchange.message);
      break;
    }
    case Kind::kRequest:
      AddRequest(exchange);
      break;
    case Kind::kNotification:
      ++notifications;
      if (exchange.reply && exchange.reply->originalSize == 0 && exchange.reply->comment.empty()) ++unanswered;
      longestReply = std::max(longestReply, exchange.Latency().value_or(0));
      ExamineNotification(exchange, findings);
      break;
    default:  // about the host, not the driver
      break;
  }
}

void DriverExamination::AddRequest(const Exchange& exchange) {
  // The module's request itself is not checked.
  std::string buffer;
  const auto request = capture::WholeMessage(exchange.message.bytes, exchange.message.originalSize, buffer);
  const std::uint32_t command =
      request.size() < sizeof(FenluxRequestHeader)
          ? 0
          : FenluxGetU32(&reinterpret_cast<const FenluxRequestHeader*>(request.data())->command);
  commands.insert(command);
  findings.Saw(DriveCheck::kRequests);
  findings.Saw(DriveCheck::kRequestTime);
  const std::string record = RequestName(command);
  connections[exchange.header.connection].lastRequest = record;
  if (!exchange.reply) {
    failures.push_back({PlaceOf(exchange), exchange.message.time, record, {}});
    return;
  }
  if (!exchange.reply->comment.empty()) {
    failures.push_back({PlaceOf(exchange), exchange.reply->time, record, exchange.reply->comment});
    return;
  }
  std::uint64_t& lastSuccess = connections[exchange.header.connection].lastSuccess;
  lastSuccess = std::max(lastSuccess, exchange.message.time);
  AddRequestTime(exchange, record);
  if (command == FENLUX_COMMAND_DRIVER_VERSION) AddVersionReply(exchange);
}

void DriverExamination::AddRequestTime(const Exchange& exchange, const std::string& record) {
  const std::uint64_t milliseconds = exchange.Latency().value_or(0) / kNanosecondsPerMillisecond;
  if (milliseconds <= static_cast<std::uint64_t>(limits.request.count())) return;
  findings.Add({.rule = DriveRule::kRequestLate,
                .record = record,
                .wrong = fmt::format("answered after more than {} ms", limits.request.count()),
                .circumstance = fmt::format("after {} ms", milliseconds),
                .first = PlaceOf(exchange)});
}

void DriverExamination::AddVersionReply(const Exchange& exchange) {
  findings.Saw(DriveCheck::kVersionReply);
  const auto add = [&](DriveRule rule, const char* field, std::string wrong) {
    findings.Add({.rule = rule,
                  .record = "version reply",
                  .field = field,
                  .wrong = std::move(wrong),
                  .first = PlaceOf(exchange)});
  };
  const std::uint64_t size = exchange.reply->originalSize;
  if (size == 0) {
    add(DriveRule::kVersionMissing, "", "there is none");
    return;
  }
  if (size < sizeof(FenluxVersionReplyRecord)) {
    add(DriveRule::kVersionShort, "size", fmt::format("{} bytes", size));
    return;
  }
  std::string buffer;
  const auto bytes = capture::WholeMessage(exchange.reply->bytes, size, buffer);
  const auto& reply = *reinterpret_cast<const FenluxVersionReplyRecord*>(bytes.data());
  if (const std::uint64_t magic = FenluxGetU64(&reply.header.magic); magic != FENLUX_REQUEST_MAGIC) {
    add(DriveRule::kVersionHead, "magic at 0", fmt::format("0x{:016x}", magic));
  }
  if (const std::uint32_t command = FenluxGetU32(&reply.header.command); command != FENLUX_COMMAND_DRIVER_VERSION) {
    add(DriveRule::kVersionHead, "command at 8", fmt::format("{}", command));
  }
  if (const std::uint32_t version = FenluxGetU32(&reply.version); version != limits.version) {
    add(DriveRule::kVersionNumber, "version at 12", fmt::format("{}, not {}", version, limits.version));
  }
}

// The module's close is recorded before it happens, the driver's close only when the module notices it. So a request
// that failed after the last success may have failed because of the driver's close.
bool DriverExamination::EndedWith(const Failure& failure) const {
  const auto found = connections.find(failure.place.connection);
  if (found == connections.end() || !found->second.closed) return false;
  const Connection& connection = found->second;
  return failure.time >= (connection.reason == capture::kDriverEnded ? connection.lastSuccess : connection.closeTime);
}

void DriverExamination::FinishConnections(const DriveOutcome& outcome) {
  bool refused = false;
  for (const auto& [number, connection] : connections) {
    const bool dropped = connection.reason == capture::kDriverEnded;
    if (connection.closed && !dropped && !capture::ClosedByModule(connection.reason)) {
      refused = true;
      findings.Add({.rule = DriveRule::kConnectRefused,
                    .record = "connection",
                    .wrong = "refused: " + connection.reason,
                    .first = connection.place});
      continue;
    }
    findings.Saw(DriveCheck::kConnection);
    if (!dropped) continue;
    findings.Add({.rule = DriveRule::kConnectionDropped,
                  .record = "connection",
                  .wrong = "ended by the driver",
                  .circumstance = connection.lastRequest.empty() ? "before any request"
                                                                 : "the last request was " + connection.lastRequest,
                  .first = connection.place});
  }
  if (!outcome.connected && !refused && !connections.empty()) {
    findings.Add({.rule = DriveRule::kConnectUnanswered,
                  .record = "connection",
                  .wrong = "neither accepted nor refused",
                  .first = connections.begin()->second.place});
  }
  if (!outcome.reconnectTried) return;
  findings.Saw(DriveCheck::kReconnect);
  if (outcome.reconnected) return;
  findings.Add({.rule = DriveRule::kNotConnectedAgain,
                .record = "connection",
                .wrong = "none after the module closed the last one"});
}

void DriverExamination::FinishRequests(std::uint64_t end) {
  const auto limit = static_cast<std::uint64_t>(limits.request.count()) * kNanosecondsPerMillisecond;
  for (const Failure& failure : failures) {
    if (EndedWith(failure)) continue;
    if (!failure.text.empty()) {
      findings.Add({.rule = DriveRule::kRequestRejected,
                    .record = failure.record,
                    .wrong = "rejected: " + failure.text,
                    .first = failure.place});
    } else if (failure.time + limit < end) {  // otherwise the recording ended too early to tell
      findings.Add({.rule = DriveRule::kRequestUnanswered,
                    .record = failure.record,
                    .wrong = "no answer",
                    .first = failure.place});
    }
  }
}

void DriverExamination::FinishReplies(const DriveReplies& replies) {
  findings.Saw(DriveCheck::kReplies, notifications);
  const auto add = [&](DriveRule rule, std::uint64_t count, const char* wrong) {
    if (count == 0) return;
    findings.Add({.rule = rule,
                  .record = "reply",
                  .wrong = wrong,
                  .circumstance =
                      fmt::format("the module took up to {} ms for a reply", longestReply / kNanosecondsPerMillisecond),
                  .count = count});
  };
  add(DriveRule::kReplyLate, replies.late, "the driver no longer waited for it");
  add(DriveRule::kReplyNotAwaited, replies.notAwaited - std::min(replies.notAwaited, unanswered),
      "the driver did not wait for it");
  add(DriveRule::kReplyRefused, replies.refused,
      "the driver waited for one that the module does not send, or did not accept it");
}

void DriverExamination::Finish(const DriveOutcome& outcome) {
  FinishConnections(outcome);
  FinishRequests(outcome.end);
  if (outcome.replies) FinishReplies(*outcome.replies);
}

}  // namespace fenlux::refhost
