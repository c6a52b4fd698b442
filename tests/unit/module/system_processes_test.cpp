// Request 20: registering system processes with the driver.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

constexpr std::uint64_t kNoProcess = 0xFFFFFFFFFFFFFFFF;

class SystemProcesses : public ModuleTest {
 protected:
  void AnswerValues(std::map<std::uint32_t, std::uint32_t> values) {
    Settings().processValue = [values = std::move(values)](std::uint32_t id) {
      const auto found = values.find(id);
      return found != values.end() ? found->second : 0xFFFFFFFF;
    };
  }
  void AnswerProcesses(std::vector<std::uint32_t> ids) {
    Settings().processesOfImage = [ids = std::move(ids)](const std::string&) { return ids; };
  }
};

class SystemProcessesFailure : public SystemProcesses, public ::testing::WithParamInterface<Failure> {};

}  // namespace

TEST_F(SystemProcesses, TheIdIsSentAs64BitsAfterItsKind) {
  const auto interact = ReadyInteract();
  interact->RegisterSystemProcess(2, 0x1122334455667788);
  EXPECT_EQ(Calls(), (Lines{"CUtility::CreateBuffer(true, 65561, false)", "CPortClient::Send(20, no reply, true)"}));
  ASSERT_EQ(host.Requests().size(), 1u);
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  14 00 00 00  02 00 00 00  88 77 66 55 44 33 22 11"),
                        host.Requests()[0].bytes));
}

TEST_F(SystemProcesses, AnIdOfAllOnesIsSkippedSilently) {
  const auto interact = ReadyInteract();
  interact->RegisterSystemProcess(3, kNoProcess);
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(SystemProcesses, NothingIsSentWhileTheConnectionIsNotReady) {
  const auto fresh = NewInteract();
  fresh->RegisterSystemProcess(2, 400);
  EXPECT_TRUE(Gate().Entries().empty());

  const auto stopped = ReadyInteract();
  stopped->StopInteract();
  Forget();
  stopped->RegisterSystemProcess(2, 400);
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(SystemProcesses, RegistrationsAreSerializedFromTheRequestToTheReport) {
  const auto interact = ReadyInteract();
  std::vector<std::unique_ptr<BlockedCall>> others;
  const Lines operations{"CUtility::CreateBuffer", "CPortClient::Send", "CLog::LogProblem"};
  for (const std::string& operation : operations) {
    Gate().OnCall(operation, [&, operation] {
      others.push_back(std::make_unique<BlockedCall>([&] { interact->RegisterSystemProcess(3, kNoProcess); }));
      EXPECT_FALSE(others.back()->ReturnsEarly()) << "while " << operation << " runs";
    });
  }
  Gate().FailAt("CPortClient::Send", 1, Failure::kInt);
  interact->RegisterSystemProcess(2, 400);
  EXPECT_EQ(others.size(), operations.size());
}

TEST_P(SystemProcessesFailure, AFailedSendIsReported) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  interact->RegisterSystemProcess(2, 400);
  EXPECT_EQ(Logged(), Lines{Problem(Report("wdi,uxp", GetParam()))});
}

TEST_P(SystemProcessesFailure, AFailingBufferAndLogAreSwallowedAndTheLockIsReleased) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CUtility::CreateBuffer", 1, GetParam());
  Gate().FailAt("CLog::LogProblem", 1, GetParam());
  interact->RegisterSystemProcess(2, 400);
  EXPECT_TRUE(host.Requests().empty());
  interact->RegisterSystemProcess(2, 400);
  EXPECT_EQ(host.Requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Failures, SystemProcessesFailure, ::testing::ValuesIn(kAllFailures));

TEST_F(SystemProcesses, TheFirstInstanceWithValue0IsFound) {
  const auto interact = NewInteract();
  AnswerProcesses({700, 701, 702});
  AnswerValues({{700, 1}, {701, 0}, {702, 0}});
  EXPECT_EQ(interact->FindSystemProcessId("system32\\csrss.exe"), 701u);
  EXPECT_EQ(Gate().Entries(), (Lines{"CWinWork::SystemPath(system32\\csrss.exe)",
                                     "CWinWork::FindProcessesByImage(system-root\\system32\\csrss.exe, 0)",
                                     "CWinWork::QueryProcessValue(700, 0)", "CWinWork::QueryProcessValue(701, 0)"}));
}

TEST_F(SystemProcesses, AnIdIsZeroExtended) {
  const auto interact = NewInteract();
  AnswerProcesses({0xFFFFFFFF});
  EXPECT_EQ(interact->FindSystemProcessId("system32\\csrss.exe"), 0x00000000FFFFFFFFu);
}

TEST_F(SystemProcesses, WithoutAQualifyingInstanceNoProcessIsFound) {
  const auto interact = NewInteract();
  AnswerProcesses({700, 701});
  AnswerValues({{700, 1}});
  EXPECT_EQ(interact->FindSystemProcessId("system32\\csrss.exe"), kNoProcess);
}

TEST_F(SystemProcesses, AnEmptyListGivesNoProcess) {
  const auto interact = NewInteract();
  AnswerProcesses({});
  EXPECT_EQ(interact->FindSystemProcessId("system32\\services.exe"), kNoProcess);
  EXPECT_EQ(Gate().Count("CWinWork::QueryProcessValue"), 0u);
}

TEST_F(SystemProcesses, AnEmptyListHandleGivesNoProcess) {
  const auto interact = NewInteract();
  Gate().GiveEmpty("CWinWork::FindProcessesByImage");
  EXPECT_EQ(interact->FindSystemProcessId("system32\\services.exe"), kNoProcess);
}

TEST_F(SystemProcesses, TheConnectionRegistersOnlyQualifyingProcesses) {
  Settings().processesOfImage = [](const std::string& image) {
    return image.find("csrss") != std::string::npos ? std::vector<std::uint32_t>{600, 601}
                                                    : std::vector<std::uint32_t>{};
  };
  AnswerValues({{600, 1}, {601, 0}});
  const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
  interact->RunDriverConnection();
  const auto sent = host.RequestsOf(20);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  14 00 00 00  02 00 00 00  59 02 00 00 00 00 00 00"),
                        sent[0].bytes));
  EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u);
  Settle();
}

}  // namespace fenlux::testing
