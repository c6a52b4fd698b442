// Two columns: names on the left, descriptions on the right.
#include "refhost/app/command_line/help_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/app/command_line/command_tree.h"

namespace fenlux::refhost {
namespace {

// The maximum width of the left column; a longer name gets its own line.
constexpr std::size_t kMaxNameWidth = 26;
constexpr std::size_t kIndent = 2;

using Rows = std::vector<std::pair<std::string, std::string>>;

std::string Section(const std::string& title, const Rows& rows, std::size_t width) {
  if (rows.empty()) return {};
  std::size_t nameWidth = 0;
  for (const auto& [name, help] : rows) {
    if (name.size() <= kMaxNameWidth) nameWidth = std::max(nameWidth, name.size());
  }
  const std::size_t column = kIndent + nameWidth + 2;
  std::string text = "\n" + title + ":\n";
  for (const auto& [name, help] : rows) {
    text += std::string(kIndent, ' ') + name;
    if (name.size() > nameWidth) {
      text += "\n" + std::string(column, ' ');
    } else {
      text += std::string(nameWidth - name.size() + 2, ' ');
    }
    text += Wrapped(help, column, width) + "\n";
  }
  return text;
}

Rows RowsOf(const std::vector<const CLI::Option*>& options) {
  Rows rows;
  for (const CLI::Option* option : options) {
    const char* const note = option->get_required() && option->nonpositional() ? " (required)" : "";
    rows.emplace_back(OptionText(*option), option->get_description() + note);
  }
  return rows;
}

// Options of the enclosing commands that may follow this one.
Rows CommonRows(const CLI::App& command) {
  Rows rows;
  const CLI::App* app = &command;
  while (app->get_fallthrough() && app->get_parent() != nullptr && app->get_parent()->get_parent() != nullptr) {
    app = app->get_parent();
    for (auto& row : RowsOf(Options(*app))) {
      if (!row.first.ends_with("--help")) rows.push_back(std::move(row));
    }
  }
  return rows;
}

}  // namespace

std::string Wrapped(std::string_view text, std::size_t indent, std::size_t width) {
  const std::size_t room = width > indent + 20 ? width - indent : 20;
  std::string result;
  std::size_t used = 0;
  bool lineStart = true;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(" \n"), text.size());
    const std::string_view word = text.substr(0, end);
    const bool lineEnds = end < text.size() && text[end] == '\n';
    if (!lineStart && used + 1 + word.size() > room) {
      result += "\n" + std::string(indent, ' ');
      used = 0;
      lineStart = true;
    }
    if (!lineStart) {
      result += ' ';
      ++used;
    }
    result += word;
    used += word.size();
    lineStart = false;
    text.remove_prefix(std::min(end + 1, text.size()));
    if (lineEnds && !text.empty()) {
      result += "\n" + std::string(indent, ' ');
      used = 0;
      lineStart = true;
    }
  }
  return result;
}

std::string HelpText(const CLI::App& command, std::size_t width) {
  std::string text = Wrapped(command.get_description(), 0, width) + "\n\n";
  text += Wrapped("Usage: " + UsageText(command), 0, width) + "\n";
  Rows commands;
  for (const CLI::App* subcommand : Subcommands(command)) {
    commands.emplace_back(subcommand->get_name(), subcommand->get_description());
  }
  text += Section(command.get_parent() == nullptr ? "Commands" : "Operations", commands, width);
  text += Section("Arguments", RowsOf(Positionals(command)), width);
  text += Section("Options", RowsOf(Options(command)), width);
  text += Section("Common options", CommonRows(command), width);
  // The operations of a command inherit its footer.
  const std::string footer = command.get_footer();
  const bool isOwn = command.get_parent() == nullptr || command.get_parent()->get_footer() != footer;
  if (isOwn && !footer.empty()) text += "\n" + Wrapped(footer, 0, width) + "\n";
  return text;
}

}  // namespace fenlux::refhost
