// Reads the bytes of a message, and searches a capture for an exchange.
#include "refhost/emulator/sources/messages/scenario_messages.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>

#include "kdi/driver_records.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/file_bytes.h"
#include "refhost/base/text/hex.h"
#include "refhost/capture/decode/record_fields.h"
#include "refhost/capture/format/capture_reader.h"

namespace fenlux::refhost {
namespace {

using capture::CaptureReader;
using capture::Kind;
using capture::Packet;

// The part of the exchange that the file contains; `found` if that includes its notification.
struct FoundMessage {
  ScenarioMessage message;
  bool found = false;
};

FoundMessage FindExchange(CaptureReader& reader, std::uint64_t exchange) {
  FoundMessage result;
  for (;;) {
    const CaptureReader::Result read = reader.Next();
    if (read == CaptureReader::Result::kEnd) return result;
    if (read == CaptureReader::Result::kProblem) continue;  // a damaged exchange counts as missing
    const Packet& packet = reader.CurrentPacket();
    if (packet.header.exchange != exchange) continue;
    if (packet.header.kind == Kind::kNotification) {
      result.message.bytes.assign(packet.message.begin(), packet.message.end());
      result.found = true;
    } else if (result.found && packet.header.kind == Kind::kNotificationReply) {
      const bool hasReply = packet.originalSize != 0;
      // A comment means that the handler failed: then a missing reply is not by design.
      if (packet.comment.empty()) result.message.verdict = hasReply ? capture::VerdictOf(packet.message) : 0;
      return result;
    }
  }
}

}  // namespace

ScenarioMessage ReadRawMessage(const ConfigTable& table) {
  auto bytes = BytesFromHex(table.Text("raw_hex", {}));
  if (!bytes) {
    table.Report("raw_hex", "must be hexadecimal bytes such as \"01 ff\"");
    return {};
  }
  if (bytes->size() > records::kMaxMessageSize) {
    table.Report("raw_hex", fmt::format("has more than {} bytes", records::kMaxMessageSize));
    return {};
  }
  return {std::move(*bytes), std::nullopt};
}

ScenarioMessage ReadCapturedMessage(const ConfigTable& table) {
  const boost::filesystem::path file = table.Path("from_capture");
  const std::int64_t exchange = table.RequiredInteger("exchange", 1);
  if (file.empty()) return {};
  if (const std::string failure = WhyUnreadable(file); !failure.empty()) {
    table.Report("from_capture", fmt::format("{} {}", file.string(), failure));
    return {};
  }
  std::ifstream stream(std::filesystem::path(file.native()), std::ios::binary);
  CaptureReader reader(stream);
  FoundMessage result = FindExchange(reader, static_cast<std::uint64_t>(exchange));
  if (!reader.IsCapture()) {
    table.Report("from_capture", file.string() + " is not a capture");
  } else if (!result.found) {
    table.Report("exchange", fmt::format("{} has no notification with exchange {}", file.string(), exchange));
  } else if (result.message.bytes.size() > records::kMaxMessageSize) {
    table.Report("exchange", fmt::format("is a notification of more than {} bytes", records::kMaxMessageSize));
    return {};
  }
  return std::move(result.message);
}

}  // namespace fenlux::refhost
