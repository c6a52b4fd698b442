// Parses every exchange with the driver kit. Only the exchanges to show are formatted as text.
#include "refhost/capture/report/capture_statistics.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "fenlux/driver_protocol.h"
#include "refhost/capture/decode/exchange_report.h"
#include "refhost/capture/decode/json_text.h"
#include "refhost/capture/decode/record_fields.h"
#include "refhost/capture/format/packet_loop.h"

namespace fenlux::capture {
namespace {

constexpr std::size_t kMaxListedConnections = 500;
constexpr std::size_t kMaxListedProblems = 100;
constexpr std::size_t kMaxSlowest = 20;
constexpr std::size_t kMaxKey = 300;  // of a path or a rule, in bytes

std::string Shortened(std::string text) {
  if (text.size() <= kMaxKey) return text;
  std::size_t size = kMaxKey;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xc0) == 0x80) --size;  // not within a character
  text.resize(size);
  return text + "...";
}

class Collector {
 public:
  explicit Collector(CaptureStatistics& target)
      : statistics(target), pairing([this](const Exchange& exchange) { Add(exchange); }) {}

  void Add(const Packet& packet) {
    if (statistics.packets++ == 0) statistics.begin = packet.time;
    statistics.end = std::max(statistics.end, packet.time);
    statistics.lost += packet.dropped;
    pairing.Add(packet);
  }
  void Finish() { pairing.Flush(); }

 private:
  void Add(const Exchange& exchange) {
    switch (exchange.header.kind) {
      case Kind::kConnectContext:
        return AddConnect(exchange);
      case Kind::kClosed:
        return AddClose(exchange);
      case Kind::kRequest:
        return AddRequest(exchange);
      case Kind::kNotification:
        return AddNotification(exchange);
      default:
        return;
    }
  }

  ConnectionNumbers* Find(std::uint32_t connection) {
    const auto found = std::find_if(statistics.connections.rbegin(), statistics.connections.rend(),
                                    [&](const ConnectionNumbers& numbers) { return numbers.connection == connection; });
    return found == statistics.connections.rend() ? nullptr : &*found;
  }

  void AddConnect(const Exchange& exchange) {
    FenluxConnectContextView view;
    const auto& bytes = exchange.message.bytes;
    const FenluxError error = FenluxParseConnectContext(bytes.data(), bytes.size(), &view);
    if (error != FENLUX_OK) AddMalformed(exchange, FenluxErrorText(error));
    if (statistics.connections.size() == kMaxListedConnections) return;
    statistics.connections.push_back({exchange.header.connection, exchange.message.time, std::nullopt, {}, 0, 0});
  }

  void AddClose(const Exchange& exchange) {
    ConnectionNumbers* const numbers = Find(exchange.header.connection);
    if (numbers == nullptr) return;
    numbers->end = exchange.message.time;
    const auto& bytes = exchange.message.bytes;
    numbers->reason = Shortened(std::string(bytes.begin(), bytes.end()));
  }

  void AddRequest(const Exchange& exchange) {
    ++statistics.requests;
    if (ConnectionNumbers* const numbers = Find(exchange.header.connection)) ++numbers->requests;
    FenluxRequestView view;
    const auto message = WholeMessage(exchange.message.bytes, exchange.message.originalSize, buffer);
    const FenluxError error = FenluxParseRequest(message.data(), message.size(), &view);
    if (error != FENLUX_OK) {
      AddMalformed(exchange, FenluxErrorText(error));
    } else {
      ++statistics.commands[view.command];
    }
    AddEnd(exchange);
  }

  void AddNotification(const Exchange& exchange) {
    ++statistics.notifications;
    if (ConnectionNumbers* const numbers = Find(exchange.header.connection)) ++numbers->notifications;
    const std::uint64_t latency = exchange.Latency().value_or(0);
    const auto& bytes = exchange.message.bytes;
    FenluxNotificationView view;
    const FenluxError error = FenluxParseNotification(bytes.data(), bytes.size(), &view);
    if (error != FENLUX_OK) {
      AddMalformed(exchange, FenluxErrorText(error));
    } else {
      ++statistics.codes[view.event.code];
      statistics.processes.Add(std::to_string(view.event.processId), latency);
      if (view.path.count != 0) statistics.paths.Add(Shortened(Utf8(view.path)), latency);
    }
    if (exchange.judgement) AddJudgement(*exchange.judgement, latency);
    AddReply(exchange);
    if (exchange.Latency()) {
      statistics.timeLine.Add(exchange.message.time, latency);
      AddSlow(exchange, latency);
    }
    AddEnd(exchange);
  }

