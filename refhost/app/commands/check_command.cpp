// The `check` command: validates a file without running anything.
#include <iostream>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/host_config.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

int CheckConfiguration(const boost::filesystem::path& file) {
  ConfigErrors errors;
  CheckFile(file, errors);
  if (errors.Empty()) {
    std::cout << PrintableLines(file.string()) << ": no errors\n";
    return kExitSuccess;
  }
  std::cerr << PrintableLines(errors.Text());
  return kExitUsage;
}

}  // namespace fenlux::refhost
