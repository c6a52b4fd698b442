// Fault injection into the dispatch of every kind of notification.
#include "tests/unit/module/fault_injection.h"
#include "tests/unit/module/notification_test.h"

namespace fenlux::testing {
namespace {

struct NotificationKind {
  const char* name;
  NotificationBuilder message;
  bool answered = true;
  std::uint32_t decision = 1;
};

const NotificationKind kNotificationKinds[] = {
    {"WithoutPath", NotificationBuilder(4098)},
    {"Access", NotificationBuilder(4097).Item1(u"/p").Item2(u"/q").Item3({1, 2}).U32(148, 1).U32(152, 2)},
    {"Endpoint4", NotificationBuilder(4114)},
    {"Endpoint6", NotificationBuilder(4114).U8(114, 1)},
    {"Remote", NotificationBuilder(4116)},
    {"Prefixed", NotificationBuilder(4118).Item1(u"0123456789ab/rest")},
    {"FurtherPath", NotificationBuilder(8204).Item2(u"/q").Item4(u"/four")},
    {"Marked", NotificationBuilder(8194).Item1(u"/p")},
    {"SecondCategory", NotificationBuilder(4109)},
    {"Unanswered", NotificationBuilder(4113).Item1(u"/p"), false},
    {"Oplock", NotificationBuilder(4098).Oplock(1).Item1(u"/p")},
    {"Context", NotificationBuilder(4098), true, 5},
    {"Identity", NotificationBuilder(4098).IdentityPresent(1)},
};

class FaultInjectionDispatch : public NotificationTest, public ::testing::WithParamInterface<NotificationKind> {
 protected:
  FaultInjectionDispatch() {
    ExcludeRefreshThread(Gate());
    Settings().measuring = true;
    Settings().identityTextAdded = true;
    Settings().cacheBypassed = true;  // every query is made every time
    Settings().decision = GetParam().decision;
    Settings().contextData = [] { return Bytes{1, 2, 3}; };
    interact = ReadyInteract();
    message = GetParam().message.Build();
  }

  // What a failed call does to the dispatch.
  enum class Effect { kNone, kThrown, kUnjudged, kEmpty };

  static Effect EffectOf(const Lines& calls, std::size_t position) {
    const std::string& call = calls[position];
    const auto is = [&call](const char* prefix) { return call.rfind(prefix, 0) == 0; };
    if (is("CGlobalContext::") || is("CCfg::IsMeasuring") || is("CUtility::CreateMeasurement") ||
        is("CMeasurement::") || is("CLog::LogEvent")) {
      return Effect::kNone;  // belongs to the measurement
    }
    if (is("CLog::LogDetail") || is("CLocale::")) return Effect::kNone;  // belongs to the oplock line
    if (position >= Find(calls, "CUtility::CreateBuffer") && position <= FirstReplyFilled(calls)) {
      return Effect::kThrown;
    }
    if (!GetParam().answered && position >= Find(calls, "CArpRecord::SetEventType")) return Effect::kEmpty;
    return Effect::kUnjudged;
  }

  // The last call that the first reply needs; a failure up to here reaches the port client.
  static std::size_t FirstReplyFilled(const Lines& calls) {
    return Find(calls, "CBuf::GetData", Find(calls, "CUtility::CreateBuffer"));
  }

  static Bytes StartOf(const Bytes& reply) { return Bytes(reply.begin(), reply.begin() + 16); }

  Bytes message;
};

}  // namespace

TEST_P(FaultInjectionDispatch, EachFailureGetsAnUnjudgedReplyAndAReportOrHasNoEffect) {
  const Bytes judged = BytesOf(Dispatch(message));
  const Lines clean = CountedCalls(Gate());
  ASSERT_EQ(Gate().Count("CLog::LogProblem"), 0u);
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    Gate().FailAt(position + 1, failure);
    const Effect effect = EffectOf(clean, position);
    if (effect == Effect::kThrown) {
      EXPECT_TRUE(Propagates(failure, [&] { Dispatch(message); }));
      EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
      return;
    }
    std::shared_ptr<CBuf> reply;
    ASSERT_NO_THROW(reply = Dispatch(message));
    EXPECT_NE(Gate().FailedOperation(), "");
    const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
    if (effect == Effect::kNone) {
      EXPECT_TRUE(problems.empty());
      EXPECT_TRUE(SameBytes(judged, BytesOf(reply)));
      return;
    }
    EXPECT_EQ(problems, Lines{Problem(ReportByKind("wdi,wdaokd", failure))});
    if (effect == Effect::kEmpty) {
      EXPECT_FALSE(reply);
      return;
    }
    ASSERT_TRUE(reply);
    EXPECT_TRUE(SameBytes(StartOf(GoldenReply(8)), StartOf(BytesOf(reply))));
  });
  Gate().FailAt(clean.size() + 1, Failure::kInt);
  EXPECT_TRUE(SameBytes(judged, BytesOf(Dispatch(message))));
  EXPECT_EQ(Gate().FailedOperation(), "");
  Gate().StopFailing();
}

TEST_P(FaultInjectionDispatch, AReplyIsSentEvenIfEveryCallFromSomePointOnFails) {
  Dispatch(message);
  const Lines clean = CountedCalls(Gate());
  ForEachFault(clean, [&](Failure failure, std::size_t position) {
    Gate().FailFrom(position + 1, failure);
    if (position <= FirstReplyFilled(clean)) {
      EXPECT_TRUE(Propagates(failure, [&] { Dispatch(message); }));
    } else {
      std::shared_ptr<CBuf> reply;
      EXPECT_NO_THROW(reply = Dispatch(message));
      if (EffectOf(clean, position) == Effect::kUnjudged) {
        EXPECT_TRUE(reply);
      }
    }
    Gate().StopFailing();
  });
}

INSTANTIATE_TEST_SUITE_P(Kinds, FaultInjectionDispatch, ::testing::ValuesIn(kNotificationKinds),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace fenlux::testing