  void AddJudgement(const HeldMessage& message, std::uint64_t latency) {
    const std::string_view text(reinterpret_cast<const char*>(message.bytes.data()), message.bytes.size());
    const auto judgement = ParseJsonObject(text);
    if (!judgement) return;
    const auto decision = judgement->find("decision");
    if (decision != judgement->end() && decision->is_number_unsigned() && statistics.decisions.size() < kMaxDecisions) {
      ++statistics.decisions[decision->get<std::uint32_t>()];
    }
    const auto rule = judgement->find("rule");
    if (rule == judgement->end() || !rule->is_string()) return;
    statistics.rules.Add(Shortened(rule->get<std::string>()), latency);
  }

  void AddReply(const Exchange& exchange) {
    if (!exchange.reply || !exchange.reply->comment.empty()) return;
    const auto& bytes = exchange.reply->bytes;
    if (bytes.empty()) {
      ++statistics.withoutReply;
      return;
    }
    FenluxReplyView view;
    const FenluxError error = FenluxParseReply(bytes.data(), bytes.size(), &view);
    if (error == FENLUX_OK) {
      ++statistics.verdicts[view.verdict];
    } else {
      AddMalformed(exchange, std::string("reply: ") + FenluxErrorText(error));
    }
  }

  void AddEnd(const Exchange& exchange) {
    if (!exchange.reply) {
      ++statistics.unanswered;
      Show(exchange, "no reply in the capture");
    } else if (!exchange.reply->comment.empty()) {
      ++statistics.failed;
      Show(exchange, "failed: " + exchange.reply->comment);
    }
  }

  void AddMalformed(const Exchange& exchange, std::string problem) {
    ++statistics.malformed;
    Show(exchange, "malformed: " + std::move(problem));
  }

  void Show(const Exchange& exchange, std::string problem) {
    if (statistics.problems.size() < kMaxListedProblems)
      statistics.problems.push_back(Shown(exchange, std::move(problem)));
  }

  void AddSlow(const Exchange& exchange, std::uint64_t latency) {
    auto& slowest = statistics.slowest;
    if (slowest.size() == kMaxSlowest && latency <= slowest.back().latency) return;
    const auto place = std::ranges::upper_bound(slowest, latency, std::greater<>(), &ShownExchange::latency);
    slowest.insert(place, Shown(exchange, {}));
    if (slowest.size() > kMaxSlowest) slowest.pop_back();
  }

  static std::string SubjectOf(const refhost::Report& report) {
    const refhost::Report& message = report.at("message");
    const auto path = message.find("path");
    if (path != message.end() && path->is_string()) return path->get<std::string>();
    if (const auto error = message.find("error"); error != message.end())
      return "malformed: " + error->get<std::string>();
    return report.value("name", std::string());
  }

  static ShownExchange Shown(const Exchange& exchange, std::string problem) {
    const auto report = ExchangeReport(exchange, {}, false);
    return {.connection = exchange.header.connection,
            .exchange = exchange.header.exchange,
            .offset = exchange.offset,
            .problem = std::move(problem),
            .subject = SubjectOf(*report),
            .text = ExchangeText(*report),
            .latency = exchange.Latency().value_or(0)};
  }

  static constexpr std::size_t kMaxDecisions = 1000;

  CaptureStatistics& statistics;
  ExchangePairing pairing;
  std::string buffer;
};

}  // namespace

CaptureStatistics CollectStatistics(std::istream& stream, const std::function<void(std::uint64_t offset)>& progress) {
  CaptureStatistics statistics;
  Collector collector(statistics);
  CaptureReader reader(stream);
  ReadPackets(reader, {.packet = [&](const Packet& packet) { collector.Add(packet); },
                       .problem =
                           [&](const Problem& problem) {
                             ++statistics.damages;
                             if (statistics.damage.size() < kMaxListedProblems) statistics.damage.push_back(problem);
                           },
                       .progress = progress});
  collector.Finish();
  statistics.isCapture = reader.IsCapture();
  statistics.cutOff = reader.CutOff();
  return statistics;
}

}  // namespace fenlux::capture
