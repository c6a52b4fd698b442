// The command line of fenlux-host. The commands are in commands/.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/out_of_memory.h"
#include "refhost/app/platform/program_text.h"
#include "refhost/app/platform/signals.h"

namespace {

using namespace fenlux::refhost;

void AddRun(CLI::App& app, int& code) {
  struct Values {
    std::string config, module, socket, record;
    double duration = 0;
    bool json = false;
    bool insecurePermissions = false;
  };
  auto values = std::make_shared<Values>();
  CLI::App* const run = app.add_subcommand("run", "Run a host with the module and its driver");
  run->add_option("--config", values->config, "The host's configuration")->required();
  run->add_option("--module", values->module, "The module's library; overrides the configuration");
  run->add_option("--socket", values->socket, "Control socket to listen on; overrides the configuration");
  run->add_option("--record", values->record, "Record the driver's port to this file; overrides the configuration");
  CLI::Option* const duration =
      run->add_option("--duration", values->duration, "Stop after this many seconds")->check(CLI::PositiveNumber);
  run->add_flag("--json", values->json, "Write the log and the summary as JSON, one object per line");
  run->add_flag("--insecure-permissions", values->insecurePermissions,
                "As root, use a configuration, module or log that other users may change");
  run->footer(
      SignalHelp() +
      "The log goes to standard error, the summary to standard output.\n"
      "Exit codes: 0 success; 2 bad usage or configuration; 3 the module could not be loaded, or its init or start\n"
      "failed; 4 the driver counted a protocol violation, or the totals do not add up.");
  run->callback([values, duration, &code] {
    RunOptions options{.config = values->config,
                       .module = values->module,
                       .socket = values->socket,
                       .record = values->record,
                       .duration = {},
                       .json = values->json,
                       .insecurePermissions = values->insecurePermissions};
    if (duration->count() > 0) {
      options.duration = std::chrono::milliseconds(static_cast<std::int64_t>(values->duration * 1000));
    }
    code = RunHost(options);
  });
}

void AddCheck(CLI::App& app, int& code) {
  auto file = std::make_shared<std::string>();
  CLI::App* const check = app.add_subcommand("check", "Validate a configuration or a scenario");
  check->add_option("file", *file, "Configuration or scenario")->required();
  check->footer("Errors are reported as file:line:column: key: reason.\nExit codes: 0 no errors; 2 errors.");
  check->callback([file, &code] { code = CheckConfiguration(*file); });
}

void AddDecode(CLI::App& app, int& code) {
  struct Values {
    DecodeOptions options;
    std::string file;
  };
  auto values = std::make_shared<Values>();
  DecodeOptions& options = values->options;
  CLI::App* const decode = app.add_subcommand("decode", "Show the exchanges of a capture");
  decode->add_option("file", values->file, "Capture (pcapng)")->required();
  decode->add_flag("--json", options.json, "One JSON object per exchange");
  decode->add_flag("--follow", options.follow, "Read on as the file grows, until a signal ends that");
  decode->add_flag("--hex", options.hex, "Show the bytes of messages too");
  decode->add_option("--code", options.code, "Only notifications with this code");
  decode->add_option("--verdict", options.verdict, "Only notifications that got this verdict");
  decode->add_option("--path", options.path, "Only exchanges with a path that matches this pattern");
  decode->add_option("--slow", options.slowMicroseconds, "Only exchanges that took at least this many microseconds")
      ->check(CLI::NonNegativeNumber);
  decode->footer(
      "Damage is reported with its offset, and the rest is read as far as possible.\n"
      "Exit codes: 0 the capture was read; 2 bad usage, no capture, or a damaged one.");
  decode->callback([values, &code] {
    values->options.file = values->file;
    code = DecodeCapture(values->options);
  });
}

// The arguments of one operation as given on the command line.
struct OperationValues {
  std::map<std::string, std::string> texts;
  std::map<std::string, bool> flags;
};

void AddArgument(CLI::App& command, const ControlArgument& argument, OperationValues& values) {
  const std::string name(argument.name);
  const std::string help(argument.help);
  if (argument.kind == ArgumentKind::kFlag) {
    command.add_flag("--" + name, values.flags[name], help);
    return;
  }
  CLI::Option* const option = command.add_option(name, values.texts[name], help)->required();
  if (argument.kind == ArgumentKind::kOnOff) option->check(CLI::IsMember({"on", "off"}));
}

ControlOptions OptionsOf(const ControlOperation& operation, const OperationValues& values, ControlOptions options) {
  options.request.operation = operation.name;
  for (const ControlArgument& argument : operation.arguments) {
    const std::string name(argument.name);
    if (argument.kind == ArgumentKind::kFlag) {
      if (values.flags.at(name)) options.request.arguments[name] = "true";
    } else if (argument.kind == ArgumentKind::kItemFile) {
      options.items = values.texts.at(name);
    } else {
      const std::string& text = values.texts.at(name);
      options.request.arguments[name] =
          argument.kind == ArgumentKind::kPath ? boost::filesystem::absolute(text).string() : text;
    }
  }
  return options;
}

void AddControl(CLI::App& app, int& code) {
  struct Values {
    std::string socket, config;
    bool json = false;
  };
  auto values = std::make_shared<Values>();
  CLI::App* const control = app.add_subcommand("ctl", "Run an operation on a running host");
  control->require_subcommand(1);
  control->fallthrough();
  control->add_option("--socket", values->socket, "The host's control socket");
  control->add_option("--config", values->config, "The host's configuration, which may name the socket");
  control->add_flag("--json", values->json, "Show the result as JSON");
  control->footer(
      "Exit codes: 0 success; 1 refused, with the reason or the module's own message; 2 bad usage or file;\n"
      "3 no host reachable.");

  std::map<std::string, CLI::App*> groups;
  for (const ControlOperation& operation : ControlOperations()) {
    CLI::App* parent = control;
    std::string name(operation.name);
    if (const std::size_t space = name.find(' '); space != std::string::npos) {
      CLI::App*& group = groups[name.substr(0, space)];
      if (group == nullptr) {
        const std::string groupName = name.substr(0, space);
        group = control->add_subcommand(groupName, std::string(ControlGroupHelp(groupName)));
        group->require_subcommand(1);
        group->fallthrough();
      }
      parent = group;
      name = name.substr(space + 1);
    }
    CLI::App* const command = parent->add_subcommand(name, std::string(operation.help));
    command->fallthrough();
    auto operationValues = std::make_shared<OperationValues>();
    for (const ControlArgument& argument : operation.arguments) AddArgument(*command, argument, *operationValues);
    command->callback([&operation, operationValues, values, &code] {
      const ControlOptions common{
          .socket = values->socket, .config = values->config, .items = {}, .json = values->json, .request = {}};
      code = ControlHost(OptionsOf(operation, *operationValues, common));
    });
  }
}

int RunCommandLine(int argc, char** argv) {
  PrepareProgramText();
  CLI::App app("A reference host for the fenlux module, with an emulated kernel driver.", "fenlux-host");
  app.allow_windows_style_options(false);  // a path may begin with a slash
  app.require_subcommand(1);
  int code = kExitSuccess;
  AddRun(app, code);
  AddCheck(app, code);
  AddDecode(app, code);
  AddControl(app, code);
  try {
    std::vector<std::string> arguments = ProgramArguments(argc, argv);
    std::reverse(arguments.begin(), arguments.end());  // CLI11 takes them from the end
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitSuccess : kExitUsage;
  }
  return code;
}

}  // namespace

// The commands handle their errors. Any other exception is a bug and ends the program.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  HandleOutOfMemory();
  try {
    return RunCommandLine(argc, argv);
  } catch (const std::bad_alloc&) {
    return ReportOutOfMemory();
  }
}
