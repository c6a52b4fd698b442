// The oracles that several fault-injection tests share, and the loop over all faults.
#include "tests/unit/module/fault_injection.h"

namespace fenlux::testing {
namespace {

const Lines kRefreshThreadCalls{"CUtility::WriteLog", "CCfgEx::GetRefreshInterval"};

}  // namespace

Outcome AlwaysPropagates(const Lines& /*calls*/, std::size_t /*position*/) { return kPropagates; }

Oracle AlwaysReported(const std::string& tag) {
  return [tag](const Lines&, std::size_t) { return Reported(tag); };
}

Outcome OutcomeInConnectionRun(const Lines& calls, std::size_t position, std::size_t begin) {
  const std::size_t ready = Find(calls, "CLog::LogEvent", begin);
  const std::size_t switches = Find(calls, "CPortClient::Send(12", begin);
  const std::size_t report = Find(calls, "CCfg::ReportDriverVersion", begin);
  if (position > ready && position <= switches) return Reported("wdi,spsp");
  if (position > switches && position < report) return Reported("wdi,gdv");
  std::size_t from = report;
  for (int process = 0; process < 2; ++process) {
    const std::size_t value = Find(calls, "CWinWork::QueryProcessValue", from);
    const std::size_t sent = Find(calls, "CPortClient::Send(20", value);
    if (position > value && position <= sent) return Reported("wdi,uxp");
    from = sent;
  }
  return kPropagates;
}

std::size_t Find(const Lines& calls, const std::string& prefix, std::size_t from) {
  for (std::size_t i = from; i < calls.size(); ++i) {
    if (calls[i].rfind(prefix, 0) == 0) return i;
  }
  ADD_FAILURE() << "no " << prefix;
  return calls.size();
}

void ExcludeRefreshThread(CallGate& gate) {
  for (const std::string& call : kRefreshThreadCalls) gate.ExcludeFromCount(call);
}

Lines CountedCalls(const CallGate& gate) { return gate.EntriesWithout(kRefreshThreadCalls); }

void ForEachFault(const Lines& calls, const std::function<void(Failure failure, std::size_t position)>& inject) {
  for (const Failure failure : kAllFailures) {
    for (std::size_t position = 0; position < calls.size(); ++position) {
      SCOPED_TRACE(std::string(NameOf(failure)) + " at call " + std::to_string(position + 1) + " " + calls[position]);
      inject(failure, position);
      if (::testing::Test::HasFatalFailure()) return;
    }
  }
}

void FaultInjection::ExpectTrace(const Outcome& expected, Failure failure) const {
  if (expected.kind == Outcome::Kind::kReported) {
    EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}), Lines{Problem(Report(expected.tag, failure))});
  } else {
    EXPECT_EQ(Gate().Count("CLog::LogProblem(0x10003, [wdi,wdaokd"), 0u);
  }
}

}  // namespace fenlux::testing
