// The table of the module's operations. The module's exceptions reach the operator unchanged.
#include "refhost/app/control/control_operations.h"

#include <iterator>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/fenlux.h"
#include "kdi/kdi_base.h"

namespace fenlux::refhost {
namespace {

using Host = ModuleOwner;
using Arguments = ControlArguments;

CFenlux& ModuleOf(const Host& host) {
  // The module lives as long as the process.
  const std::shared_ptr<CFenlux> module = host.Module();
  if (module == nullptr) throw ControlRefusal("the module has not started yet");
  return *module;
}

std::shared_ptr<CKDIBase> DriverOf(const Host& host) {
  std::shared_ptr<CKDIBase> driver = ModuleOf(host).GetDriverInteract();
  if (driver == nullptr) throw ControlRefusal("no driver connection is ready; the module retries every 5 seconds");
  return driver;
}

template <typename Value>
Report Single(const char* name, Value value) {
  Report report = Report::object();
  report[name] = std::move(value);
  return report;
}

constexpr ControlArgument kNotImplemented{"not-implemented", ArgumentKind::kFlag,
                                          "claim that the feature is not implemented; the module then refuses"};
constexpr ControlArgument kMode{"mode", ArgumentKind::kInteger, "1 or 3"};
// The limits of integers that are not unsigned 32-bit integers.
constexpr std::int64_t kMinInt32 = std::numeric_limits<std::int32_t>::min();
constexpr std::uint64_t kMaxInt32 = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t kMaxUint64 = std::numeric_limits<std::uint64_t>::max();
constexpr ControlArgument kObjectType{"type", ArgumentKind::kInteger, "object type: 1, 2 or 3", kMinInt32, kMaxInt32};
constexpr ControlArgument kItems{"items", ArgumentKind::kItemFile,
                                 "file of [[items]] tables, each with opaque (96 hexadecimal digits) and value"};

// In the order in which help shows them.
const ControlOperation kModuleOperations[] = {
    {"stop",
     "End the current connection; the module reconnects after 5 seconds",
     {{"clear", ArgumentKind::kFlag, "first clear the policy's monitor objects in the driver"}},
     [](Host& host, const Arguments& arguments) {
       ModuleOf(host).StopWork(HasFlag(arguments, "clear"));
       return Report::object();
     }},
    {"policy-changed",
     "Make the module apply the policy again",
     {},
     [](Host& host, const Arguments&) {
       ModuleOf(host).NotifyPolicyChanged();
       return Report::object();
     }},
    {"port-value",
     "Show the port value of the ready connection",
     {},
     [](Host& host, const Arguments&) { return Single("port_value", ModuleOf(host).GetDriverPortValue()); }},
    {"version",
     "Ask the driver for its version",
     {},
     [](Host& host, const Arguments&) { return Single("driver_version", DriverOf(host)->GetDriverVersion()); }},
    {"features",
     "Show the state and features of the driver interface",
     {},
     [](Host& host, const Arguments&) {
       const std::shared_ptr<CKDIBase> driver = DriverOf(host);
       Report report = Report::object();
       report["ready"] = driver->IsDriverReady();
       report["stop_requested"] = driver->IsStopRequested();
       report["optional_feature"] = driver->QueryOptionalFeature();
       report["supported_feature"] = driver->QuerySupportedFeature();
       report["implementation_code"] = driver->GetImplementationCode();
       return report;
     }},
    {"debug-dump",
     "Make the driver write its state to its debug output",
     {},
     [](Host& host, const Arguments&) { return Single("advice", DriverOf(host)->DumpDriverDebugInfo()); }},
    {"send-config",
     "Send the configuration block to the driver",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->SendDriverConfig();
       return Report::object();
     }},
    {"grsp",
     "Set the driver's grsp switch: mode 1 sends 0, mode 3 sends 1",
     {kMode, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const std::uint32_t mode = Uint32Argument(arguments, "mode");
       return Single("returned", DriverOf(host)->SetGrspSwitch(!HasFlag(arguments, "not-implemented"), mode));
     }},
    {"grpm",
     "Set the driver's grpm switch: mode 1 sends 1, mode 3 sends 0",
     {kMode, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const std::uint32_t mode = Uint32Argument(arguments, "mode");
       return Single("returned", DriverOf(host)->SetGrpmSwitch(!HasFlag(arguments, "not-implemented"), mode));
     }},
    {"grdto",
     "Send the driver's grdto value",
     {{"value", ArgumentKind::kInteger, "0 to 4294967295"}, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const std::uint32_t value = Uint32Argument(arguments, "value");
       return Single("returned", DriverOf(host)->SetGrdtoValue(!HasFlag(arguments, "not-implemented"), value));
     }},
    {"grhara",
     "Set the driver's grhara switch",
     {{"state", ArgumentKind::kOnOff, "on or off"}, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const bool on = OnOffArgument(arguments, "state");
       return Single("returned", DriverOf(host)->SetGrharaSwitch(!HasFlag(arguments, "not-implemented"), on));
     }},
    {"spsp",
     "Send the four switches of [spsp]; failures appear only in the log",
     {{"skip-middle", ArgumentKind::kFlag, "send the middle two as 0"}},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->SetSpspState(HasFlag(arguments, "skip-middle") ? 1 : 0);
       return Report::object();
     }},
    {"register-process",
     "Send the driver the id of a system process; failures appear only in the log",
     {{"kind", ArgumentKind::kInteger, "2 for csrss.exe, 3 for services.exe"},
      {"process", ArgumentKind::kInteger, "process id; 18446744073709551615 (no process) is ignored", 0, kMaxUint64}},
     [](Host& host, const Arguments& arguments) {
       const std::uint32_t kind = Uint32Argument(arguments, "kind");
       DriverOf(host)->RegisterSystemProcess(kind, Uint64Argument(arguments, "process"));
       return Report::object();
     }},
    {"monitor add",
     "Queue a path for monitoring",
     {kObjectType,
      {"path", ArgumentKind::kPath, "directory"},
      {"kernel-side", ArgumentKind::kFlag, "request monitoring in the kernel; the module refuses"}},
     [](Host& host, const Arguments& arguments) {
       const std::string path(TextArgument(arguments, "path"));
       const int type = Int32Argument(arguments, "type");
       return Single("queued", DriverOf(host)->AddMonitorObject(HasFlag(arguments, "kernel-side"), path.c_str(), type));
     }},
    {"monitor send",
     "Send the queued paths of a type to the driver and commit them; the log shows the result of each",
     {kObjectType},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->SendMonitorObjects(Int32Argument(arguments, "type"));
       return Report::object();
     }},
    {"monitor clear",
     "Clear the driver's monitor objects of a type",
     {kObjectType},
     [](Host& host, const Arguments& arguments) {
       return Single("cleared", DriverOf(host)->ClearMonitorObjects(Int32Argument(arguments, "type")));
     }},
    {"net-control mode1",
     "Enter mode 1 and empty all item lists",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->EnterNetControlMode1();
       return Report::object();
     }},
    {"net-control mode3",
     "Enter mode 3 and empty all item lists",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->EnterNetControlMode3();
       return Report::object();
     }},
    {"net-control apply",
     "Load item list 3, then enter mode 2; the log counts items that could not be sent",
     {kItems, {"alternate", ArgumentKind::kFlag, "enter mode 4 instead"}},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->ApplyNetControlItems(HasFlag(arguments, "alternate"), ItemsArgument(arguments, "items"));
       return Report::object();
     }},
    {"net-control add",
     "Load item list 1 or 2; the log counts items that could not be sent",
     {{"type", ArgumentKind::kInteger, "list: 1 or 2", kMinInt32, kMaxInt32}, kItems},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->AddNetControlItems(Int32Argument(arguments, "type"), ItemsArgument(arguments, "items"));
       return Report::object();
     }},
    {"interface stop",
     "End the connection through the driver interface",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->StopInteract();
       return Report::object();
     }},
    {"interface kernel-data",
     "Pass kernel data to the driver interface, which ignores it",
     {{"data", ArgumentKind::kInteger, "a number", 0, kMaxUint64}},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->OnKernelData(Uint64Argument(arguments, "data"));
       return Report::object();
     }},
    {"interface ltrkd",
     "Trigger an event that this kind of driver never sends; the module refuses",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->TriggerLtrkd();
       return Report::object();
     }},
};

constexpr std::pair<std::string_view, std::string_view> kGroups[] = {
    {"record", "Recording of the driver's port"},
    {"monitor", "Monitored objects"},
    {"net-control", "Network-control modes and item lists"},
    {"interface", "Rarely needed operations of the driver interface"},
};

}  // namespace

std::span<const ControlOperation> ControlOperations() {
  static const std::vector<ControlOperation> kOperations = [] {
    const std::span<const ControlOperation> host = HostOperations();
    std::vector<ControlOperation> operations(host.begin(), host.end());
    operations.insert(operations.end(), std::begin(kModuleOperations), std::end(kModuleOperations));
    return operations;
  }();
  return kOperations;
}

const ControlOperation* FindControlOperation(std::string_view name) {
  for (const ControlOperation& operation : ControlOperations()) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
}

std::string_view ControlGroupHelp(std::string_view group) {
  for (const auto& [name, help] : kGroups) {
    if (name == group) return help;
  }
  return {};
}

}  // namespace fenlux::refhost
