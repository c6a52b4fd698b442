// The `check` command: validates a file, and tries the first steps of `run`.
#include <fmt/format.h>

#include <iostream>

#include "refhost/app/checks/run_trial.h"
#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/app/problem_output.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

int CheckConfiguration(const CheckOptions& options) {
  const boost::filesystem::path& file = options.file;
  const bool json = options.json;
  ConfigErrors errors;
  CheckFile(file, errors, [&options](const ConfigTable& root, const HostConfig& config) {
    TryRun(root, config, options.insecurePermissions);
  });
  if (json) {
    std::cout << ProblemLines(errors, true) << std::flush;
  } else {
    std::cerr << ProblemLines(errors, false);
    const std::size_t warnings = errors.WarningCount();
    const std::string also = warnings == 0 ? "" : fmt::format(", {} warning{}", warnings, warnings == 1 ? "" : "s");
    if (errors.Empty()) std::cout << PrintableLines(file.string()) << ": no errors" << also << '\n' << std::flush;
  }
  const bool written = static_cast<bool>(std::cout);
  if (!written) std::cerr << ProblemLines("fenlux-host: " + OutputFailure(), json);
  if (!errors.Empty()) return kExitUsage;
  return written ? kExitSuccess : kExitOutput;
}

}  // namespace fenlux::refhost
