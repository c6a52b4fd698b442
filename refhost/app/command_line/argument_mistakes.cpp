// Walks the command tree with the words, as the parser will. The parser's own messages suggest no alternatives, and
// report a missing option rather than the mistyped one.
#include "refhost/app/command_line/argument_mistakes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string_view>

#include "refhost/app/command_line/command_tree.h"
#include "refhost/base/text/similar_words.h"

namespace fenlux::refhost {
namespace {

class Walk {
 public:
  explicit Walk(const CLI::App& root) : current(&root) {}

  std::string Mistake(const std::vector<std::string>& arguments) {
    bool onlyPositional = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
      const std::string& word = arguments[index];
      std::string mistake;
      if (!onlyPositional && word == "--") {
        onlyPositional = true;
      } else if (!onlyPositional && IsOption(word)) {
        bool takesNext = false;
        mistake = TakeOption(word, index + 1 == arguments.size(), takesNext);
        if (takesNext) ++index;
      } else {
        mistake = TakeWord(word);
      }
      if (!mistake.empty()) return mistake;
    }
    return asksForHelp ? std::string() : Missing();
  }

 private:
  // A number may be negative.
  static bool IsOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-' && std::isdigit(static_cast<unsigned char>(word[1])) == 0;
  }

  // The option with this name, of the current command or an enclosing one.
  const CLI::Option* Find(const std::string& name) const {
    for (const CLI::App* app = current; app != nullptr; app = app->get_fallthrough() ? app->get_parent() : nullptr) {
      for (const CLI::Option* option : app->get_options()) {
        if (option->check_name(name)) return option;
      }
    }
    return nullptr;
  }

  std::string TakeOption(const std::string& word, bool isLast, bool& takesNext) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const CLI::Option* const option = Find(name);
    if (option == nullptr) return UnknownOption(name);
    seen.insert(option);
    if (option->check_name("--help") || option->check_name("--version")) asksForHelp = true;
    const bool takesValue = option->get_items_expected_min() > 0;
    if (!takesValue || equals != std::string::npos) return {};
    takesNext = true;
    if (!isLast) return {};
    return fmt::format("{} needs a value: {} {}", name, name, option->get_type_name());
  }

  std::string UnknownOption(const std::string& name) const {
    std::vector<std::string> names;
    for (const CLI::App* app = current; app != nullptr; app = app->get_fallthrough() ? app->get_parent() : nullptr) {
      for (const CLI::Option* option : app->get_options()) {
        for (const std::string& known : option->get_lnames()) names.push_back("--" + known);
      }
    }
    const std::vector<std::string_view> candidates(names.begin(), names.end());
    const std::string command = FullName(*current);
    std::string remedy = DidYouMean(name, candidates);
    if (remedy.empty()) remedy = fmt::format("; \"{} --help\" lists the options", command);
    return fmt::format("unknown option \"{}\" of {}{}", name, command, remedy);
  }

  std::string TakeWord(const std::string& word) {
    const std::vector<const CLI::App*> commands = Subcommands(*current);
    if (!commands.empty()) {
      const auto found = std::ranges::find(commands, word, [](const CLI::App* app) { return app->get_name(); });
      if (found == commands.end()) return UnknownCommand(word, commands);
      current = *found;
      return {};
    }
    if (++positionals <= Positionals(*current).size()) return {};
    return fmt::format("unexpected argument \"{}\"; \"{} --help\" shows what it takes", word, FullName(*current));
  }

  std::string UnknownCommand(const std::string& word, const std::vector<const CLI::App*>& commands) const {
    std::vector<std::string_view> names;
    names.reserve(commands.size());
    for (const CLI::App* command : commands) names.push_back(command->get_name());
    std::string remedy = DidYouMean(word, names);
    if (remedy.empty()) remedy = fmt::format("; \"{} --help\" lists the {}s", FullName(*current), Noun());
    return fmt::format("unknown {} \"{}\"{}", Noun(), word, remedy);
  }

  std::string Missing() const {
    if (!Subcommands(*current).empty()) {
      return fmt::format("the {} is missing; \"{} --help\" lists the {}s", Noun(), FullName(*current), Noun());
    }
    std::size_t position = 0;
    for (const CLI::Option* option : Positionals(*current)) {
      if (++position > positionals && option->get_required()) return MissingText(option->get_name(true));
    }
    for (const CLI::Option* option : Options(*current)) {
      if (!option->get_required() || seen.contains(option)) continue;
      return MissingText(fmt::format("{} {}", option->get_name(), option->get_type_name()));
    }
    return {};
  }

  std::string MissingText(const std::string& what) const {
    return fmt::format("{} is missing; usage: {}", what, UsageText(*current));
  }

  // The program has commands; a command has operations.
  std::string_view Noun() const { return current->get_parent() == nullptr ? "command" : "operation"; }

  const CLI::App* current;
  std::size_t positionals = 0;  // given to the current command
  std::set<const CLI::Option*> seen;
  bool asksForHelp = false;
};

}  // namespace

std::string FindMistake(const CLI::App& root, const std::vector<std::string>& arguments) {
  return Walk(root).Mistake(arguments);
}

}  // namespace fenlux::refhost
