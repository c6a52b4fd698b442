// Reads a scenario's steps. One key of a step determines its kind; a table maps each such key to its reader. Keys that
// the reader does not read are reported as unknown.
#include "refhost/emulator/sources/scenario.h"

#include <fmt/format.h>

#include <boost/asio/ip/address.hpp>
#include <random>
#include <utility>

#include "kdi/driver_records.h"
#include "refhost/base/config/config_limits.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/hex.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/emulator/driver/shared/driver_commands.h"
#include "refhost/emulator/sources/messages/scenario_messages.h"
#include "refhost/emulator/sources/notification_builder.h"

namespace fenlux::refhost {
namespace {

constexpr std::size_t kRemoteWords = 4;
constexpr std::size_t kAccessValues = 2;

std::chrono::milliseconds Milliseconds(const ConfigTable& table, std::string_view key, std::uint32_t defaultValue = 0) {
  return std::chrono::milliseconds(table.Unsigned(key, defaultValue, 0, kMaxMilliseconds));
}

std::vector<std::uint8_t> HexBytes(const ConfigTable& table, std::string_view key) {
  const auto bytes = BytesFromHex(table.Text(key, {}));
  if (!bytes) table.Report(key, "must be hexadecimal bytes such as \"01 ff\"");
  return bytes.value_or(std::vector<std::uint8_t>());
}

std::uint8_t Flag(const ConfigTable& table, std::string_view key) {
  return static_cast<std::uint8_t>(table.Unsigned(key, 0, 0, 255));
}

std::uint64_t ReadProcessId(const ConfigTable& table) {
  if (table.Text("process", "self") != "self") {
    table.Report("process", "can only be \"self\"; use pid to name another process by its number");
  }
  if (!table.Has("pid")) return OwnProcessId();
  return static_cast<std::uint64_t>(table.Integer("pid", 0, 0));
}

void ReadEndpoint(const ConfigTable& table, NotificationFields& fields) {
  EndpointFields endpoint;
  endpoint.port = static_cast<std::uint16_t>(table.Unsigned("port", 0, 0, 65535));
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(table.Text("address", "127.0.0.1"), error);
  if (error) {
    table.Report("address", "is neither an IPv4 nor an IPv6 address");
  } else if (address.is_v4()) {
    // The record holds the four bytes in network order.
    const auto bytes = address.to_v4().to_bytes();
    endpoint.address = static_cast<std::uint32_t>(bytes[0] | (bytes[1] << 8) | (bytes[2] << 16)) |
                       (static_cast<std::uint32_t>(bytes[3]) << 24);
  } else {
    endpoint.address = address.to_v6().to_bytes();
  }
  fields.detail = endpoint;
}

void ReadRemote(const ConfigTable& table, NotificationFields& fields) {
  RemoteFields remote;
  remote.remote = table.Boolean("remote", false);
  const auto words = table.Integers("words", 0);
  if (words.size() > kRemoteWords) table.Report("words", "has more than four values");
  for (std::size_t i = 0; i < std::min(words.size(), kRemoteWords); ++i) {
    remote.words[i] = static_cast<std::uint64_t>(words[i]);
  }
  fields.detail = remote;
}

// The details that only some codes have.
struct DetailReader {
  std::uint32_t code;
  void (*read)(const ConfigTable& table, NotificationFields& fields);
};
constexpr DetailReader kDetails[] = {
    {records::code::kEndpoint, ReadEndpoint},
    {records::code::kRemote1, ReadRemote},
    {records::code::kRemote2, ReadRemote},
};

NotificationFields ReadFields(const ConfigTable& table) {
  NotificationFields fields;
  fields.code = table.RequiredUnsigned("notify");
  fields.processId = ReadProcessId(table);
  fields.variant = Flag(table, "variant");
  fields.conditionA = Flag(table, "condition_a");
  fields.conditionB = Flag(table, "condition_b");
  fields.conditionC = Flag(table, "condition_c");
  fields.oplock = Flag(table, "oplock");
  fields.path = Utf16FromNarrow(table.ExpandedText("path", {}));
  fields.secondPath = Utf16FromNarrow(table.ExpandedText("second_path", {}));
  fields.furtherPath = Utf16FromNarrow(table.ExpandedText("further_path", {}));
  fields.extraData = HexBytes(table, "extra_hex");
  fields.identity = HexBytes(table, "identity_hex");
  if (fields.identity.size() > sizeof(records::Notification::identity)) {
    table.Report("identity_hex", "has more than 64 bytes");
    fields.identity.resize(sizeof(records::Notification::identity));
  }
  for (const DetailReader& detail : kDetails) {
    if (detail.code == fields.code) detail.read(table, fields);
  }
  fields.accessKind = Flag(table, "access_kind");
  const auto values = table.Integers("access_values", 0, std::numeric_limits<std::uint32_t>::max());
  if (values.size() > kAccessValues) table.Report("access_values", "has more than two values");
  if (!values.empty()) fields.accessValueA = static_cast<std::uint32_t>(values[0]);
  if (values.size() > 1) fields.accessValueB = static_cast<std::uint32_t>(values[1]);
  return fields;
}

// Reads the keys common to all steps that deliver notifications.
NotifyStep ReadDelivery(const ConfigTable& table, std::uint32_t threads) {
  NotifyStep step;
  step.count = table.Unsigned("count", 1, 1);
  step.ratePerSecond = table.Number("rate", 0, 0, 1e9);
  step.threads = table.Unsigned("threads", threads, 1, kMaxThreads);
  if (step.threads > threads) table.Report("threads", "is more than the scenario's threads");
  if (table.Has("expect_verdict")) step.expectedVerdict = table.Unsigned("expect_verdict", 0, 0, records::kMaxVerdict);
  step.holdReply = Milliseconds(table, "hold_reply_ms");
  step.holdUntilEnd = table.Boolean("hold_until_end", false);
  step.inBackground = table.Boolean("background", false);
  return step;
}

using Actions = std::vector<decltype(ScenarioStep::action)>;

Actions ReadNotify(const ConfigTable& table, std::uint32_t threads) {
  NotificationFields fields = ReadFields(table);
  NotifyStep step = ReadDelivery(table, threads);
  const bool both = table.Boolean("both_variants", false);
  const bool cut = table.Has("size");
  const std::uint32_t size = table.Unsigned("size", 0, 0, records::kMaxMessageSize);
  if (!cut && NotificationSize(fields) > records::kMaxMessageSize) {
    table.Report({}, fmt::format("makes a notification of more than {} bytes", records::kMaxMessageSize));
  }
  Actions actions;
  for (const bool second : {false, true}) {
    if (second && !both) break;
    if (both) fields.variant = second ? 1 : 0;
    step.message = BuildNotification(fields);
    if (cut) step.message.resize(size);
    actions.emplace_back(step);
  }
  return actions;
}

Actions ReadGarbage(const ConfigTable& table, std::uint32_t threads) {
  NotifyStep step = ReadDelivery(table, threads);
  step.message.resize(table.Unsigned("garbage", 0, 0, records::kMaxMessageSize));
  std::mt19937 random(table.Unsigned("seed", 1));
  for (std::uint8_t& byte : step.message) byte = static_cast<std::uint8_t>(random() & 0xff);
  return {step};
}

// Delivers a complete message. Expects the verdict that a capture has for it, unless the step
// names another one.
Actions ReadMessage(const ConfigTable& table, std::uint32_t threads, ScenarioMessage message) {
  NotifyStep step = ReadDelivery(table, threads);
  step.message = std::move(message.bytes);
  if (!step.expectedVerdict) step.expectedVerdict = message.verdict;
  return {step};
}

Actions ReadRaw(const ConfigTable& table, std::uint32_t threads) {
  return ReadMessage(table, threads, ReadRawMessage(table));
}

Actions ReadFromCapture(const ConfigTable& table, std::uint32_t threads) {
  return ReadMessage(table, threads, ReadCapturedMessage(table));
}

Actions ReadPause(const ConfigTable& table, std::uint32_t) { return {PauseStep{Milliseconds(table, "pause_ms")}}; }

Actions ReadDrop(const ConfigTable& table, std::uint32_t) {
  if (!table.Boolean("drop", true)) table.Report("drop", "can only be true");
  return {DropStep{}};
}

Actions ReadFaultStep(const ConfigTable& table, std::uint32_t) {
  return {FaultStep{ReadEmulatorFaults(table.Table("faults"))}};
}

Actions ReadAwaitRequest(const ConfigTable& table, std::uint32_t) {
  AwaitRequestStep step;
  step.command = table.Unsigned("await_request", 0);
  if (FindCommand(step.command) == nullptr) table.Report("await_request", "is not a command of the driver");
  step.times = table.Unsigned("times", 1, 1);
  step.limit = Milliseconds(table, "limit_ms", static_cast<std::uint32_t>(step.limit.count()));
  return {step};
}

struct StepReader {
  std::string_view key;
  Actions (*read)(const ConfigTable& table, std::uint32_t threads);
};
constexpr StepReader kStepReaders[] = {
    {"notify", ReadNotify},
    {"raw_hex", ReadRaw},
    {"from_capture", ReadFromCapture},
    {"garbage", ReadGarbage},
    {"pause_ms", ReadPause},
    {"drop", ReadDrop},
    {"faults", ReadFaultStep},
    {"await_request", ReadAwaitRequest},
};

void ReadStep(const ConfigTable& table, std::uint32_t number, Scenario& scenario) {
  const StepReader* kind = nullptr;
  for (const StepReader& reader : kStepReaders) {
    if (!table.Has(reader.key)) continue;
    if (kind != nullptr) {
      table.Report(reader.key, fmt::format("conflicts with {}; a step does one thing", kind->key));
      continue;
    }
    kind = &reader;
  }
  if (kind == nullptr) {
    table.Report(
        {}, "does nothing; a step has notify, raw_hex, from_capture, garbage, pause_ms, drop, faults or await_request");
    return;
  }
  for (auto& action : kind->read(table, scenario.threads)) scenario.steps.push_back({std::move(action), number});
}

}  // namespace

Scenario ReadScenario(const ConfigTable& root) {
  Scenario scenario;
  scenario.name = root.Text("name", {});
  scenario.threads = root.Unsigned("threads", scenario.threads, 1, kMaxThreads);
  scenario.repeat = root.Unsigned("repeat", 1);
  scenario.faults = ReadEmulatorFaults(root.Table("faults"));
  std::uint32_t number = 0;
  for (const ConfigTable& step : root.Tables("steps")) ReadStep(step, ++number, scenario);
  root.Finish();
  return scenario;
}

Scenario LoadScenario(const boost::filesystem::path& file, ConfigErrors& errors) {
  const ConfigDocument document(file, errors);
  if (!document.Parsed()) return {};
  return ReadScenario(document.Root());
}

}  // namespace fenlux::refhost
