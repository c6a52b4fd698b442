// Every host call of every operation fails once, in each of the ways in which a call can fail: nothing crashes, nothing
// leaks, and each failure leaves the trace that the operation promises (a named report line, or the failure itself).
//
// Each run is first made without a failure; its journal tells which call is the n-th, and so what its failure must lead
// to.
#include "tests/unit/module/notification_test.h"
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

// Calls that the refresh thread makes beside the thread under test.
const std::vector<std::string> kRefreshThreadsCalls{"CUtility::WriteLog", "CCfgEx::GetRefreshInterval"};

// What a failed call has to lead to.
struct Outcome {
  enum class Kind { kPropagates, kReported, kSwallowed };
  Kind kind;
  std::string tag;  // of the report
};
const Outcome kPropagates{Outcome::Kind::kPropagates, {}};
const Outcome kSwallowed{Outcome::Kind::kSwallowed, {}};
Outcome Reported(std::string tag) { return {Outcome::Kind::kReported, std::move(tag)}; }

std::string Report(const std::string& tag, Failure failure) {
  return failure == Failure::kInt ? "[" + tag + ",OTHE]" : "[" + tag + ",STDE] info=" + MessageOf(failure);
}

// The position of the first entry, from `from` on, that begins with the prefix.
std::size_t Find(const Lines& calls, const std::string& prefix, std::size_t from = 0) {
  for (std::size_t i = from; i < calls.size(); ++i) {
    if (calls[i].rfind(prefix, 0) == 0) return i;
  }
  ADD_FAILURE() << "no " << prefix;
  return calls.size();
}

class SystematicFailure : public ModuleTest {
 protected:
  SystematicFailure() {
    for (const std::string& call : kRefreshThreadsCalls) Gate().LeaveOutOfCount(call);
  }
  Lines CountedCalls() const { return Gate().EntriesWithout(kRefreshThreadsCalls); }

  // Runs with the n-th call failing, for every n and every kind of failure; `prepare` makes what the run works on and
  // `outcome` says, by the journal of a run without a failure and the position of the failing call, what to expect.
  template <class Prepare, class Run, class OutcomeOf>
  void FailEveryCall(Prepare&& prepare, Run&& run, OutcomeOf&& outcome) {
    Lines clean;
    {
      auto subject = prepare();
      Forget();
      run(subject);
      clean = CountedCalls();
    }
    ASSERT_FALSE(clean.empty());
    for (const Failure failure : kAllFailures) {
      for (std::size_t n = 1; n <= clean.size() + 1; ++n) {
        SCOPED_TRACE(std::string(NameOf(failure)) + " at call " + std::to_string(n) + " " +
                     (n <= clean.size() ? clean[n - 1] : "(none)"));
        auto subject = prepare();
        Forget();
        Gate().FailAt(n, failure);
        if (n > clean.size()) {
          run(subject);
          EXPECT_EQ(Gate().FailedOperation(), "") << "a run without a failure made more calls than the first one";
          Gate().StopFailing();
          continue;
        }
        const Outcome expected = outcome(clean, n - 1);
        if (expected.kind == Outcome::Kind::kPropagates) {
          EXPECT_TRUE(Propagates(failure, [&] { run(subject); }));
        } else {
          EXPECT_NO_THROW(run(subject));
        }
        EXPECT_NE(Gate().FailedOperation(), "");
        if (expected.kind == Outcome::Kind::kReported) {
          EXPECT_EQ(Gate().EntriesOf({"CLog::LogProblem"}), Lines{Problem(Report(expected.tag, failure))});
        } else {
          EXPECT_EQ(Gate().Count("CLog::LogProblem(0x10003, [wdi,wdaokd"), 0u);
        }
        Gate().StopFailing();
      }
    }
  }

  // The guarded regions of a connection run.
  static Outcome OfConnectionRun(const Lines& calls, std::size_t position) {
    const std::size_t ready = Find(calls, "CLog::LogEvent");
    const std::size_t switches = Find(calls, "CPortClient::Send(12");
    const std::size_t report = Find(calls, "CCfg::ReportDriverVersion");
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
};

}  // namespace

