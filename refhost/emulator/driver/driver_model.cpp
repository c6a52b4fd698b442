// The commands, one a row. A row's effect gets the whole request of kRequestSize bytes, and gives back what is wrong
// with it; where that is nothing, the effect has been carried out.
#include "refhost/emulator/driver/driver_model.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "kdi/driver_records.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

using records::Command;

constexpr std::uint64_t kNoProcess = ~std::uint64_t{0};
constexpr std::uint32_t kSystemProcessKinds[] = {2, 3};
constexpr std::uint32_t kFirstMode = 1;
constexpr std::uint32_t kLastMode = 4;

template <typename Record>
Record Read(const std::uint8_t* request) {
  static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) <= records::kRequestSize);
  Record record;
  std::memcpy(&record, request, sizeof(record));
  return record;
}

// A UTF-16 text field: up to its NUL, or its end.
std::string ReadText(const std::uint8_t* field, std::size_t bytes) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes; i += 2) {
    const auto unit = static_cast<char16_t>(field[i] | (field[i + 1] << 8));
    if (unit == 0) break;
    text.push_back(unit);
  }
  return NarrowFromUtf16(text);
}

std::string Number(std::uint64_t value) { return std::to_string(value); }

bool IsListType(std::uint32_t type) { return type >= 1 && type <= 3; }

}  // namespace

// The effects, each on the model's state.
struct CommandEffects {
  using Request = const std::uint8_t*;

  static std::string AddMonitorObject(DriverModel& model, Request request) {
    using Record = records::MonitorObjectRequest;
    records::U32 type;
    std::memcpy(&type, request + offsetof(Record, objectType), sizeof(type));
    const std::uint8_t flag = request[offsetof(Record, pathFlag)];
    if (!IsListType(type.value())) return "object type " + Number(type.value());
    if (flag > 1) return "path flag " + Number(flag);
    MonitoredObject object;
    object.path = ReadText(request + offsetof(Record, path), sizeof(Record::path));
    object.rootName = ReadText(request + offsetof(Record, rootName), sizeof(Record::rootName));
    object.pathFlag = flag != 0;
    if (object.path.empty()) return "an empty path";
    model.state.monitored[type.value() - 1].pending.push_back(std::move(object));
    return {};
  }

  static std::string CommitMonitorObjects(DriverModel& model, Request request) {
    const std::uint32_t type = Value(request);
    if (!IsListType(type)) return "object type " + Number(type);
    MonitoredSet& set = model.state.monitored[type - 1];
    set.committed = std::move(set.pending);
    set.pending.clear();
    ++set.commits;
    return {};
  }

  template <std::optional<bool> EmulatorState::*Switch>
  static std::string ClientSwitch(DriverModel& model, Request request) {
    const auto record = Read<records::ClientSwitchRequest>(request);
    if (record.clientType.value() != model.state.clientType) {
      return "client type " + Number(record.clientType.value()) + " on a connection of client type " +
             Number(model.state.clientType);
    }
    if (record.on > 1) return "switch " + Number(record.on);
    model.state.*Switch = record.on != 0;
    return {};
  }

  static std::string GrdtoValue(DriverModel& model, Request request) {
    model.state.grdtoValue = Value(request);
    return {};
  }

  static std::string GrharaSwitch(DriverModel& model, Request request) {
    const auto record = Read<records::SwitchRequest>(request);
    if (record.off > 1) return "switch " + Number(record.off);
    model.state.grharaOff = record.off != 0;
    return {};
  }

  static std::string DumpDebugInfo(DriverModel& model, Request) {
    ++model.state.dumps;
    return {};
  }

  static std::string SpspState(DriverModel& model, Request request) {
    const auto record = Read<records::SpspStateRequest>(request);
    model.state.spspSwitches = {record.switch1, record.switch2, record.switch3, record.switch4};
    return {};
  }

  static std::string DriverVersion(DriverModel& model, Request) {
    ++model.state.versionsAsked;
    return {};
  }

  static std::string NetControlMode(DriverModel& model, Request request) {
    const std::uint32_t mode = Value(request);
    if (mode < kFirstMode || mode > kLastMode) return "mode " + Number(mode);
    model.state.netControlMode = mode;
    return {};
  }

  static std::string SystemProcess(DriverModel& model, Request request) {
    const auto record = Read<records::SystemProcessRequest>(request);
    const std::uint32_t kind = record.kind.value();
    if (std::find(std::begin(kSystemProcessKinds), std::end(kSystemProcessKinds), kind) ==
        std::end(kSystemProcessKinds)) {
      return "kind " + Number(kind);
    }
    if (record.processId.value() == kNoProcess) return "the id that means no process";
    model.state.systemProcesses[kind] = record.processId.value();
    return {};
  }

