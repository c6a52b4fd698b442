// Warnings about rules that are valid and cannot do what they seem to.
#pragma once

namespace fenlux::refhost {

class ConfigTable;
struct Rules;

// Warns of rules that an earlier one always precedes, and of patterns that match no path, or not the one that is meant.
// `judging` is the table that the rules were read from, without errors. With `kernelEvents`, the paths of events are
// those of this machine's files.
void WarnAboutRules(const ConfigTable& judging, const Rules& rules, bool kernelEvents);

}  // namespace fenlux::refhost