// ---------------------------------------------------------------- construction

TEST_F(SystematicFailure, OfAnInterfacesConstructionGoesOnAndLeavesNothingBehind) {
  const auto contexts = host.Context().use_count();
  const auto holders = host.Core().use_count();
  FailEveryCall([] { return 0; }, [&](int) { std::make_shared<CWinDriverInteract>(host.Context()); },
                [](const Lines& calls, std::size_t position) {
                  // Behind the construction stands the destructor, which swallows.
                  return position >= Find(calls, "CRecordRegistration::Withdraw") ? kSwallowed : kPropagates;
                });
  EXPECT_EQ(host.Context().use_count(), contexts);
  EXPECT_EQ(host.Core().use_count(), holders);
}

TEST_F(SystematicFailure, OfTheModulesConstructionGoesOnAndLeavesNothingBehind) {
  const auto contexts = host.Context().use_count();
  FailEveryCall([] { return 0; }, [&](int) { CFenluxImpl impl(host.Context()); },
                [](const Lines&, std::size_t) { return kPropagates; });
  EXPECT_EQ(host.Context().use_count(), contexts);
}

TEST_F(SystematicFailure, OfInitGoesOnAndPublishesNothingUnlessItsLastCallFailed) {
  FailEveryCall(
      [] {
        CFenluxImpl::Release();
        return 0;
      },
      [&](int) {
        const auto expectInstance = [&] {
          const std::string failed = Gate().FailedOperation();
          EXPECT_EQ(CFenluxImpl::Instance() != nullptr, failed.empty() || failed == "CGlobalContext::RegisterModule");
        };
        try {
          init(&host.Context());
        } catch (...) {
          expectInstance();
          throw;
        }
        expectInstance();
      },
      [](const Lines&, std::size_t) { return kPropagates; });
  CFenluxImpl::Release();
}

// ---------------------------------------------------------------- the connection run

TEST_F(SystematicFailure, OfTheConnectionRunIsReportedByItsOperationOrGoesOn) {
  FailEveryCall([&] { return std::make_shared<CWinDriverInteract>(host.Context()); },
                [&](auto& interact) {
                  interact->RunDriverConnection();
                  EXPECT_EQ(Gate().Count(Event("Driver interact exit.")), 1u);
                },
                OfConnectionRun);
}

TEST_F(SystematicFailure, OfEverythingFromSomeCallOfTheConnectionRunOnEndsInOrder) {
  Lines clean;
  {
    const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    Forget();
    interact->RunDriverConnection();
    clean = CountedCalls();
  }
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
      Gate().FailFrom(n, failure);
      EXPECT_TRUE(Propagates(failure, [&] { interact->RunDriverConnection(); })) << n;
      EXPECT_ANY_THROW(interact->Shutdown());
      Gate().StopFailing();
    }
  }
}

// ---------------------------------------------------------------- dispatch

