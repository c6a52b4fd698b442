// `fenlux-host drive` on the command line.
#include <CLI/CLI.hpp>
#include <memory>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/command_line/value_checks.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {

void AddDrive(CLI::App& app, int& code) {
  struct Values {
    std::string config, module, record, timeout, limit, duration;
    bool noReconnect = false;
    DriveOptions options;
  };
  auto values = std::make_shared<Values>();
  DriveOptions& options = values->options;
  CLI::App* const drive =
      app.add_subcommand("drive", "Test a driver: let the module talk to it, and show its mistakes");
  const auto time = [&](const char* name, std::string& value, const char* help) {
    drive->add_option(name, value, help)->type_name("TIME")->check(Duration());
  };
  drive->add_option("--config", values->config, "A host's configuration; [driver] names the driver")
      ->required()
      ->type_name("FILE");
  drive->add_option("--module", values->module, "The module's library; overrides the configuration")->type_name("FILE");
  drive->add_option("--record", values->record, "Keep the recording of the port in this file")->type_name("FILE");
  time("--duration", values->duration, "How long the driver may send notifications, after the commands; default: 5s");
  time("--limit", values->limit, "The longest that the driver may take for a request; default: 2s");
  time("--timeout", values->timeout, "How long to wait for a connection, or for a stuck driver; default: 15s");
  drive->add_flag("--no-reconnect", values->noReconnect,
                  "Do not make the module close the connection and connect again");
  drive->add_flag("--json", options.json, "Write results and findings as JSON, one object per line");
  drive->add_flag("--insecure-permissions", options.insecurePermissions,
                  "As root, use a configuration, module or log that other users may change");
  drive->footer(
      "The module sends every command, so run it where the driver's state does not matter. While it runs, do "
      "what the driver reports, so that it sends notifications. At the end the module closes the connection and "
      "reconnects, which takes five seconds. Ctrl+C ends the test early.\n"
      "The log goes to standard error, the results to standard output.\n"
      "Exit codes: 0 the driver is clean; 1 the results could not be written; 2 bad usage or configuration; 3 the "
      "module could not be loaded, or its init or start failed; 4 the driver did something wrong.");
  drive->callback([values, &code] {
    DriveOptions& chosen = values->options;
    chosen.config = values->config;
    chosen.module = values->module;
    chosen.record = values->record;
    chosen.reconnect = !values->noReconnect;
    if (!values->timeout.empty()) chosen.timeout = DurationOf(values->timeout);
    if (!values->limit.empty()) chosen.requestLimit = DurationOf(values->limit);
    if (!values->duration.empty()) chosen.notifications = DurationOf(values->duration);
    code = DriveDriver(chosen);
  });
}

}  // namespace fenlux::refhost
