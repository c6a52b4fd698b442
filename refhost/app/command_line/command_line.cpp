// Builds the command tree, and reports errors in a command line.
#include "refhost/app/command_line/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "refhost/app/command_line/argument_mistakes.h"
#include "refhost/app/command_line/commands_of_line.h"
#include "refhost/app/command_line/help_text.h"
#include "refhost/app/command_line/version_text.h"
#include "refhost/app/exit_codes.h"
#include "refhost/app/problem_output.h"
#include "refhost/base/platform/terminal.h"

namespace fenlux::refhost {
namespace {

int FailUsage(const std::string& text, const std::vector<std::string>& arguments) {
  const bool json = std::ranges::find(arguments, "--json") != arguments.end();
  std::cerr << ProblemLines(std::string(kProgramName) + ": " + text, json);
  return kExitUsage;
}

int Show(const std::string& text) {
  std::cout << text << std::flush;
  if (std::cout) return kExitSuccess;
  std::cerr << ProblemLines(std::string(kProgramName) + ": " + OutputFailure(), false);
  return kExitOutput;
}

// The command that was parsed.
const CLI::App& Chosen(const CLI::App& app) {
  const std::vector<CLI::App*> chosen = app.get_subcommands();
  return chosen.empty() ? app : Chosen(*chosen.front());
}

}  // namespace

std::unique_ptr<CLI::App> MakeCommandLine(int& code) {
  auto app = std::make_unique<CLI::App>("A reference host for the fenlux module, with an emulated kernel driver.",
                                        kProgramName);
  app->allow_windows_style_options(false);  // a path may begin with a slash
  app->require_subcommand(1);
  app->set_help_flag("-h,--help", "Show this help and exit");
  app->set_version_flag("--version", VersionText, "Show the versions and exit");
  AddRun(*app, code);
  AddCheck(*app, code);
  AddDecode(*app, code);
  AddDrive(*app, code);
  AddReplay(*app, code);
  AddReport(*app, code);
  AddExplain(*app, code);
  AddControl(*app, code);
  return app;
}

int RunCommandLine(const std::vector<std::string>& arguments) {
  int code = kExitSuccess;
  const std::unique_ptr<CLI::App> app = MakeCommandLine(code);
  if (const std::string mistake = FindMistake(*app, arguments); !mistake.empty()) return FailUsage(mistake, arguments);
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // CLI11 expects them in reverse order
    app->parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    return Show(HelpText(Chosen(*app), OutputWidth()));
  } catch (const CLI::CallForVersion&) {
    return Show(VersionText() + "\n");
  } catch (const CLI::ParseError& error) {
    return FailUsage(error.what(), arguments);
  }
  return code;
}

}  // namespace fenlux::refhost