namespace {

struct Kind {
  const char* name;
  NotificationBuilder message;
  std::uint32_t decision = 1;
};

const Kind kKinds[] = {
    {"WithoutPath", NotificationBuilder(4098)},
    {"Access", NotificationBuilder(4097).Item1(u"/p").Item2(u"/q").Item3({1, 2}).U32(148, 1).U32(152, 2)},
    {"Endpoint4", NotificationBuilder(4114)},
    {"Endpoint6", NotificationBuilder(4114).U8(114, 1)},
    {"Remote", NotificationBuilder(4116)},
    {"Prefixed", NotificationBuilder(4118).Item1(u"0123456789ab/rest")},
    {"FurtherPath", NotificationBuilder(8204).Item2(u"/q").Item4(u"/four")},
    {"Marked", NotificationBuilder(8194).Item1(u"/p")},
    {"SecondCategory", NotificationBuilder(4109)},
    {"Unanswered", NotificationBuilder(4113).Item1(u"/p")},
    {"Oplock", NotificationBuilder(4098).Oplock(1).Item1(u"/p")},
    {"Context", NotificationBuilder(4098), 5},
    {"Identity", NotificationBuilder(4098).IdentityPresent(1)},
};

class SystematicDispatchFailure : public SystematicFailure, public ::testing::WithParamInterface<Kind> {
 protected:
  SystematicDispatchFailure() {
    Settings().measuring = true;
    Settings().identityTextAdded = true;
    Settings().cacheBypassed = true;  // every query is made every time
    Settings().decision = GetParam().decision;
    Settings().contextData = [] { return Bytes{1, 2, 3}; };
    interact = ReadyInteract();
    message = GetParam().message.Build();
  }
  std::shared_ptr<CBuf> Dispatch() {
    Forget();
    return interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size()));
  }

  enum class Consequence { kNone, kThrown, kUnjudged, kEmpty };
  static Consequence Of(const Lines& calls, std::size_t position) {
    const std::string& call = calls[position];
    const auto is = [&call](const char* prefix) { return call.rfind(prefix, 0) == 0; };
    if (is("CGlobalContext::") || is("CCfg::IsMeasuring") || is("CUtility::CreateMeasurement") ||
        is("CMeasurement::") || is("CLog::LogEvent")) {
      return Consequence::kNone;  // of the measurement
    }
    if (is("CLog::LogDetail") || is("CLocale::")) return Consequence::kNone;  // of the oplock line
    const std::size_t firstReply = Find(calls, "CUtility::CreateBuffer");
    if (position >= firstReply && position <= Find(calls, "CBuf::GetData", firstReply)) return Consequence::kThrown;
    const bool unanswered = GetParam().message.Build()[20] == 0x11 && GetParam().message.Build()[21] == 0x10;
    if (unanswered && position >= Find(calls, "CArpRecord::SetEventType")) return Consequence::kEmpty;
    return Consequence::kUnjudged;
  }
  static std::string ReportOf(Failure failure) { return ReportByKind("wdi,wdaokd", failure); }

  std::shared_ptr<CWinDriverInteract> interact;
  Bytes message;
};

}  // namespace

TEST_P(SystematicDispatchFailure, AlwaysLeavesAReplyAndALineOrCostsNothing) {
  const Bytes judged = BytesOf(Dispatch());
  const Lines clean = CountedCalls();
  ASSERT_EQ(Gate().Count("CLog::LogProblem"), 0u);
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      SCOPED_TRACE(std::string(NameOf(failure)) + " at call " + std::to_string(n) + " " + clean[n - 1]);
      Gate().FailAt(n, failure);
      const Consequence consequence = Of(clean, n - 1);
      if (consequence == Consequence::kThrown) {
        EXPECT_TRUE(Propagates(failure, [&] { Dispatch(); }));
        EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
        continue;
      }
      std::shared_ptr<CBuf> reply;
      ASSERT_NO_THROW(reply = Dispatch());
      EXPECT_NE(Gate().FailedOperation(), "");
      const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
      switch (consequence) {
        case Consequence::kNone:
          EXPECT_TRUE(problems.empty());
          EXPECT_TRUE(SameBytes(judged, BytesOf(reply)));
          break;
        case Consequence::kUnjudged: {
          EXPECT_EQ(problems, Lines{Problem(ReportOf(failure))});
          ASSERT_TRUE(reply);
          const Bytes bytes = BytesOf(reply);
          EXPECT_TRUE(SameBytes(FromHex("e4 42 33 b1 b2 c3 65 53  9c 00 00 00  08 00 00 00"),
                                Bytes(bytes.begin(), bytes.begin() + 16)));
          break;
        }
        case Consequence::kEmpty:
          EXPECT_EQ(problems, Lines{Problem(ReportOf(failure))});
          EXPECT_FALSE(reply);
          break;
        case Consequence::kThrown:
          break;
      }
    }
  }
  Gate().FailAt(clean.size() + 1, Failure::kInt);
  EXPECT_TRUE(SameBytes(judged, BytesOf(Dispatch())));
  EXPECT_EQ(Gate().FailedOperation(), "");
  Gate().StopFailing();
}

