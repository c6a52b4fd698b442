// The table of operations; each row's body is a few lines over the module's own operations, whose exceptions go to the
// operator as they are.
#include "refhost/app/control/control_operations.h"

#include <charconv>
#include <limits>
#include <memory>
#include <utility>

#include "core/fenlux.h"
#include "kdi/kdi_base.h"
#include "refhost/app/control/net_item_file.h"
#include "refhost/app/reference_host.h"

namespace fenlux::refhost {
namespace {

using Arguments = ControlArguments;

std::string_view TextOf(const Arguments& arguments, std::string_view name) {
  const auto found = arguments.find(name);
  if (found == arguments.end()) throw ControlRefusal(std::string(name) + " is missing");
  return found->second;
}

// A whole number that fits; which of those that fit are right is the module's to say.
template <typename Number>
Number NumberOf(const Arguments& arguments, std::string_view name) {
  const std::string_view text = TextOf(arguments, name);
  Number number{};
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    throw ControlRefusal(std::string(name) + " must be a whole number from " +
                         std::to_string(std::numeric_limits<Number>::min()) + " to " +
                         std::to_string(std::numeric_limits<Number>::max()) + ", not \"" + std::string(text) + "\"");
  }
  return number;
}

bool FlagOf(const Arguments& arguments, std::string_view name) { return arguments.contains(name); }

bool OnOff(const Arguments& arguments, std::string_view name) {
  const std::string_view text = TextOf(arguments, name);
  if (text != "on" && text != "off") throw ControlRefusal(std::string(name) + " must be on or off");
  return text == "on";
}

std::shared_ptr<NetControlItems> ItemsOf(const Arguments& arguments) {
  try {
    return std::make_shared<NetControlItems>(DecodeNetItems(TextOf(arguments, "items")));
  } catch (const std::invalid_argument& error) {
    throw ControlRefusal(error.what());
  }
}

CFenlux& ModuleOf(const ReferenceHost& host) {
  // Registered for good: the module lives as long as the process.
  const std::shared_ptr<CFenlux> module = host.Module();
  if (module == nullptr) throw ControlRefusal("the module has not started yet");
  return *module;
}

std::shared_ptr<CKDIBase> DriverOf(const ReferenceHost& host) {
  std::shared_ptr<CKDIBase> driver = ModuleOf(host).GetDriverInteract();
  if (driver == nullptr) {
    throw ControlRefusal("no connection with the driver is ready; the module tries again every 5 seconds");
  }
  return driver;
}

template <typename Value>
Report Single(const char* name, Value value) {
  Report report;
  report.Add(name, std::move(value));
  return report;
}

constexpr ControlArgument kNotImplemented{"not-implemented", ArgumentKind::kFlag,
                                          "say that the feature is not implemented; the module refuses it"};
constexpr ControlArgument kMode{"mode", ArgumentKind::kInteger, "1 or 3"};
constexpr ControlArgument kObjectType{"type", ArgumentKind::kInteger, "object type: 1, 2 or 3"};
constexpr ControlArgument kItems{"items", ArgumentKind::kItemFile,
                                 "file of [[items]] tables, each with opaque (96 hexadecimal digits) and value"};

using Host = ReferenceHost;

const ControlOperation kOperations[] = {
    {"status",
     "Show how the host and its connection are",
     {},
     [](Host& host, const Arguments&) { return host.StatusReport(); }},
    {"summary",
     "Show what was counted so far, as at the end of a run",
     {},
     [](Host& host, const Arguments&) { return SummaryReport(host.Facts()); }},
    {"driver",
     "Show what the emulated driver believes",
     {},
     [](Host& host, const Arguments&) { return DriverReport(host.DriverState()); }},
    {"reload",
     "Read the configuration file again, as SIGHUP does",
     {},
     [](Host& host, const Arguments&) {
       const std::string errors = host.Reload();
       if (!errors.empty()) throw ControlRefusal("the old configuration stays in force:\n" + errors);
       return Report();
     }},
    {"stop",
     "End the present connection; the module makes a new one 5 seconds later",
     {{"clear", ArgumentKind::kFlag, "have the driver forget the policy's monitor objects first"}},
     [](Host& host, const Arguments& arguments) {
       ModuleOf(host).StopWork(FlagOf(arguments, "clear"));
       return Report();
     }},
    {"policy-changed",
     "Have the module apply the policy again",
     {},
     [](Host& host, const Arguments&) {
       ModuleOf(host).NotifyPolicyChanged();
       return Report();
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
     "Show what the driver interface says of itself",
     {},
     [](Host& host, const Arguments&) {
       const std::shared_ptr<CKDIBase> driver = DriverOf(host);
       Report report;
       report.Add("ready", driver->IsDriverReady());
       report.Add("stop_requested", driver->IsStopRequested());
       report.Add("optional_feature", driver->QueryOptionalFeature());
       report.Add("supported_feature", driver->QuerySupportedFeature());
       report.Add("implementation_code", driver->GetImplementationCode());
       return report;
     }},
    {"debug-dump",
     "Have the driver write its state to its debug output",
     {},
     [](Host& host, const Arguments&) { return Single("advice", DriverOf(host)->DumpDriverDebugInfo()); }},
    {"send-config",
     "Send the configuration block to the driver",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->SendDriverConfig();
       return Report();
     }},
    {"grsp",
     "Set the driver's grsp switch: mode 1 sends 0, mode 3 sends 1",
     {kMode, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const auto mode = NumberOf<std::uint32_t>(arguments, "mode");
       return Single("returned", DriverOf(host)->SetGrspSwitch(!FlagOf(arguments, "not-implemented"), mode));
     }},
    {"grpm",
     "Set the driver's grpm switch: mode 1 sends 1, mode 3 sends 0",
     {kMode, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const auto mode = NumberOf<std::uint32_t>(arguments, "mode");
       return Single("returned", DriverOf(host)->SetGrpmSwitch(!FlagOf(arguments, "not-implemented"), mode));
     }},
    {"grdto",
     "Send the driver's grdto value",
     {{"value", ArgumentKind::kInteger, "the value, from 0 to 4294967295"}, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const auto value = NumberOf<std::uint32_t>(arguments, "value");
       return Single("returned", DriverOf(host)->SetGrdtoValue(!FlagOf(arguments, "not-implemented"), value));
     }},
    {"grhara",
     "Set the driver's grhara switch",
     {{"state", ArgumentKind::kOnOff, "on or off"}, kNotImplemented},
     [](Host& host, const Arguments& arguments) {
       const bool on = OnOff(arguments, "state");
       return Single("returned", DriverOf(host)->SetGrharaSwitch(!FlagOf(arguments, "not-implemented"), on));
     }},
    {"spsp",
     "Send the four switches of [spsp]; a failure is in the log",
     {{"skip-middle", ArgumentKind::kFlag, "send the middle two as 0"}},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->SetSpspState(FlagOf(arguments, "skip-middle") ? 1 : 0);
       return Report();
     }},
    {"register-process",
     "Tell the driver the id of a system process; a failure is in the log",
     {{"kind", ArgumentKind::kInteger, "2 is csrss.exe, 3 is services.exe"},
      {"process", ArgumentKind::kInteger, "the process id; 18446744073709551615 is passed over"}},
     [](Host& host, const Arguments& arguments) {
       const auto kind = NumberOf<std::uint32_t>(arguments, "kind");
       DriverOf(host)->RegisterSystemProcess(kind, NumberOf<std::uint64_t>(arguments, "process"));
       return Report();
     }},
    {"monitor add",
     "Queue a path for monitoring",
     {kObjectType,
      {"path", ArgumentKind::kPath, "the directory"},
      {"kernel-side", ArgumentKind::kFlag, "ask for monitoring on the kernel's side; the module refuses it"}},
     [](Host& host, const Arguments& arguments) {
       const std::string path(TextOf(arguments, "path"));
       const int type = NumberOf<int>(arguments, "type");
       return Single("queued", DriverOf(host)->AddMonitorObject(FlagOf(arguments, "kernel-side"), path.c_str(), type));
     }},
    {"monitor send",
     "Send the queued paths of a type to the driver and commit them; the outcome of each is in the log",
     {kObjectType},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->SendMonitorObjects(NumberOf<int>(arguments, "type"));
       return Report();
     }},
    {"monitor clear",
     "Have the driver forget its monitor objects of a type",
     {kObjectType},
     [](Host& host, const Arguments& arguments) {
       return Single("cleared", DriverOf(host)->ClearMonitorObjects(NumberOf<int>(arguments, "type")));
     }},
    {"net-control mode1",
     "Enter mode 1 and empty all item lists",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->EnterNetControlMode1();
       return Report();
     }},
    {"net-control mode3",
     "Enter mode 3 and empty all item lists",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->EnterNetControlMode3();
       return Report();
     }},
    {"net-control apply",
     "Load item list 3, then enter mode 2; items that could not be sent are counted in the log",
     {kItems, {"alternate", ArgumentKind::kFlag, "enter mode 4 instead"}},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->ApplyNetControlItems(FlagOf(arguments, "alternate"), ItemsOf(arguments));
       return Report();
     }},
    {"net-control add",
     "Load item list 1 or 2; items that could not be sent are counted in the log",
     {{"type", ArgumentKind::kInteger, "the list: 1 or 2"}, kItems},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->AddNetControlItems(NumberOf<int>(arguments, "type"), ItemsOf(arguments));
       return Report();
     }},
    {"interface stop",
     "End the connection from the driver interface's side",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->StopInteract();
       return Report();
     }},
    {"interface kernel-data",
     "Hand kernel data to the driver interface, which does nothing with it",
     {{"data", ArgumentKind::kInteger, "a number"}},
     [](Host& host, const Arguments& arguments) {
       DriverOf(host)->OnKernelData(NumberOf<std::uint64_t>(arguments, "data"));
       return Report();
     }},
    {"interface ltrkd",
     "Trigger what never happens on this kind of driver; the module refuses it",
     {},
     [](Host& host, const Arguments&) {
       DriverOf(host)->TriggerLtrkd();
       return Report();
     }},
};

constexpr std::pair<std::string_view, std::string_view> kGroups[] = {
    {"monitor", "Monitored objects"},
    {"net-control", "Network-control modes and item lists"},
    {"interface", "Operations of the driver interface that are seldom of use"},
};

}  // namespace

std::span<const ControlOperation> ControlOperations() { return kOperations; }

std::string_view ControlGroupHelp(std::string_view group) {
  for (const auto& [name, help] : kGroups) {
    if (name == group) return help;
  }
  return {};
}

const ControlOperation* FindControlOperation(std::string_view name) {
  for (const ControlOperation& operation : kOperations) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
}

}  // namespace fenlux::refhost
