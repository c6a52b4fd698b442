// The table of commands. A row's effect gets the whole request of kRequestSize bytes. It either returns what is wrong
// with the request, or carries it out and returns an empty string.
#include "refhost/emulator/driver/shared/driver_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "kdi/driver_records.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

using records::Command;

// Object types and item lists have the same numbers, which are also their array positions plus 1.
constexpr std::uint32_t kMinType = records::kObjectType1;
constexpr std::uint32_t kMaxType = records::kObjectType3;
static_assert(kMinType == records::kNetItemList1 && kMaxType == records::kNetItemList3);
constexpr auto kMinMode = static_cast<std::uint32_t>(records::NetControlMode::kMode1);
constexpr auto kMaxMode = static_cast<std::uint32_t>(records::NetControlMode::kAlternateItems);
constexpr std::uint32_t kSystemProcessKinds[] = {static_cast<std::uint32_t>(records::SystemProcess::kCsrss),
                                                 static_cast<std::uint32_t>(records::SystemProcess::kServices)};

// Reads a UTF-16 text field up to its NUL or its end.
std::string ReadText(const std::uint8_t* field, std::size_t bytes) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes; i += 2) {
    const auto unit = static_cast<char16_t>(field[i] | (field[i + 1] << 8));
    if (unit == 0) break;
    text.push_back(unit);
  }
  return NarrowFromUtf16(text);
}

bool IsType(std::uint32_t type) { return type >= kMinType && type <= kMaxType; }

// One function per command; each changes the driver's data.
struct CommandEffects {
  using Request = const std::uint8_t*;

  static std::string AddMonitorObject(DriverData& data, Request request) {
    using Record = records::MonitorObjectRequest;
    records::U32 type;
    std::memcpy(&type, request + offsetof(Record, objectType), sizeof(type));
    const std::uint8_t flag = request[offsetof(Record, pathFlag)];
    if (!IsType(type.value())) return fmt::format("object type {}", type.value());
    if (flag > 1) return fmt::format("path flag {}", flag);
    MonitoredObject object;
    object.path = ReadText(request + offsetof(Record, path), sizeof(Record::path));
    object.rootName = ReadText(request + offsetof(Record, rootName), sizeof(Record::rootName));
    object.pathFlag = flag != 0;
    if (object.path.empty()) return "an empty path";
    data.state.monitored[type.value() - kMinType].pending.push_back(std::move(object));
    return {};
  }

  static std::string CommitMonitorObjects(DriverData& data, Request request) {
    const std::uint32_t type = Value(request);
    if (!IsType(type)) return fmt::format("object type {}", type);
    MonitoredSet& set = data.state.monitored[type - kMinType];
    set.committed = std::move(set.pending);
    set.pending.clear();
    ++set.commits;
    return {};
  }

  template <std::optional<bool> EmulatorState::*Switch>
  static std::string ClientSwitch(DriverData& data, Request request) {
    const auto record = ReadRequest<records::ClientSwitchRequest>(request);
    if (record.clientType.value() != data.state.clientType) {
      return fmt::format("client type {} on a connection of client type {}", record.clientType.value(),
                         data.state.clientType);
    }
    if (record.on > 1) return fmt::format("switch {}", record.on);
    data.state.*Switch = record.on != 0;
    return {};
  }

  static std::string GrdtoValue(DriverData& data, Request request) {
    data.state.grdtoValue = Value(request);
    return {};
  }

  static std::string GrharaSwitch(DriverData& data, Request request) {
    const auto record = ReadRequest<records::SwitchRequest>(request);
    if (record.off > 1) return fmt::format("switch {}", record.off);
    data.state.grharaOff = record.off != 0;
    return {};
  }

  static std::string DumpDebugInfo(DriverData& data, Request) {
    ++data.state.dumps;
    return {};
  }

  static std::string SpspState(DriverData& data, Request request) {
    const auto record = ReadRequest<records::SpspStateRequest>(request);
    data.state.spspSwitches = {record.switch1, record.switch2, record.switch3, record.switch4};
    return {};
  }

  static std::string DriverVersion(DriverData& data, Request) {
    ++data.state.versionsAsked;
    return {};
  }

  static std::string NetControlMode(DriverData& data, Request request) {
    const std::uint32_t mode = Value(request);
    if (mode < kMinMode || mode > kMaxMode) return fmt::format("mode {}", mode);
    data.state.netControlMode = mode;
    return {};
  }