TEST_P(SystematicDispatchFailure, OfEverythingFromSomeCallOnStillLeavesAReply) {
  Dispatch();
  const Lines clean = CountedCalls();
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      SCOPED_TRACE(std::string(NameOf(failure)) + " from call " + std::to_string(n) + " " + clean[n - 1] + " on");
      Gate().FailFrom(n, failure);
      const std::size_t firstReply = Find(clean, "CUtility::CreateBuffer");
      if (n - 1 <= Find(clean, "CBuf::GetData", firstReply)) {
        EXPECT_TRUE(Propagates(failure, [&] { Dispatch(); }));
      } else {
        std::shared_ptr<CBuf> reply;
        EXPECT_NO_THROW(reply = Dispatch());
        if (Of(clean, n - 1) == Consequence::kUnjudged) {
          EXPECT_TRUE(reply);
        }
      }
      Gate().StopFailing();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SystematicDispatchFailure, ::testing::ValuesIn(kKinds),
                         [](const auto& instance) { return instance.param.name; });

// ---------------------------------------------------------------- process information

TEST_F(SystematicFailure, OfARefreshPassGoesOnAndLeavesTheCacheAsItWas) {
  Settings().running = [] { return std::set<std::uint64_t>{1, 2, 3}; };
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  info->RefreshAll();
  std::shared_ptr<const CSingleProcessInfo> first;
  FailEveryCall(
      [&] {
        for (const std::uint32_t id : {1u, 2u, 3u}) first = info->GetProcessInfo(id);
        return 0;
      },
      [&](int) {
        try {
          info->RefreshAll();
        } catch (...) {
          Gate().StopFailing();
          EXPECT_EQ(info->GetProcessInfo(3), first);
          throw;
        }
      },
      [](const Lines&, std::size_t) { return kPropagates; });
}

TEST_F(SystematicFailure, OfTheRefreshThreadNeverEndsIt) {
  Settings().refreshInterval = 1000;  // also what the thread falls back to
  Settings().running = [] { return std::set<std::uint64_t>{1, 2}; };
  std::size_t reached = 0;
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1;; ++n) {
      FakeHost own;
      own.Settings().refreshInterval = 1000;
      own.Settings().running = [] { return std::set<std::uint64_t>{1, 2}; };
      const auto info = std::make_shared<CAutoRefreshProcessInfo>(own.Context());
      info->RefreshAll();
      info->GetProcessInfo(1);
      info->GetProcessInfo(2);
      Clock().Reset();
      own.Gate().FailAt(n, failure);
      std::thread thread([&] { info->RefreshThreadMain(); });
      for (int pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(Clock().AwaitParked(1s)) << own.Gate().FailedOperation();
        Clock().Advance(1s);
      }
      EXPECT_TRUE(Clock().AwaitParked(1s));
      info->StopRefresh();
      Clock().Advance(1s);
      thread.join();
      EXPECT_EQ(own.Gate().Count("CLog::"), 0u);
      if (own.Gate().FailedOperation().empty()) break;
      ++reached;
    }
  }
  EXPECT_GE(reached, 4u * 15u) << "lines, intervals and queries of three passes";
}

// ---------------------------------------------------------------- the interface's operations

