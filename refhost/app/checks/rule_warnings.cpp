// A pattern covers another one if it matches everything that the other matches. This is tested with two paths that the
// other pattern matches: in one its stars are empty, in the other they stand for characters that no pattern contains.
#include "refhost/app/checks/rule_warnings.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/app/checks/system_facts.h"
#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/judge.h"

namespace fenlux::refhost {
namespace {

// The text that replaces a wildcard.
struct Filling {
  std::string_view component;  // "*"
  std::string_view anything;   // "**"
};
constexpr Filling kFillings[] = {{"", ""}, {"\x01\x02\x03", "\x01\x02/\x03/\x04\x05"}};
constexpr std::string_view kOneCharacter = "\x01";  // "?"
// Put before a pattern that is matched against the last component only.
constexpr std::string_view kDirectory = "/\x01\x02/\x03/";

std::string Filled(std::string_view pattern, const Filling& filling) {
  std::string path;
  if (pattern.find_first_of("/\\") == std::string_view::npos) path = kDirectory;
  while (!pattern.empty()) {
    const bool anything = pattern.starts_with("**");
    if (anything) {
      path += filling.anything;
    } else if (pattern.front() == '*') {
      path += filling.component;
    } else if (pattern.front() == '?') {
      path += kOneCharacter;
    } else {
      path += pattern.front();
    }
    pattern.remove_prefix(anything ? 2 : 1);
  }
  return path;
}

// The patterns of one rule with variables expanded; empty: none.
struct Patterns {
  std::string path;
  std::string process;
};

Patterns PatternsOf(const ConfigTable& rule) {
  return {rule.ExpandedText("path", ""), rule.ExpandedText("process", "")};
}

bool Covers(const std::string& pattern, const std::string& other) {
  if (pattern.empty() || pattern == other) return true;
  if (other.empty()) return pattern == "**" || pattern == "*";
  const Glob glob(pattern);
  return std::ranges::all_of(
      kFillings, [&](const Filling& filling) { return glob.Matches(WideFromNarrow(Filled(other, filling))); });
}

bool CoversEvents(const std::vector<EventKind>& kinds, const std::vector<EventKind>& others) {
  if (kinds.empty()) return true;
  return !others.empty() && std::ranges::all_of(others, [&](const EventKind& other) {
    return std::ranges::any_of(kinds, [&](const EventKind& kind) {
      return kind.type == other.type && (kind.category == 0 || kind.category == other.category);
    });
  });
}

std::string NameOf(const Rule& rule, std::size_t index) {
  return rule.name.empty() ? fmt::format("rules[{}]", index) : fmt::format("rules[{}] (\"{}\")", index, rule.name);
}

void WarnAboutPattern(const ConfigTable& rule, std::string_view key, const std::string& pattern, bool isOfThisMachine) {
  if (pattern.find_first_of("[{") != std::string::npos) {
    rule.Warn(key, fmt::format("\"{}\" in \"{}\" stands for itself; patterns have only *, ** and ?",
                               pattern[pattern.find_first_of("[{")], pattern));
  }
  if (pattern.starts_with('~')) {
    rule.Warn(key,
              fmt::format("\"{}\" never matches: \"~\" stands for itself; write the directory, or ${{HOME}}", pattern));
    return;
  }
  if (!isOfThisMachine || pattern.find('/') == std::string::npos) return;
  if (!pattern.starts_with('/') && !pattern.starts_with('*')) {
    rule.Warn(key, fmt::format("\"{}\" never matches: paths begin with \"/\"; write \"**/{}\" to match it anywhere",
                               pattern, pattern));
  } else if (pattern.ends_with('/')) {
    rule.Warn(key, fmt::format("\"{}\" never matches: no path ends with \"/\"; add \"**\"", pattern));
  } else if (const std::string resolved = WithLinksResolved(pattern); !resolved.empty()) {
    rule.Warn(key, fmt::format("\"{}\" leads through a symbolic link, and rules see the file itself; write \"{}\"",
                               pattern, resolved));
  }
}

}  // namespace

void WarnAboutRules(const ConfigTable& judging, const Rules& rules, bool kernelEvents) {
  const std::vector<ConfigTable> tables = judging.Tables("rules");
  std::vector<Patterns> patterns;
  for (const ConfigTable& table : tables) {
    patterns.push_back(PatternsOf(table));
    WarnAboutPattern(table, "path", patterns.back().path, kernelEvents && HasUnixPaths());
    WarnAboutPattern(table, "process", patterns.back().process, HasUnixPaths());
  }
  for (std::size_t later = 0; later < patterns.size(); ++later) {
    for (std::size_t earlier = 0; earlier < later; ++earlier) {
      if (!Covers(patterns[earlier].path, patterns[later].path) ||
          !Covers(patterns[earlier].process, patterns[later].process) ||
          !CoversEvents(rules.ordered[earlier].events, rules.ordered[later].events)) {
        continue;
      }
      tables[later].Warn("", fmt::format("can never decide: {} comes first and matches all its events",
                                         NameOf(rules.ordered[earlier], earlier)));
      break;
    }
  }
}

}  // namespace fenlux::refhost
