// `fenlux-host check` on the command line.
#include <CLI/CLI.hpp>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {

void AddCheck(CLI::App& app, int& code) {
  struct Values {
    std::string file;
    bool json = false;
  };
  auto values = std::make_shared<Values>();
  CLI::App* const check = app.add_subcommand("check", "Validate a configuration or a scenario");
  check->add_option("file", values->file, "Configuration or scenario")->required()->type_name("FILE");
  check->add_flag("--json", values->json, "Show the errors as JSON, one object per line");
  check->footer("Errors are reported as file:line:column: key: reason.\nExit codes: 0 no errors; 2 errors.");
  check->callback([values, &code] { code = CheckConfiguration(values->file, values->json); });
}

}  // namespace fenlux::refhost