namespace {

struct Operation {
  const char* name;
  std::function<void(CWinDriverInteract&)> run;
  std::function<Outcome(const Lines&, std::size_t)> outcome;
};

Outcome Always(const Lines&, std::size_t) { return kPropagates; }

std::shared_ptr<NetControlItems> TwoItems() { return std::make_shared<NetControlItems>(2); }

Outcome OfItemList(const Lines& calls, std::size_t position) {
  const std::size_t begun = Find(calls, "CPortClient::Send(21");
  std::size_t last = Find(calls, "CPortClient::Send(22", begun);
  last = Find(calls, "CPortClient::Send(22", last + 1);
  return position > begun && position <= last ? kSwallowed : kPropagates;
}

const Operation kOperations[] = {
    {"AddMonitorObject", [](CWinDriverInteract& i) { i.AddMonitorObject(false, "/a", 1); }, Always},
    {"SendMonitorObjects",
     [](CWinDriverInteract& i) {
       i.AddMonitorObject(false, "/no/such/a", 1);
       i.AddMonitorObject(false, "//host/b", 1);
       i.SendMonitorObjects(1);
     },
     [](const Lines& calls, std::size_t position) {
       return position >= Find(calls, "CUtility::CreateBuffer") ? kSwallowed : kPropagates;
     }},
    {"ClearMonitorObjects", [](CWinDriverInteract& i) { i.ClearMonitorObjects(3); }, Always},
    {"EnterNetControlMode1", [](CWinDriverInteract& i) { i.EnterNetControlMode1(); }, Always},
    {"ApplyNetControlItems", [](CWinDriverInteract& i) { i.ApplyNetControlItems(true, TwoItems()); }, OfItemList},
    {"EnterNetControlMode3", [](CWinDriverInteract& i) { i.EnterNetControlMode3(); }, Always},
    {"AddNetControlItems", [](CWinDriverInteract& i) { i.AddNetControlItems(2, TwoItems()); }, OfItemList},
    {"GetDriverVersion", [](CWinDriverInteract& i) { i.GetDriverVersion(); },
     [](const Lines&, std::size_t) { return Reported("wdi,gdv"); }},
    {"SetGrspSwitch", [](CWinDriverInteract& i) { i.SetGrspSwitch(true, 3); }, Always},
    {"DumpDriverDebugInfo", [](CWinDriverInteract& i) { i.DumpDriverDebugInfo(); }, Always},
    {"SetGrpmSwitch", [](CWinDriverInteract& i) { i.SetGrpmSwitch(true, 3); }, Always},
    {"SetGrdtoValue", [](CWinDriverInteract& i) { i.SetGrdtoValue(true, 3); }, Always},
    {"SetGrharaSwitch", [](CWinDriverInteract& i) { i.SetGrharaSwitch(true, false); }, Always},
    {"SetSpspState", [](CWinDriverInteract& i) { i.SetSpspState(0); },
     [](const Lines&, std::size_t) { return Reported("wdi,spsp"); }},
    {"RegisterSystemProcess", [](CWinDriverInteract& i) { i.RegisterSystemProcess(2, 4); },
     [](const Lines&, std::size_t) { return Reported("wdi,uxp"); }},
    {"SendDriverConfig", [](CWinDriverInteract& i) { i.SendDriverConfig(); }, Always},
    {"StopInteract", [](CWinDriverInteract& i) { i.StopInteract(); }, Always},
    {"Shutdown", [](CWinDriverInteract& i) { i.Shutdown(); }, Always},
    {"CheckDriverVersion", [](CWinDriverInteract& i) { i.CheckDriverVersion(); },
     [](const Lines& calls, std::size_t position) {
       return position < Find(calls, "CCfg::ReportDriverVersion") ? Reported("wdi,gdv") : kPropagates;
     }},
    {"FindSystemProcessId", [](CWinDriverInteract& i) { i.FindSystemProcessId("system32\\csrss.exe"); }, Always},
};

class SystematicOperationFailure : public SystematicFailure, public ::testing::WithParamInterface<Operation> {};

}  // namespace

TEST_P(SystematicOperationFailure, IsReportedSwallowedOrGoesOn) {
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(10)));
  std::shared_ptr<CWinDriverInteract> interact;
  FailEveryCall(
      [&] {
        interact.reset();
        interact = ReadyInteract();
        return interact.get();
      },
      [&](CWinDriverInteract* subject) { GetParam().run(*subject); }, GetParam().outcome);
}