  static std::string SystemProcess(DriverData& data, Request request) {
    const auto record = ReadRequest<records::SystemProcessRequest>(request);
    const std::uint32_t kind = record.kind.value();
    if (std::find(std::begin(kSystemProcessKinds), std::end(kSystemProcessKinds), kind) ==
        std::end(kSystemProcessKinds)) {
      return fmt::format("kind {}", kind);
    }
    if (record.processId.value() == records::kNoProcess) return "the id that means no process";
    data.state.systemProcesses[kind] = record.processId.value();
    return {};
  }

  static std::string NetItemListBegin(DriverData& data, Request request) {
    const std::uint32_t type = Value(request);
    if (!IsType(type)) return fmt::format("list type {}", type);
    for (std::size_t i = 0; i < data.openLists.size(); ++i) {
      if (data.openLists[i]) return fmt::format("list {} begun while list {} is not ended", type, i + kMinType);
    }
    data.openLists[type - kMinType].emplace();
    return {};
  }

  static std::string NetItem(DriverData& data, Request request) {
    const auto record = ReadRequest<records::NetItemRequest>(request);
    const std::uint32_t type = record.listType.value();
    if (!IsType(type)) return fmt::format("list type {}", type);
    if (!data.openLists[type - kMinType]) return fmt::format("an item of list {}, which has not begun", type);
    NetControlItem item{};
    std::copy(std::begin(record.opaque), std::end(record.opaque), item.opaque.begin());
    item.value = record.value.value();
    data.openLists[type - kMinType]->push_back(item);
    return {};
  }

  static std::string NetItemListEnd(DriverData& data, Request request) {
    const std::uint32_t type = Value(request);
    if (!IsType(type)) return fmt::format("list type {}", type);
    if (!data.openLists[type - kMinType]) return fmt::format("end of list {}, which has not begun", type);
    data.state.netControlItems[type - kMinType] = std::move(*data.openLists[type - kMinType]);
    data.openLists[type - kMinType].reset();
    return {};
  }

  static std::string DriverConfig(DriverData& data, Request request) {
    const std::uint8_t* const begin = request + offsetof(records::DriverConfigRequest, block);
    const std::uint8_t* end = begin + records::kMaxPayloadSize;
    while (end != begin && end[-1] == 0) --end;
    data.state.configBlock.emplace(begin, end);
    return {};
  }

 private:
  static std::uint32_t Value(Request request) { return ReadRequest<records::ValueRequest>(request).value.value(); }
};

constexpr CommandRow kCommands[] = {
    {Command::kAddMonitorObject, "add monitor object", &CommandEffects::AddMonitorObject},
    {Command::kCommitMonitorObjects, "commit monitor objects", &CommandEffects::CommitMonitorObjects},
    {Command::kGrpmSwitch, "grpm switch", &CommandEffects::ClientSwitch<&EmulatorState::grpmSwitch>},
    {Command::kGrspSwitch, "grsp switch", &CommandEffects::ClientSwitch<&EmulatorState::grspSwitch>},
    {Command::kGrdtoValue, "grdto value", &CommandEffects::GrdtoValue},
    {Command::kGrharaSwitch, "grhara switch", &CommandEffects::GrharaSwitch},
    {Command::kDumpDebugInfo, "dump debug info", &CommandEffects::DumpDebugInfo},
    {Command::kSpspState, "spsp state", &CommandEffects::SpspState},
    {Command::kDriverVersion, "driver version", &CommandEffects::DriverVersion},
    {Command::kNetControlMode, "net control mode", &CommandEffects::NetControlMode},
    {Command::kSystemProcess, "system process", &CommandEffects::SystemProcess},
    {Command::kNetItemListBegin, "net item list begin", &CommandEffects::NetItemListBegin},
    {Command::kNetItem, "net item", &CommandEffects::NetItem},
    {Command::kNetItemListEnd, "net item list end", &CommandEffects::NetItemListEnd},
    {Command::kDriverConfig, "driver config", &CommandEffects::DriverConfig},
};

}  // namespace

const CommandRow* FindCommand(std::uint32_t command) {
  const auto* row = std::find_if(std::begin(kCommands), std::end(kCommands), [command](const CommandRow& candidate) {
    return static_cast<std::uint32_t>(candidate.command) == command;
  });
  return row == std::end(kCommands) ? nullptr : row;
}

}  // namespace fenlux::refhost
