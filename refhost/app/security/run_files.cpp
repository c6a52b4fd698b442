// The configuration decides what the host does, and so do the files that it names.
#include "refhost/app/security/run_files.h"

#include "refhost/app/host_config.h"
#include "refhost/app/platform/module_loader.h"
#include "refhost/app/security/file_trust.h"

namespace fenlux::refhost {

std::string UntrustedFile(const boost::filesystem::path& file, const boost::filesystem::path& module,
                          const HostConfig& config) {
  const boost::filesystem::path& named = module.empty() ? config.start.moduleLibrary : module;
  for (const auto& used : {file, config.emulator.scenarioFile, config.reloadable.module.configBlockFile,
                           named.empty() ? DefaultModuleLibrary() : named, config.start.log.file}) {
    std::string reason = used.empty() ? std::string() : WhyUntrusted(used);
    if (!reason.empty()) return reason;
  }
  return {};
}

}  // namespace fenlux::refhost
