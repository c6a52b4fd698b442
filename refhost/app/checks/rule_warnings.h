// Warnings about rules that are valid but cannot work as written.
#pragma once

namespace fenlux::refhost {

class ConfigTable;
struct Rules;

// Warns about rules that never decide because an earlier rule always matches first, and about patterns that match no
// path or not the intended one. `judging` is the table that the rules were read from, without errors. With
// `kernelEvents`, the paths of events are those of this machine's files.
void WarnAboutRules(const ConfigTable& judging, const Rules& rules, bool kernelEvents);

}  // namespace fenlux::refhost
