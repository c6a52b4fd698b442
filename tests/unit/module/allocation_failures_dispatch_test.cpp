// Allocation failures while notifications are dispatched.
#include "connection/notification_table.h"
#include "tests/unit/module/allocation_failures.h"

namespace fenlux::testing {
namespace {

class AllocationFailuresDispatch : public NotificationTest, public ::testing::WithParamInterface<std::uint32_t> {
 protected:
  AllocationFailuresDispatch() {
    Settings().measuring = true;
    Settings().identityTextAdded = true;
    Settings().cacheBypassed = true;  // every query is made every time
    Settings().contextData = [] { return Bytes{1, 2, 3}; };
    // Long enough that each text needs an allocation.
    Settings().narrowText = [](std::uint32_t) { return std::string(100, 'n'); };
    Settings().wideText = [](std::uint32_t) { return std::wstring(100, L'w'); };
    Settings().identityText = std::string(100, 'i');
    Settings().measured = std::string(100, 'm');
    Settings().description = std::string(100, 'd');
    interact = ReadyInteract();
  }

  // Fails every allocation while the message is dispatched, and compares with its reply without a failure.
  void FailEveryAllocationOf(const std::string& name, const NotificationBuilder& builder) {
    const Bytes message = builder.Build();
    const auto judged = Dispatch(message);
    const Bytes expected = judged ? BytesOf(judged) : Bytes();
    ASSERT_EQ(Gate().Count("CLog::LogProblem"), 0u);
    std::size_t unanswered = 0;
    FailEveryAllocation(name, [&](std::size_t n) {
      Forget();
      std::shared_ptr<CBuf> reply;
      const Attempt attempt =
          WithFailure(n, [&] { reply = interact->DispatchNotification(message.data(), Size(message)); });
      EXPECT_EQ(attempt.other, "");
      const Lines problems = Gate().EntriesOf({"CLog::LogProblem"});
      if (attempt.threw) {
        ++unanswered;
        EXPECT_TRUE(attempt.failed);
        EXPECT_EQ(Gate().Count("CArpMgmt::CreateRecord"), 0u) << "only the first reply buffer may fail";
      } else if (problems.empty()) {
        EXPECT_EQ(reply ? BytesOf(reply) : Bytes(), expected);
      } else {
        EXPECT_TRUE(attempt.failed);
        EXPECT_EQ(problems, Lines{Problem("[wdi,wdaokd,STDE] info=std::bad_alloc")});
        EXPECT_TRUE(reply || !judged);
        if (reply) {
          EXPECT_EQ(BytesOf(reply).at(12), 8u);
        }
      }
      // The next one is handled as if nothing had happened.
      const auto next = Dispatch(message);
      EXPECT_EQ(next ? BytesOf(next) : Bytes(), expected);
      EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
      return attempt.failed;
    });
    std::shared_ptr<CBuf> buffer;
    EXPECT_EQ(unanswered, AllocationsOf([&] { host.Utility()->CreateBuffer(buffer, true, 156, false); }));
  }

  static std::uint32_t Size(const Bytes& message) { return static_cast<std::uint32_t>(message.size()); }
};

const std::u16string kLong(100, u'p');

// A notification of the code with every item.
NotificationBuilder Full(std::uint32_t code) {
  NotificationBuilder builder(code);
  builder.Item1(u"0123456789ab" + kLong).Item2(kLong).Item3(Bytes(100, 7)).IdentityPresent(1);
  if (code == 8204) builder.Item4(kLong);
  return builder;
}

std::vector<std::uint32_t> Codes() {
  std::vector<std::uint32_t> codes;
  for (std::uint32_t code = 4096; code < 8400; ++code) {
    if (FindNotificationRow(code) != nullptr) codes.push_back(code);
  }
  return codes;
}

}  // namespace

TEST_P(AllocationFailuresDispatch, LoseNoReplyWhateverTheDecision) {
  const std::string name = "dispatch of code " + std::to_string(GetParam());
  FailEveryAllocationOf(name, Full(GetParam()));
  Settings().decision = 5;
  FailEveryAllocationOf(name + ", decision 5", Full(GetParam()).Variant(1));
}

INSTANTIATE_TEST_SUITE_P(EveryCode, AllocationFailuresDispatch, ::testing::ValuesIn(Codes()),
                         [](const auto& instance) { return "Code" + std::to_string(instance.param); });

class AllocationFailuresOtherMessages : public AllocationFailuresDispatch {};

TEST_P(AllocationFailuresOtherMessages, LoseNoReply) {
  FailEveryAllocationOf("dispatch of an oplock break", Full(GetParam()).Oplock(1));
  Settings().measuring = false;
  Settings().cacheBypassed = false;
  FailEveryAllocationOf("dispatch with the process cache", Full(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Kinds, AllocationFailuresOtherMessages, ::testing::Values(4098u));

// A message that cannot be judged: its report may fail too.
TEST_P(AllocationFailuresOtherMessages, LoseNoReplyToAMalformedMessage) {
  const Bytes message(100, 0xEE);
  FailEveryAllocation("dispatch of a malformed message", [&](std::size_t n) {
    Forget();
    std::shared_ptr<CBuf> reply;
    const Attempt attempt =
        WithFailure(n, [&] { reply = interact->DispatchNotification(message.data(), Size(message)); });
    EXPECT_EQ(attempt.other, "");
    if (attempt.threw) {
      EXPECT_TRUE(Gate().EntriesOf({"CLog::LogProblem"}).empty());
    } else {
      EXPECT_TRUE(reply);
      if (reply) {
        EXPECT_EQ(BytesOf(reply).at(12), 8u);
      }
    }
    return attempt.failed;
  });
}

}  // namespace fenlux::testing
