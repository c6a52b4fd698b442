// One key for each value that the module can get from its host.
#include "refhost/app/recording/host_facts.h"

#include <boost/filesystem/operations.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "refhost/base/text/hex.h"

namespace fenlux::refhost {
namespace {

namespace fs = boost::filesystem;

const char* TypeOf(const fs::path& path) {
  boost::system::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) return "missing";
  return fs::is_directory(status) ? "directory" : "other";
}

// Null if there is no policy.
Report PolicyFacts(const LiveSettings& live) {
  if (!live.monitoredObjects) return nullptr;
  Report policy = Report::array();
  for (const fs::path& path : *live.monitoredObjects) {
    Report object = Report::object();
    object["path"] = path.string();
    object["type"] = TypeOf(path);
    policy.push_back(std::move(object));
  }
  return policy;
}

Report SystemProcessFacts(WorkService& work) {
  Report processes = Report::array();
  for (const char* image : {"system32\\csrss.exe", "system32\\services.exe"}) {
    fs::path path;
    std::shared_ptr<ProcessIdList> ids;
    work.FindProcessesByImage(ids, work.SystemPath(path, image), 0);
    Report process = Report::object();
    process["image"] = image;
    process["path"] = path.string();
    process["processes"] = ids == nullptr ? ProcessIdList() : *ids;
    processes.push_back(std::move(process));
  }
  return processes;
}

}  // namespace

std::string PathPlatform() { return fs::path::preferred_separator == fs::path::value_type('\\') ? "windows" : "posix"; }

std::string HostFacts(const FixedSettings& fixed, const LiveSettings& live, WorkService& work) {
  Report facts = Report::object();
  facts["platform"] = PathPlatform();
  facts["enabled"] = fixed.enabled;
  facts["port_value"] = fixed.portValue;
  facts["record_value1"] = fixed.recordValue1;
  facts["record_value2"] = fixed.recordValue2;
  facts["driver_interface_flag"] = fixed.driverInterfaceFlag;
  facts["client_type"] = fixed.clientTypeFlag ? 2 : 1;
  facts["monitor_object_type"] = fixed.monitorObjectFlag ? 1 : 2;
  facts["version_flag"] = fixed.versionFlag;
  facts["cache_bypassed"] = live.cacheBypassed.value_or(false);
  facts["identity_text"] = live.identityTextAdded;
  facts["measure"] = live.measuring;
  facts["refresh_interval_ms"] = live.refreshMilliseconds;
  facts["config_block"] = HexText(live.configBlock);
  facts["spsp"] = live.spspFlags;
  facts["policy"] = PolicyFacts(live);
  facts["system_processes"] = SystemProcessFacts(work);
  return JsonText(facts);
}

std::string HostCall(const std::string& operation, const Report& arguments) {
  Report call = Report::object();
  call["operation"] = operation;
  call["arguments"] = arguments;
  return JsonText(call);
}

}  // namespace fenlux::refhost