TEST_P(SystematicOperationFailure, NeverCrashesWhereEverythingFailsFromSomeCallOn) {
  host.SetDriverConfigBlock(host.MakeBuffer(Bytes(10)));
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
      const bool reached = !Gate().FailedOperation().empty();
      Gate().StopFailing();
      if (!reached) {
        EXPECT_FALSE(threw);
        EXPECT_GT(n, 1u);
        break;
      }
      // No lock is left behind, and the interface goes on working.
      interact->RegisterSystemProcess(2, 4);
      EXPECT_TRUE(interact->AddMonitorObject(false, "/a", 1));
      interact->SendMonitorObjects(1);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, SystematicOperationFailure, ::testing::ValuesIn(kOperations),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(SystematicFailure, OfSendingMonitorObjectsNamesTheObjectItHit) {
  const auto interact = ReadyInteract();
  const auto run = [&] {
    interact->AddMonitorObject(false, "/x/a", 1);
    interact->AddMonitorObject(false, "/x/b", 1);
    Forget();
    interact->SendMonitorObjects(1);
  };
  run();
  const Lines clean = CountedCalls();
  const std::size_t firstSent = Find(clean, "CPortClient::Send(1,");
  const std::size_t secondBegun = Find(clean, "CUtility::CreateBuffer", firstSent);
  const std::size_t secondSent = Find(clean, "CPortClient::Send(1,", firstSent + 1);
  const std::size_t commitBegun = Find(clean, "CUtility::CreateBuffer", secondSent);
  const std::size_t commitSent = Find(clean, "CPortClient::Send(3,");
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      SCOPED_TRACE(std::string(NameOf(failure)) + " at call " + std::to_string(n) + " " + clean[n - 1]);
      interact->AddMonitorObject(false, "/x/a", 1);
      interact->AddMonitorObject(false, "/x/b", 1);
      Forget();
      Gate().FailAt(n, failure);
      interact->SendMonitorObjects(1);
      const std::size_t position = n - 1;
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
    }
  }
}

TEST_F(SystematicFailure, OfNetControlItemsIsOneCount) {
  const auto interact = ReadyInteract();
  interact->AddNetControlItems(1, TwoItems());
  const Lines clean = CountedCalls();
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      if (OfItemList(clean, n - 1).kind != Outcome::Kind::kSwallowed) continue;
      Forget();
      Gate().FailAt(n, failure);
      interact->AddNetControlItems(1, TwoItems());
      EXPECT_EQ(Logged(), Lines{Problem("[Add Net Control Item Failed!][Failed Counter]=1")}) << clean[n - 1];
    }
  }
}

// ---------------------------------------------------------------- the workers

namespace {
class SystematicWorkerFailure : public WorkerTest {
 protected:
  SystematicWorkerFailure() {
    for (const std::string& call : kRefreshThreadsCalls) Gate().LeaveOutOfCount(call);
  }
  Lines CountedCalls() const { return Gate().EntriesWithout(kRefreshThreadsCalls); }
};
}  // namespace

TEST_F(SystematicWorkerFailure, OfTheConnectionWorkerIsReportedAndTheNextAttemptIsWhole) {
  // Ten minutes between two attempts: the alert, which has a test of its own, is never due.
  std::size_t attempts = 0;
  const auto runAttempt = [&] {
    Forget();
    if (attempts == 0) {
      StartConnectionWorker();
    } else {
      Clock().Advance(600s);
    }
    ++attempts;
    ASSERT_TRUE(Clock().AwaitPauses(5s, attempts));
    ASSERT_TRUE(Clock().AwaitParked(5s));
  };
  runAttempt();
  runAttempt();
  const Lines clean = CountedCalls();
  const std::size_t constructed = Find(clean, "CPortClient::Close");  // the destructor of the interface before
  const std::size_t run = constructed + 1;
  const std::size_t ended = Find(clean, Event("Driver interact exit."));
  const Lines runCalls(clean.begin() + static_cast<std::ptrdiff_t>(run),
                       clean.begin() + static_cast<std::ptrdiff_t>(ended) + 1);
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      SCOPED_TRACE(std::string(NameOf(failure)) + " at call " + std::to_string(n) + " " + clean[n - 1]);
      // Two whole attempts: the first may still have the remains of a failed one to put away.
      runAttempt();
      runAttempt();
      ASSERT_EQ(CountedCalls(), clean);
      Gate().FailAt(n, failure);
      runAttempt();
      EXPECT_NE(Gate().FailedOperation(), "");
      const std::size_t position = n - 1;
      const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
      if (position == constructed) {
        EXPECT_TRUE(problems.empty()) << "a destructor swallows";
      } else if (position < constructed) {
        EXPECT_EQ(problems, Lines{Problem(InnerReport(failure))});
      } else if (position > ended) {
        EXPECT_EQ(problems, Lines{Problem(OuterReport(failure))});
      } else {
        const std::size_t ready = Find(runCalls, "CLog::LogEvent");
        const std::size_t switches = Find(runCalls, "CPortClient::Send(12");
        const std::size_t report = Find(runCalls, "CCfg::ReportDriverVersion");
        const std::size_t inRun = position - run;
        std::string tag;
        if (inRun > ready && inRun <= switches) tag = "wdi,spsp";
        if (inRun > switches && inRun < report) tag = "wdi,gdv";
        std::size_t from = report;
        for (int process = 0; process < 2; ++process) {
          const std::size_t value = Find(runCalls, "CWinWork::QueryProcessValue", from);
          from = Find(runCalls, "CPortClient::Send(20", value);
          if (inRun > value && inRun <= from) tag = "wdi,uxp";
        }
        EXPECT_EQ(problems, Lines{Problem(tag.empty() ? InnerReport(failure) : Report(tag, failure))});
      }
    }
  }
  runAttempt();
  runAttempt();
  EXPECT_EQ(CountedCalls(), clean);
}

