// Composes the report. Applies the numeric filters before it decodes any field.
#include "refhost/capture/decode/exchange_report.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>

#include "refhost/base/text/hex.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/capture/decode/protocol_names.h"
#include "refhost/capture/decode/record_fields.h"

namespace fenlux::capture {
namespace {

std::string ReasonOf(const HeldMessage& held) { return refhost::Printable(held.comment); }

bool PassesNumbers(const Exchange& exchange, const ExchangeFilter& filter) {
  const bool isNotification = exchange.header.kind == Kind::kNotification;
  if (filter.code && (!isNotification || CodeOf(exchange.message.bytes) != filter.code)) return false;
  if (filter.verdict && (!isNotification || !exchange.reply || VerdictOf(exchange.reply->bytes) != filter.verdict)) {
    return false;
  }
  return !filter.slowerThan || exchange.Latency().value_or(0) >= *filter.slowerThan;
}

bool PassesPath(const Report& fields, const ExchangeFilter& filter) {
  if (!filter.path) return true;
  for (const char* name : {"path", "secondPath", "furtherPath"}) {
    const auto field = fields.find(name);
    if (field == fields.end() || !field->is_string()) continue;
    if (filter.path->Matches(refhost::WideFromNarrow(field->get_ref<const std::string&>()))) return true;
  }
  return false;
}

// The name of the record's command, code or verdict; empty if it has none.
std::string_view NameOf(Kind kind, const Report& fields) {
  const auto number = [&](const char* name) { return fields.value(name, std::uint32_t{0}); };
  if (fields.contains("error")) return {};
  if (kind == Kind::kRequest) return CommandName(number("command"));
  if (kind == Kind::kNotification) return CodeName(number("code"));
  if (kind == Kind::kNotificationReply) return VerdictName(number("verdict"));
  return {};
}

Kind ReplyKind(Kind kind) { return kind == Kind::kRequest ? Kind::kRequestReply : Kind::kNotificationReply; }

// The reply's fields; null if none was sent.
Report ReplyFields(Kind kind, const HeldMessage& reply) {
  if (reply.originalSize == 0) return nullptr;
  std::string buffer;
  Report fields = RecordFields(ReplyKind(kind), WholeMessage(reply.bytes, reply.originalSize, buffer));
  if (const std::string_view name = NameOf(ReplyKind(kind), fields); !name.empty()) fields["name"] = name;
  return fields;
}

void AddReply(const Exchange& exchange, bool hex, Report& report) {
  if (const auto latency = exchange.Latency()) report["latency_us"] = static_cast<double>(*latency) / 1000.0;
  if (!exchange.reply) {
    report["unanswered"] = true;
    return;
  }
  report["reply"] = ReplyFields(exchange.header.kind, *exchange.reply);
  if (!exchange.reply->comment.empty()) report["failure"] = ReasonOf(*exchange.reply);
  if (hex) report["reply_bytes"] = refhost::HexText(exchange.reply->bytes);
}

void AppendFields(std::string& out, const Report& fields) {
  for (const auto& [name, value] : fields.items()) {
    const bool isText = value.is_string();
    const std::string text =
        isText ? '"' + refhost::Printable(value.get_ref<const std::string&>()) + '"' : refhost::JsonText(value);
    fmt::format_to(std::back_inserter(out), " {}={}", refhost::Printable(name), text);
  }
}

}  // namespace

std::string TimeText(std::uint64_t time) {
  const auto seconds = static_cast<std::time_t>(time / kNanosecondsPerSecond);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:09}Z", fmt::gmtime(seconds), time % kNanosecondsPerSecond);
}

std::optional<Report> ExchangeReport(const Exchange& exchange, const ExchangeFilter& filter, bool hex) {
  if (!PassesNumbers(exchange, filter)) return std::nullopt;
  const Kind kind = exchange.header.kind;
  std::string buffer;
  Report fields = RecordFields(kind, WholeMessage(exchange.message.bytes, exchange.message.originalSize, buffer));
  if (!PassesPath(fields, filter)) return std::nullopt;

  Report report = Report::object();
  report["time"] = TimeText(exchange.message.time);
  report["offset"] = exchange.offset;
  report["connection"] = exchange.header.connection;
  report["exchange"] = exchange.header.exchange;
  report["kind"] = KindName(kind);
  if (exchange.dropped != 0) report["lost_before"] = exchange.dropped;
  if (const std::string_view name = NameOf(kind, fields); !name.empty()) report["name"] = name;
  report["message"] = std::move(fields);
  if (hex) report["message_bytes"] = refhost::HexText(exchange.message.bytes);
  if (exchange.judgement) report["judgement"] = RecordFields(Kind::kJudgement, exchange.judgement->bytes);
  if (kind == Kind::kRequest || kind == Kind::kNotification) {
    AddReply(exchange, hex, report);
  } else if (!exchange.message.comment.empty()) {
    report["failure"] = ReasonOf(exchange.message);
  }
  return report;
}

std::string ExchangeText(const Report& report) {
  std::string text = report.value("time", std::string());
  fmt::format_to(std::back_inserter(text), " {}:{} {}", report.value("connection", 0u),
                 report.value("exchange", std::uint64_t{0}), report.value("kind", std::string()));
  if (report.contains("name")) text += ", " + report.value("name", std::string());
  if (report.contains("latency_us")) {
    fmt::format_to(std::back_inserter(text), ", {:.1f} us", report.value("latency_us", 0.0));
  }
  if (report.contains("unanswered")) text += ", no reply in the capture";
  if (report.contains("failure")) text += ", failed: " + report.value("failure", std::string());
  if (report.contains("lost_before")) {
    fmt::format_to(std::back_inserter(text), ", {} messages lost before",
                   report.value("lost_before", std::uint64_t{0}));
  }
  text += '\n';
  for (const char* part : {"message", "judgement", "reply"}) {
    const auto fields = report.find(part);
    if (fields == report.end()) continue;
    fmt::format_to(std::back_inserter(text), "  {:<10}", part);
    if (fields->is_null()) {
      text += " none";
    } else {
      AppendFields(text, *fields);
    }
    text += '\n';
  }
  for (const char* part : {"message_bytes", "reply_bytes"}) {
    if (report.contains(part)) text += fmt::format("  {:<13} {}\n", part, report.value(part, std::string()));
  }
  return text;
}

}  // namespace fenlux::capture
