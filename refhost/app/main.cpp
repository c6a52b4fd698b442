// The command line of fenlux-host; the commands themselves are elsewhere.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/app/commands/commands.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/platform/program_text.h"
#include "refhost/app/platform/signals.h"

namespace {

using namespace fenlux::refhost;

void AddRun(CLI::App& app, int& code) {
  struct Words {
    std::string config, module;
    double duration = 0;
    bool json = false;
  };
  auto words = std::make_shared<Words>();
  CLI::App* const run = app.add_subcommand("run", "Run the host with its module and the emulated driver");
  run->add_option("--config", words->config, "The host's configuration")->required();
  run->add_option("--module", words->module,
                  "The module's library; otherwise as configured, or the one beside this "
                  "program");
  CLI::Option* const duration =
      run->add_option("--duration", words->duration, "End after so many seconds")->check(CLI::PositiveNumber);
  run->add_flag("--json", words->json, "Log and summary as JSON, one object a line");
  run->footer(
      SignalHelp() +
      "The log goes to the standard error output, the summary to the standard output.\n"
      "Exit codes: 0 fine; 2 bad usage or configuration; 3 the module could not be loaded, or its init or start\n"
      "failed; 4 the driver counted a protocol violation, or the totals do not add up.");
  run->callback([words, duration, &code] {
    RunOptions options{.config = words->config, .module = words->module, .duration = {}, .json = words->json};
    if (duration->count() > 0) {
      options.duration = std::chrono::milliseconds(static_cast<std::int64_t>(words->duration * 1000));
    }
    code = RunHost(options);
  });
}

void AddCheck(CLI::App& app, int& code) {
  auto file = std::make_shared<std::string>();
  CLI::App* const check = app.add_subcommand("check", "Validate a host's configuration or a scenario");
  check->add_option("file", *file, "The file")->required();
  check->footer("Every error is told as file:line:column: key: reason.\nExit codes: 0 no errors; 2 errors.");
  check->callback([file, &code] { code = CheckConfiguration(*file); });
}

// What one operation's command line gave.
struct OperationWords {
  std::map<std::string, std::string> texts;
  std::map<std::string, bool> flags;
};

void AddArgument(CLI::App& command, const ControlArgument& argument, OperationWords& words) {
  const std::string name(argument.name);
  const std::string help(argument.help);
  if (argument.kind == ArgumentKind::kFlag) {
    command.add_flag("--" + name, words.flags[name], help);
    return;
  }
  CLI::Option* const option = command.add_option(name, words.texts[name], help)->required();
  if (argument.kind == ArgumentKind::kOnOff) option->check(CLI::IsMember({"on", "off"}));
}

ControlOptions OptionsOf(const ControlOperation& operation, const OperationWords& words, ControlOptions options) {
  options.request.operation = operation.name;
  for (const ControlArgument& argument : operation.arguments) {
    const std::string name(argument.name);
    if (argument.kind == ArgumentKind::kFlag) {
      if (words.flags.at(name)) options.request.arguments[name] = "true";
    } else if (argument.kind == ArgumentKind::kItemFile) {
      options.items = words.texts.at(name);
    } else {
      const std::string& text = words.texts.at(name);
      options.request.arguments[name] =
          argument.kind == ArgumentKind::kPath ? boost::filesystem::absolute(text).string() : text;
    }
  }
  return options;
}

void AddControl(CLI::App& app, int& code) {
  struct Words {
    std::string socket, config;
    bool json = false;
  };
  auto words = std::make_shared<Words>();
  CLI::App* const control = app.add_subcommand("ctl", "Have a running host carry out an operation");
  control->require_subcommand(1);
  control->fallthrough();
  control->add_option("--socket", words->socket, "The host's control socket");
  control->add_option("--config", words->config, "The host's configuration, which may name the socket");
  control->add_flag("--json", words->json, "Show the result as JSON");
  control->footer(
      "Exit codes: 0 carried out; 1 refused, with the reason or the module's own message; 2 bad usage or file;\n"
      "3 no host could be reached.");

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
    auto operationWords = std::make_shared<OperationWords>();
    for (const ControlArgument& argument : operation.arguments) AddArgument(*command, argument, *operationWords);
    command->callback([&operation, operationWords, words, &code] {
      const ControlOptions common{
          .socket = words->socket, .config = words->config, .items = {}, .json = words->json, .request = {}};
      code = ControlHost(OptionsOf(operation, *operationWords, common));
    });
  }
}

}  // namespace

int main(int argc, char** argv) {
  PrepareProgramText();
  CLI::App app("A reference host for the fenlux module, with an emulated kernel driver.", "fenlux-host");
  app.require_subcommand(1);
  int code = kExitFine;
  AddRun(app, code);
  AddCheck(app, code);
  AddControl(app, code);
  try {
    std::vector<std::string> arguments = ProgramArguments(argc, argv);
    std::reverse(arguments.begin(), arguments.end());  // the library takes them from the end
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitFine : kExitUsage;
  }
  return code;
}