  static std::string NetItemListBegin(DriverModel& model, Request request) {
    const std::uint32_t type = Value(request);
    if (!IsListType(type)) return "list type " + Number(type);
    for (std::size_t i = 0; i < model.loading.size(); ++i) {
      if (model.loading[i]) return "list " + Number(type) + " begun while list " + Number(i + 1) + " is not ended";
    }
    model.loading[type - 1].emplace();
    return {};
  }

  static std::string NetItem(DriverModel& model, Request request) {
    const auto record = Read<records::NetItemRequest>(request);
    const std::uint32_t type = record.listType.value();
    if (!IsListType(type)) return "list type " + Number(type);
    if (!model.loading[type - 1]) return "an item of list " + Number(type) + ", which has not begun";
    NetControlItem item{};
    std::copy(std::begin(record.opaque), std::end(record.opaque), item.opaque.begin());
    item.value = record.value.value();
    model.loading[type - 1]->push_back(item);
    return {};
  }

  static std::string NetItemListEnd(DriverModel& model, Request request) {
    const std::uint32_t type = Value(request);
    if (!IsListType(type)) return "list type " + Number(type);
    if (!model.loading[type - 1]) return "end of list " + Number(type) + ", which has not begun";
    model.state.netControlItems[type - 1] = std::move(*model.loading[type - 1]);
    model.loading[type - 1].reset();
    return {};
  }

  static std::string DriverConfig(DriverModel& model, Request request) {
    const std::uint8_t* const begin = request + offsetof(records::DriverConfigRequest, block);
    const std::uint8_t* end = begin + records::kMaxPayloadSize;
    while (end != begin && end[-1] == 0) --end;
    model.state.configBlock.emplace(begin, end);
    return {};
  }

 private:
  static std::uint32_t Value(Request request) { return Read<records::ValueRequest>(request).value.value(); }
};

namespace {

struct CommandRow {
  Command command;
  const char* name;
  std::string (*effect)(DriverModel& model, const std::uint8_t* request);
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

const CommandRow* FindRow(std::uint32_t command) {
  const auto* row = std::find_if(std::begin(kCommands), std::end(kCommands), [command](const CommandRow& candidate) {
    return static_cast<std::uint32_t>(candidate.command) == command;
  });
  return row == std::end(kCommands) ? nullptr : row;
}

}  // namespace

std::string CommandName(std::uint32_t command) {
  const CommandRow* row = FindRow(command);
  return row == nullptr ? std::string() : row->name;
}

void DriverModel::Open(std::uint32_t clientType, std::uint32_t portValue) {
  EmulatorState fresh;
  fresh.connected = true;
  fresh.connects = state.connects + 1;
  fresh.refusedConnects = state.refusedConnects;
  fresh.clientType = clientType;
  fresh.portValue = portValue;
  fresh.protocolViolations = state.protocolViolations;
  fresh.violationTexts = std::move(state.violationTexts);
  state = std::move(fresh);
  loading = {};
}

DriverModel::Effect DriverModel::Take(const std::uint8_t* request, std::size_t size) {
  Effect effect;
  if (request == nullptr || size != records::kRequestSize) {
    effect.violation = "a request of " + Number(request == nullptr ? 0 : size) + " bytes";
  } else {
    const auto header = Read<records::RequestHeader>(request);
    const CommandRow* row = FindRow(header.command.value());
    if (header.magic.value() != records::kRequestMagic) {
      effect.violation = "a request without the request's magic";
    } else if (row == nullptr) {
      effect.violation = "a request with the unknown command " + Number(header.command.value());
    } else {
      effect.command = header.command.value();
      ++state.requests[effect.command];
      const std::string wrong = row->effect(*this, request);
      if (!wrong.empty()) {
        effect.violation = "request " + Number(effect.command) + " (" + row->name + "): " + wrong;
      }
      effect.monitoredSetChanged = wrong.empty() && row->command == Command::kCommitMonitorObjects &&
                                   Read<records::ValueRequest>(request).value.value() != 3;
    }
  }
  if (!effect.violation.empty()) AddViolation(effect.violation);
  return effect;
}

void DriverModel::AddViolation(std::string text) {
  ++state.protocolViolations;
  if (state.violationTexts.size() < kMaxViolationTexts) state.violationTexts.push_back(std::move(text));
}

std::vector<std::string> DriverModel::MonitoredPaths() const {
  std::vector<std::string> paths;
  if (!state.connected) return paths;
  for (const std::size_t index : {std::size_t{0}, std::size_t{1}}) {
    for (const MonitoredObject& object : state.monitored[index].committed) paths.push_back(object.path);
  }
  return paths;
}

}  // namespace fenlux::refhost
