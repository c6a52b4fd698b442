// Writes the man(7) macros, which every man program understands.
#include "refhost/app/pages/manual_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <locale>
#include <string_view>

#include "fenlux/version.h"
#include "refhost/app/command_line/command_tree.h"

namespace fenlux::refhost {
namespace {

// Escapes text so that troff shows it unchanged.
std::string Escaped(std::string_view text) {
  std::string escaped;
  bool lineStart = true;
  for (const char character : text) {
    if (lineStart && (character == '.' || character == '\'')) escaped += "\\&";
    switch (character) {
      case '\\':
        escaped += "\\e";
        break;
      case '-':
        escaped += "\\-";
        break;
      case '\n':
        escaped += "\n.br";
        [[fallthrough]];
      default:
        escaped += character;
    }
    lineStart = character == '\n';
  }
  return escaped;
}

std::string Section(std::string_view title) { return fmt::format(".SH {}\n", title); }

// A term and its meaning.
std::string Entry(const std::string& term, const std::string& meaning) {
  return fmt::format(".TP\n.B {}\n{}\n", Escaped(term), Escaped(meaning));
}

std::string Entries(const std::vector<const CLI::Option*>& options) {
  std::string text;
  for (const CLI::Option* option : options) text += Entry(OptionText(*option), option->get_description());
  return text;
}

// The operations below a command, each with its arguments.
std::string Operations(const CLI::App& command) {
  std::string text;
  for (const CLI::App* operation : Subcommands(command)) {
    if (!Subcommands(*operation).empty()) {
      text += Operations(*operation);
      continue;
    }
    std::string usage = UsageText(*operation);
    usage.erase(0, std::string_view("fenlux-host ctl ").size());
    text += Entry(usage, operation->get_description());
    std::vector<const CLI::Option*> options = Positionals(*operation);
    for (const CLI::Option* option : Options(*operation)) {
      if (!option->check_name("--help")) options.push_back(option);
    }
    if (!options.empty()) text += ".RS\n" + Entries(options) + ".RE\n";
  }
  return text;
}

std::string Commands(const CLI::App& program) {
  std::string text;
  for (const CLI::App* command : Subcommands(program)) {
    text += Entry(UsageText(*command), fmt::format("{}. See {}(1).", command->get_description(), PageName(*command)));
  }
  return text;
}

// The files that a host uses; the same on every page.
std::string Files() {
  return Section("FILES") + Entry("/etc/fenlux/host.toml", "The configuration of the system's service.") +
         Entry("/run/fenlux/host.sock", "The default control socket of a host that runs as root.") +
         Entry("$XDG_RUNTIME_DIR/fenlux/host.sock", "The control socket of a user's host.");
}

std::string SeeAlso(const CLI::App& program, const CLI::App& shown) {
  std::string text;
  const auto add = [&](const CLI::App& other) {
    if (&other == &shown) return;
    text += fmt::format("{}.BR {} (1)", text.empty() ? "" : ",\n", Escaped(PageName(other)));
  };
  add(program);
  for (const CLI::App* command : Subcommands(program)) add(*command);
  return Section("SEE ALSO") + text +
         "\n.PP\nThe file operations.md in /usr/share/doc/fenlux describes every setting and every message.\n";
}

}  // namespace

std::string PageName(const CLI::App& command) {
  std::string name = FullName(command);
  std::ranges::replace(name, ' ', '-');
  return name;
}

std::string ManualPage(const CLI::App& command) {
  const bool isProgram = command.get_parent() == nullptr;
  const CLI::App& program = isProgram ? command : *command.get_parent();
  const std::string title = boost::algorithm::to_upper_copy(PageName(command), std::locale::classic());
  // No date, so that pages of the same source have the same bytes.
  std::string text = fmt::format(".TH {} 1 \"\" \"fenlux {}\" \"fenlux\"\n", Escaped(title), kPackageVersionText);
  std::string description = command.get_description();
  if (description.ends_with('.')) description.pop_back();
  text += Section("NAME") + fmt::format("{} \\- {}\n", Escaped(PageName(command)), Escaped(description));
  text += Section("SYNOPSIS") + fmt::format(".B {}\n", Escaped(UsageText(command)));
  if (isProgram) text += Section("COMMANDS") + Commands(command);
  if (!Positionals(command).empty()) text += Section("ARGUMENTS") + Entries(Positionals(command));
  text += Section("OPTIONS") + Entries(Options(command));
  if (!isProgram && !Subcommands(command).empty()) text += Section("OPERATIONS") + Operations(command);
  if (const std::string footer = command.get_footer(); !footer.empty()) {
    text += Section("NOTES") + Escaped(footer) + (footer.ends_with('\n') ? "" : "\n");
  }
  return text + Files() + SeeAlso(program, command);
}

}  // namespace fenlux::refhost
