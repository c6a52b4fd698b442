// The rules in force as reports: what they say, and how often each decided.
#pragma once

#include <string>

#include "refhost/base/report.h"
#include "refhost/services/events/rules.h"

namespace fenlux::refhost {

// Everything about the rules, in order, and the default decision.
Report RulesReport(const RulesInForce& current);
// The report as a table for people.
std::string RulesText(const Report& report);

// The number of hits, by the rule's label; the default decision at the end.
Report RuleHitsReport(const RulesInForce& current);

}  // namespace fenlux::refhost
