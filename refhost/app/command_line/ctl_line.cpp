// `fenlux-host ctl` on the command line, built from the table of operations.
#include <CLI/CLI.hpp>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/command_line/value_checks.h"
#include "refhost/app/commands/commands.h"

namespace fenlux::refhost {
namespace {

// The arguments of one operation as given on the command line.
struct OperationValues {
  std::map<std::string, std::string> texts;
  std::map<std::string, bool> flags;
};

bool MayBeAbsent(ArgumentKind kind) { return kind == ArgumentKind::kOption || kind == ArgumentKind::kIntegerOption; }

void AddArgument(CLI::App& command, const ControlArgument& argument, OperationValues& values) {
  const std::string name(argument.name);
  const std::string help(argument.help);
  if (argument.kind == ArgumentKind::kFlag) {
    command.add_flag("--" + name, values.flags[name], help);
    return;
  }
  const bool named = MayBeAbsent(argument.kind) || argument.kind == ArgumentKind::kRequiredOption;
  CLI::Option* const option = command.add_option((named ? "--" : "") + name, values.texts[name], help);
  option->required(!MayBeAbsent(argument.kind));
  switch (argument.kind) {
    case ArgumentKind::kOnOff:
      option->type_name("on|off")->check(OneOf("on|off"));
      break;
    case ArgumentKind::kInteger:
    case ArgumentKind::kIntegerOption:
      option->type_name("N")->check(IntegerBetween(argument.min, argument.max));
      break;
    case ArgumentKind::kOption:
    case ArgumentKind::kRequiredOption:
      option->type_name("TEXT");
      break;
    case ArgumentKind::kPath:
    case ArgumentKind::kItemFile:
    case ArgumentKind::kFlag:
      option->type_name("FILE");
      break;
  }
}

ControlOptions OptionsOf(const ControlOperation& operation, const OperationValues& values, ControlOptions options) {
  options.request.operation = operation.name;
  for (const ControlArgument& argument : operation.arguments) {
    const std::string name(argument.name);
    if (argument.kind == ArgumentKind::kFlag) {
      if (values.flags.at(name)) options.request.arguments[name] = "true";
    } else if (argument.kind == ArgumentKind::kItemFile) {
      options.items = values.texts.at(name);
    } else if (!MayBeAbsent(argument.kind) || !values.texts.at(name).empty()) {
      const std::string& text = values.texts.at(name);
      options.request.arguments[name] =
          argument.kind == ArgumentKind::kPath ? boost::filesystem::absolute(text).string() : text;
    }
  }
  return options;
}

// The command of one operation, in its group if its name has two words.
CLI::App& AddCommand(CLI::App& control, std::map<std::string, CLI::App*>& groups, const ControlOperation& operation) {
  CLI::App* parent = &control;
  std::string name(operation.name);
  if (const std::size_t space = name.find(' '); space != std::string::npos) {
    const std::string groupName = name.substr(0, space);
    CLI::App*& group = groups[groupName];
    if (group == nullptr) {
      group = control.add_subcommand(groupName, std::string(ControlGroupHelp(groupName)));
      group->require_subcommand(1);
      group->fallthrough();
    }
    parent = group;
    name = name.substr(space + 1);
  }
  CLI::App* const command = parent->add_subcommand(name, std::string(operation.help));
  command->fallthrough();
  return *command;
}

}  // namespace

void AddControl(CLI::App& app, int& code) {
  struct Values {
    std::string socket, config;
    bool json = false;
    bool insecurePermissions = false;
  };
  auto values = std::make_shared<Values>();
  CLI::App* const control = app.add_subcommand("ctl", "Run an operation on a running host");
  control->require_subcommand(1);
  control->fallthrough();
  control->add_option("--socket", values->socket, "The host's control socket")->type_name("PATH");
  control->add_option("--config", values->config, "The host's configuration, which may name the socket")
      ->type_name("FILE");
  control->add_flag("--json", values->json, "Show the result as JSON");
  control->add_flag("--insecure-permissions", values->insecurePermissions,
                    "As root, use a file of items that other users may change");
  control->footer(
      "Exit codes: 0 success; 1 refused, with the reason or the module's own message, or the result could not be "
      "written; 2 bad usage or file; 3 no host reachable; of health: 6 degraded, 7 no host reachable.");

  std::map<std::string, CLI::App*> groups;
  for (const ControlOperation& operation : ControlOperations()) {
    CLI::App& command = AddCommand(*control, groups, operation);
    auto operationValues = std::make_shared<OperationValues>();
    for (const ControlArgument& argument : operation.arguments) AddArgument(command, argument, *operationValues);
    command.callback([&operation, operationValues, values, &code] {
      const ControlOptions common{.socket = values->socket,
                                  .config = values->config,
                                  .items = {},
                                  .json = values->json,
                                  .insecurePermissions = values->insecurePermissions,
                                  .request = {}};
      code = ControlHost(OptionsOf(operation, *operationValues, common));
    });
  }
}

}  // namespace fenlux::refhost
