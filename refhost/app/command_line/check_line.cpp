// `fenlux-host check` on the command line.
#include <CLI/CLI.hpp>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {

void AddCheck(CLI::App& app, int& code) {
  struct Values {
    std::string file;
    CheckOptions options;
  };
  auto values = std::make_shared<Values>();
  CLI::App* const check = app.add_subcommand("check", "Validate a configuration or a scenario");
  check->add_option("file", values->file, "Configuration or scenario")->required()->type_name("FILE");
  check->add_flag("--json", values->options.json, "Show the errors as JSON, one object per line");
  check->add_flag("--insecure-permissions", values->options.insecurePermissions,
                  "As root, accept files that other users may change");
  check->footer(
      "Errors are reported as file:line:column: key: reason, warnings as file:line:column: key: warning: reason.\nA "
      "configuration without errors is also tried without changing anything: the module, the files, the control socket "
      "and the directories that a run would use.\nExit codes: 0 no errors; 1 the result could not be written; 2 "
      "errors.");
  check->callback([values, &code] {
    values->options.file = values->file;
    code = CheckConfiguration(values->options);
  });
}

}  // namespace fenlux::refhost
