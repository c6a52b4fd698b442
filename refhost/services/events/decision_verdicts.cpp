// The translation, as a table.
#include "refhost/services/events/decision_verdicts.h"

#include <array>

#include "kdi/driver_records.h"

namespace fenlux::refhost {
namespace {

using records::Verdict;

// Indexed by the decision's number.
constexpr std::array<Verdict, kMaxDecision + 1> kVerdicts{Verdict::kUnjudged,    Verdict::kVerdict2, Verdict::kPass,
                                                          Verdict::kVerdict4,    Verdict::kVerdict5, Verdict::kContext,
                                                          Verdict::kPassClient2, Verdict::kUnjudged};

}  // namespace

std::uint32_t VerdictOfDecision(Decision decision, bool clientType2) {
  const Verdict verdict = kVerdicts[static_cast<std::size_t>(decision)];
  return static_cast<std::uint32_t>(clientType2 && verdict == Verdict::kPass ? Verdict::kPassClient2 : verdict);
}

}  // namespace fenlux::refhost
