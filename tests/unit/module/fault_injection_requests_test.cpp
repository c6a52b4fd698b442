// Fault injection into the operations of a driver interface.
#include "tests/unit/module/fault_injection.h"

namespace fenlux::testing {
namespace {

struct Operation {
  const char* name;
  std::function<void(CWinDriverInteract&)> run;
  Oracle oracle;
};

std::shared_ptr<NetControlItems> TwoItems() { return std::make_shared<NetControlItems>(2); }

Outcome OutcomeInItemList(const Lines& calls, std::size_t position) {
  const std::size_t begun = Find(calls, "CPortClient::Send(21");
  std::size_t last = Find(calls, "CPortClient::Send(22", begun);
  last = Find(calls, "CPortClient::Send(22", last + 1);
  return position > begun && position <= last ? kSwallowed : kPropagates;
}

const Operation kOperations[] = {
    {"AddMonitorObject", [](CWinDriverInteract& i) { i.AddMonitorObject(false, "/a", 1); }, AlwaysPropagates},
    {"SendMonitorObjects",
     [](CWinDriverInteract& i) {
       i.AddMonitorObject(false, "/no/such/a", 1);
       i.AddMonitorObject(false, "//host/b", 1);
       i.SendMonitorObjects(1);
     },
     [](const Lines& calls, std::size_t position) {
       return position >= Find(calls, "CUtility::CreateBuffer") ? kSwallowed : kPropagates;
     }},
    {"ClearMonitorObjects", [](CWinDriverInteract& i) { i.ClearMonitorObjects(3); }, AlwaysPropagates},
    {"EnterNetControlMode1", [](CWinDriverInteract& i) { i.EnterNetControlMode1(); }, AlwaysPropagates},
    {"ApplyNetControlItems", [](CWinDriverInteract& i) { i.ApplyNetControlItems(true, TwoItems()); },
     OutcomeInItemList},
    {"EnterNetControlMode3", [](CWinDriverInteract& i) { i.EnterNetControlMode3(); }, AlwaysPropagates},
    {"AddNetControlItems", [](CWinDriverInteract& i) { i.AddNetControlItems(2, TwoItems()); }, OutcomeInItemList},
    {"GetDriverVersion", [](CWinDriverInteract& i) { i.GetDriverVersion(); }, AlwaysReported("wdi,gdv")},
    {"SetGrspSwitch", [](CWinDriverInteract& i) { i.SetGrspSwitch(true, 3); }, AlwaysPropagates},
    {"DumpDriverDebugInfo", [](CWinDriverInteract& i) { i.DumpDriverDebugInfo(); }, AlwaysPropagates},
    {"SetGrpmSwitch", [](CWinDriverInteract& i) { i.SetGrpmSwitch(true, 3); }, AlwaysPropagates},
    {"SetGrdtoValue", [](CWinDriverInteract& i) { i.SetGrdtoValue(true, 3); }, AlwaysPropagates},
    {"SetGrharaSwitch", [](CWinDriverInteract& i) { i.SetGrharaSwitch(true, false); }, AlwaysPropagates},
    {"SetSpspState", [](CWinDriverInteract& i) { i.SetSpspState(0); }, AlwaysReported("wdi,spsp")},
    {"RegisterSystemProcess", [](CWinDriverInteract& i) { i.RegisterSystemProcess(2, 4); }, AlwaysReported("wdi,uxp")},
    {"SendDriverConfig", [](CWinDriverInteract& i) { i.SendDriverConfig(); }, AlwaysPropagates},
    {"StopInteract", [](CWinDriverInteract& i) { i.StopInteract(); }, AlwaysPropagates},
    {"Shutdown", [](CWinDriverInteract& i) { i.Shutdown(); }, AlwaysPropagates},
    {"CheckDriverVersion", [](CWinDriverInteract& i) { i.CheckDriverVersion(); },
     [](const Lines& calls, std::size_t position) {
       return position < Find(calls, "CCfg::ReportDriverVersion") ? Reported("wdi,gdv") : kPropagates;
     }},
    {"FindSystemProcessId", [](CWinDriverInteract& i) { i.FindSystemProcessId("system32\\csrss.exe"); },
     AlwaysPropagates},
};

class FaultInjectionRequests : public FaultInjection {};

class FaultInjectionOperations : public FaultInjection, public ::testing::WithParamInterface<Operation> {
 protected:
  FaultInjectionOperations() { host.SetDriverConfigBlock(host.MakeBuffer(Bytes(10))); }
};

}  // namespace

TEST_P(FaultInjectionOperations, EachFailureIsReportedSwallowedOrThrown) {
  std::shared_ptr<CWinDriverInteract> interact;
  FailEveryCall(
      [&] {
        interact.reset();
        interact = ReadyInteract();
        return interact.get();
      },
      [&](CWinDriverInteract* subject) { GetParam().run(*subject); }, GetParam().oracle);
}

TEST_P(FaultInjectionOperations, TheInterfaceKeepsWorkingAfterEveryCallFromSomePointOnFailed) {
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n < 100; ++n) {
      const auto interact = ReadyInteract();
      Gate().FailFrom(n, failure);
      bool threw = false;
      try {
        GetParam().run(*interact);
      } catch (...) {
        threw = true;
      }
      const bool failed = !Gate().FailedOperation().empty();
      Gate().StopFailing();
      if (!failed) {
        EXPECT_FALSE(threw);
        EXPECT_GT(n, 1u);
        break;
      }
      // No lock is left held.
      interact->RegisterSystemProcess(2, 4);
      EXPECT_TRUE(interact->AddMonitorObject(false, "/a", 1));
      interact->SendMonitorObjects(1);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultInjectionOperations, ::testing::ValuesIn(kOperations),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(FaultInjectionRequests, SendingMonitorObjectsReportsTheObjectThatFailed) {
  const auto interact = ReadyInteract();
  const auto queue = [&] {
    interact->AddMonitorObject(false, "/x/a", 1);
    interact->AddMonitorObject(false, "/x/b", 1);
    Forget();
  };
  queue();
  interact->SendMonitorObjects(1);
  const Lines clean = CountedCalls();
  const std::size_t firstSent = Find(clean, "CPortClient::Send(1,");
  const std::size_t secondBegun = Find(clean, "CUtility::CreateBuffer", firstSent);
  const std::size_t secondSent = Find(clean, "CPortClient::Send(1,", firstSent + 1);
  const std::size_t commitBegun = Find(clean, "CUtility::CreateBuffer", secondSent);
  const std::size_t commitSent = Find(clean, "CPortClient::Send(3,");
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    queue();
    Gate().FailAt(position + 1, failure);
    interact->SendMonitorObjects(1);
    const Lines logged = Logged();
    const std::string a = Event("[Add Monitor OK!][obj path]=/x/a"), b = Event("[Add Monitor OK!][obj path]=/x/b");
    const std::string report = Report("wdi,wdpm", failure);
    if (position < secondBegun) {
      EXPECT_EQ(logged, (Lines{Problem("[Add Monitor Failed!][obj path]=/x/a" + report), b}));
    } else if (position < commitBegun) {
      EXPECT_EQ(logged, (Lines{Problem("[Add Monitor Failed!][obj path]=/x/b" + report), a}));
    } else if (position <= commitSent) {
      EXPECT_EQ(logged, (Lines{Problem(Report("wdi,wdpm-2", failure)), a, b}));
    } else {
      EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u) << "a failing log or translation is swallowed";
    }
  });
}

TEST_F(FaultInjectionRequests, AFailedNetControlItemCountsOnce) {
  const auto interact = ReadyInteract();
  interact->AddNetControlItems(1, TwoItems());
  const Lines clean = CountedCalls();
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    if (OutcomeInItemList(clean, position).kind != Outcome::Kind::kSwallowed) return;
    Forget();
    Gate().FailAt(position + 1, failure);
    interact->AddNetControlItems(1, TwoItems());
    EXPECT_EQ(Logged(), Lines{Problem("[Add Net Control Item Failed!][Failed Counter]=1")});
  });
}

}  // namespace fenlux::testing