TEST_F(SystematicWorkerFailure, OfThePolicyWorkerIsReportedAndThePolicyAppliedAgain) {
  const TemporaryDirectory directory;
  host.SetPolicy({directory.Path(), directory.Path() / "missing", directory.MakeFile("file")});
  constexpr char kLastCall[] = "CPortClient::Send(24, no reply, true)";
  Connect();
  bool waiting = false;  // in the wait for a change, as against the pause after a failure

  // Has a pass made, with its n-th call failing where n is not 0, that ends in the wait or in the pause.
  const auto runPass = [&](bool endsInWait, std::size_t n, Failure failure) {
    impl->GetDriverInteract()->ClearMonitorObjects(1);  // what a failed pass had queued
    Forget();
    if (n != 0) Gate().FailAt(n, failure);
    if (waiting) {
      const auto begun = std::make_shared<Turnstile>();
      Gate().OnCall("CCfgEx::GetMonitorPolicy", [begun] { begun->Pass(); });
      while (begun->Arrivals() == 0) {
        impl->NotifyPolicyChanged();
        std::this_thread::yield();
      }
      Gate().NoHook("CCfgEx::GetMonitorPolicy");
      begun->Open();
    } else {
      Clock().Advance(1s);
    }
    if (endsInWait) {
      ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
    } else {
      ASSERT_TRUE(Clock().AwaitParked(1s));
    }
    waiting = endsInWait;
  };

  StartPolicyWorker();
  ASSERT_TRUE(Gate().AwaitCount(kLastCall, 1));
  waiting = true;
  runPass(true, 0, {});
  const Lines clean = CountedCalls();
  const std::size_t sending = Find(clean, "CUtility::CreateBuffer");
  const std::size_t sent = Find(clean, "CLog::LogEvent", sending);
  std::size_t reported = 0;
  for (const Failure failure : kAllFailures) {
    for (std::size_t n = 1; n <= clean.size(); ++n) {
      SCOPED_TRACE(std::string(NameOf(failure)) + " at call " + std::to_string(n) + " " + clean[n - 1]);
      const bool swallowed = n - 1 >= sending && n - 1 <= sent;
      runPass(swallowed, n, failure);
      if (::testing::Test::HasFatalFailure()) return;
      EXPECT_NE(Gate().FailedOperation(), "");
      const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
      if (!swallowed) {
        ++reported;
        ASSERT_FALSE(problems.empty());
        EXPECT_EQ(problems.back(), Problem(Report("DCI,rc", failure)));
      }
      for (const std::string& problem : problems) {
        EXPECT_TRUE(!swallowed || problem.find("[DCI,rc") == std::string::npos) << problem;
      }
    }
  }
  EXPECT_GT(reported, 0u);
  runPass(true, 0, {});
  EXPECT_EQ(CountedCalls(), clean);
}

}  // namespace fenlux::testing
