// `fenlux-host explain` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {

void AddExplain(CLI::App& app, int& code) {
  struct Values {
    std::string config;
    ExplainOptions options;
  };
  auto values = std::make_shared<Values>();
  ExplainQuestion& question = values->options.question;
  CLI::App* const explain = app.add_subcommand("explain", "Show which rule would decide about an event, and why");
  explain->add_option("--config", values->config, "Configuration; only [judging] is read")
      ->required()
      ->type_name("FILE");
  explain->add_option("--path", question.path, "Path of the event")->required()->type_name("PATH");
  explain->add_option("--process", question.process, "Path of the program that performs the operation")
      ->type_name("PATH");
  explain->add_option("--pid", question.processId, "Process that runs the program")->type_name("N");
  explain->add_option("--code", question.code, "Notification code; 4097, a file that is opened, unless given")
      ->type_name("N");
  explain->add_option("--event", question.event, "Name of an event, as in rules")->type_name("NAME");
  explain->add_flag("--json", values->options.json, "Show the result as JSON");
  explain->footer(
      "Needs no running host; `fenlux-host ctl explain` asks one. Decisions 3 and 4 count as refusing.\n"
      "Exit codes: 0 success; 1 the result could not be written; 2 bad usage, or errors in [judging].");
  explain->callback([values, &code] {
    values->options.config = values->config;
    code = ExplainDecision(values->options);
  });
}

}  // namespace fenlux::refhost
