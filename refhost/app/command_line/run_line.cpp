// `fenlux-host run` on the command line.
#include <CLI/CLI.hpp>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/command_line/value_checks.h"
#include "refhost/app/commands/commands.h"
#include "refhost/app/platform/signals.h"
#include "refhost/base/platform/environment.h"

namespace fenlux::refhost {
namespace {

constexpr char kColorWords[] = "auto|always|never";

LogColors ColorsOf(const std::string& word) {
  if (word == "always") return LogColors::kAlways;
  const bool unwanted = word == "never" || !EnvironmentText("NO_COLOR").value_or("").empty();
  return unwanted ? LogColors::kNever : LogColors::kIfTerminal;
}

}  // namespace

void AddRun(CLI::App& app, int& code) {
  struct Values {
    std::string config, module, socket, record, duration, color;
    RunOptions options;
  };
  auto values = std::make_shared<Values>();
  RunOptions& options = values->options;
  CLI::App* const run = app.add_subcommand("run", "Run a host with the module and its driver");
  run->add_option("--config", values->config, "The host's configuration")->required()->type_name("FILE");
  run->add_option("--module", values->module, "The module's library; overrides the configuration")->type_name("FILE");
  run->add_option("--socket", values->socket, "Control socket to listen on; overrides the configuration")
      ->type_name("PATH");
  run->add_option("--record", values->record, "Record the driver's port to this file; overrides the configuration")
      ->type_name("FILE");
  run->add_option("--duration", values->duration, "Stop after this time: seconds, or such as 300ms, 30s, 5m, 2h")
      ->type_name("TIME")
      ->check(Duration());
  run->add_flag("--json", options.json, "Write the log, the summary and errors as JSON, one object per line");
  run->add_option("--color", values->color,
                  "Color the log on the console; auto colors it on a terminal, and not if the variable NO_COLOR is set")
      ->type_name(kColorWords)
      ->check(OneOf(kColorWords));
  run->add_flag("--insecure-permissions", options.insecurePermissions,
                "As root, use a configuration, module or log that other users may change");
  run->footer(SignalHelp() +
              "The log goes to standard error, the summary to standard output.\n"
              "Exit codes: 0 success; 1 the summary could not be written; 2 bad usage or configuration; 3 the module "
              "could not be loaded, or its init or start failed; 4 the driver counted a protocol violation, the "
              "totals do not add up, or the driver never connected during --duration.");
  run->callback([values, &code] {
    RunOptions& chosen = values->options;
    chosen.config = values->config;
    chosen.module = values->module;
    chosen.socket = values->socket;
    chosen.record = values->record;
    if (!values->duration.empty()) chosen.duration = DurationOf(values->duration);
    chosen.colors = ColorsOf(values->color);
    code = RunHost(chosen);
  });
}

}  // namespace fenlux::refhost
