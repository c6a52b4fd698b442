// The `check` command: validates a file without running anything.
#include <fmt/format.h>

#include <iostream>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/app/problem_output.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

int CheckConfiguration(const boost::filesystem::path& file, bool json) {
  ConfigErrors errors;
  CheckFile(file, errors);
  if (json) {
    std::cout << ProblemLines(errors, true) << std::flush;
  } else {
    std::cerr << ProblemLines(errors, false);
    const std::size_t warnings = errors.WarningCount();
    const std::string also = warnings == 0 ? "" : fmt::format(", {} warning{}", warnings, warnings == 1 ? "" : "s");
    if (errors.Empty()) std::cout << PrintableLines(file.string()) << ": no errors" << also << '\n' << std::flush;
  }
  if (!errors.Empty()) return kExitUsage;
  return std::cout ? kExitSuccess : kExitOutput;
}

}  // namespace fenlux::refhost
