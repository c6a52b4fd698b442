// The two forms of a decision record: a sentence for people and a report for programs.
#pragma once

#include <string>
#include <string_view>

#include "refhost/base/report.h"
#include "refhost/services/events/decision_sink.h"

namespace fenlux::refhost {

// "allowed", "refused", "would refuse" or "no reply".
std::string_view DecisionResultName(DecisionResult result);

// refused cat[4711] open /srv/a.secret by rule "cat" (host.toml:38), decision 3, verdict 4, 52 us
//
// UTF-8, with the characters of names unescaped: pass it through Printable before showing it.
std::string DecisionText(const DecisionRecord& record);

// The same facts by name, without the time.
Report DecisionReport(const DecisionRecord& record);

// How messages name what decided: rule "cat" (host.toml:38), rule 2 (host.toml:44), the default.
std::string DeciderText(const Rule* rule);

}  // namespace fenlux::refhost
