// Reads the parser's own description of each command.
#include "refhost/app/command_line/command_tree.h"

#include <fmt/format.h>

#include <boost/algorithm/string/case_conv.hpp>

namespace fenlux::refhost {
namespace {

std::string UpperCase(std::string text) {
  boost::algorithm::to_upper(text, std::locale::classic());
  return text;
}

}  // namespace

std::vector<const CLI::App*> Subcommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> Options(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

std::vector<const CLI::Option*> Positionals(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::string FullName(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return parent == nullptr ? command.get_name() : FullName(*parent) + " " + command.get_name();
}

std::string UsageText(const CLI::App& command) {
  std::string text = FullName(command);
  if (!Subcommands(command).empty())
    return text + (command.get_parent() == nullptr ? " COMMAND" : " OPERATION") + " ...";
  for (const CLI::Option* option : Positionals(command)) text += " " + OptionText(*option);
  bool hasOptional = false;
  for (const CLI::Option* option : Options(command)) {
    if (option->get_required()) {
      text += " " + OptionText(*option);
    } else {
      hasOptional = hasOptional || !option->check_name("--help");
    }
  }
  return text + (hasOptional ? " [OPTIONS]" : "");
}

std::string OptionText(const CLI::Option& option) {
  if (!option.nonpositional()) return UpperCase(option.get_name(true));
  std::string text;
  for (const std::string& name : option.get_snames()) text += "-" + name + ", ";
  for (const std::string& name : option.get_lnames()) text += "--" + name;
  if (option.get_items_expected_min() > 0) text += " " + option.get_type_name();
  return text;
}

}  // namespace fenlux::refhost
