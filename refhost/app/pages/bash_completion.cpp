// The script follows the words to the command that is being completed, and then offers what may follow that command. It
// needs only bash.
#include "refhost/app/pages/bash_completion.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "refhost/app/command_line/command_tree.h"

namespace fenlux::refhost {
namespace {

constexpr std::string_view kHead =
    R"(# Completion of fenlux-host for bash. Made from its table of commands.
_fenlux_host() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=fenlux-host index
  local kinds="" words=""
  for ((index = 1; index < COMP_CWORD; ++index)); do
    case "$command ${COMP_WORDS[index]}" in
)";

constexpr std::string_view kMiddle = R"( command+=" ${COMP_WORDS[index]}" ;;
    esac
  done
  case "$command $before" in
)";

constexpr std::string_view kTail = R"(  esac
  COMPREPLY=()
  if [[ $word == -* || $kinds != files ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  fi
  if [[ $kinds == *files && $word != -* ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _fenlux_host fenlux-host
)";

bool IsFile(const std::string& type) { return type == "FILE" || type == "PATH"; }

// The words of "on|off"; empty if the type is not a list of words.
std::string WordsOf(std::string type) {
  if (type.find('|') == std::string::npos) return {};
  std::ranges::replace(type, '|', ' ');
  return type;
}

using CommandList = std::vector<const CLI::App*>;

void Collect(const CLI::App& command, CommandList& commands) {
  commands.push_back(&command);
  for (const CLI::App* subcommand : Subcommands(command)) Collect(*subcommand, commands);
}

// The options that may follow a command: its own, and those of the enclosing commands.
std::vector<const CLI::Option*> OptionsAfter(const CLI::App& command) {
  std::vector<const CLI::Option*> options = Options(command);
  for (const CLI::App* app = &command; app->get_fallthrough() && app->get_parent() != nullptr;) {
    app = app->get_parent();
    if (app->get_parent() == nullptr) break;
    for (const CLI::Option* option : Options(*app)) {
      if (!option->check_name("--help")) options.push_back(option);
    }
  }
  return options;
}

// What follows an option that takes a value.
std::string ValueCases(const CLI::App& command) {
  std::string text;
  for (const CLI::Option* option : OptionsAfter(command)) {
    if (option->get_items_expected_min() == 0) continue;
    const std::string type = option->get_type_name();
    for (const std::string& name : option->get_lnames()) {
      text += fmt::format("    \"{} --{}\") kinds={} words=\"{}\" ;;\n", FullName(command), name,
                          IsFile(type) ? "files" : "words", WordsOf(type));
    }
  }
  return text;
}

// What follows a command.
std::string CommandCase(const CLI::App& command) {
  std::string words;
  for (const CLI::App* subcommand : Subcommands(command)) words += " " + subcommand->get_name();
  bool takesFile = false;
  for (const CLI::Option* argument : Positionals(command)) {
    takesFile = takesFile || IsFile(argument->get_type_name());
    const std::string choices = WordsOf(argument->get_type_name());
    if (!choices.empty()) words += " " + choices;
  }
  for (const CLI::Option* option : OptionsAfter(command)) {
    for (const std::string& name : option->get_lnames()) words += " --" + name;
  }
  return fmt::format("    \"{} \"*) kinds={} words=\"{}\" ;;\n", FullName(command), takesFile ? "words+files" : "words",
                     words.substr(std::min<std::size_t>(1, words.size())));
}

}  // namespace

std::string BashCompletion(const CLI::App& program) {
  CommandList commands;
  Collect(program, commands);
  std::string names;
  std::string cases;
  for (const CLI::App* command : commands) {
    if (command != &program) names += fmt::format("{}      \"{}\"", names.empty() ? "" : " | \\\n", FullName(*command));
    cases += ValueCases(*command);
  }
  // The longest names first, because "fenlux-host ctl" is a prefix of the names of all operations.
  std::ranges::stable_sort(commands, std::ranges::greater(),
                           [](const CLI::App* command) { return FullName(*command).size(); });
  for (const CLI::App* command : commands) cases += CommandCase(*command);
  return std::string(kHead) + names + ")" + std::string(kMiddle) + cases + std::string(kTail);
}

}  // namespace fenlux::refhost
