// A connection run, from the stop flag to the exit line, and the handler it passes to the port client.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

constexpr char kPortName[] = "\\QORV_SE_Port_5E2C2A32-6CE5-41A1-AEB8-43EE1CBE975E";

class ConnectionRun : public ModuleTest {
 protected:
  std::shared_ptr<CWinDriverInteract> Fresh() {
    auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    Forget();
    return interact;
  }

  // The calls of the connection worker, without those of the refresh thread and accesses to buffers.
  Lines WorkerCalls() const {
    return Gate().EntriesWithout({"CUtility::WriteLog", "CCfgEx::GetRefreshInterval", "CBuf::"});
  }

  const Lines kCompleteRun{"CUtility::CreateBuffer(true, 16, false)",
                           std::string("CUtility::ToNarrowString(") + kPortName + ")",
                           std::string("CWinWork::CreatePortClient(") + kPortName + ", context, 196764, handler, 77)",
                           "CPortClient::Connect()",
                           "CPortClient::Start()",
                           Translation("Driver Interact Ready."),
                           Event("Driver Interact Ready."),
                           "CUtility::CreateBuffer(true, 65561, false)",
                           "CCfg::GetSpspSettings()",
                           "CSpspSettings::GetSpspFlag1()",
                           "CSpspSettings::GetSpspFlag2()",
                           "CSpspSettings::GetSpspFlag3()",
                           "CSpspSettings::GetSpspFlag4()",
                           "CPortClient::Send(12, no reply, true)",
                           "CUtility::CreateBuffer(true, 65561, false)",
                           "CUtility::CreateBuffer(true, 65561, false)",
                           "CPortClient::Send(13, reply, true)",
                           "CCfg::ReportDriverVersion(1, true, 19072701)",
                           "CUtility::QueryVersionFlag()",
                           Translation("Current driver version="),
                           Event("Current driver version=19072701"),
                           Translation("Current fenlux version="),
                           Event("Current fenlux version=19072701"),
                           "CWinWork::SystemPath(system32\\csrss.exe)",
                           "CWinWork::FindProcessesByImage(system-root\\system32\\csrss.exe, 0)",
                           "CWinWork::QueryProcessValue(400, 0)",
                           "CUtility::CreateBuffer(true, 65561, false)",
                           "CPortClient::Send(20, no reply, true)",
                           "CWinWork::SystemPath(system32\\services.exe)",
                           "CWinWork::FindProcessesByImage(system-root\\system32\\services.exe, 0)",
                           "CWinWork::QueryProcessValue(500, 0)",
                           "CUtility::CreateBuffer(true, 65561, false)",
                           "CPortClient::Send(20, no reply, true)",
                           "CPortClient::Wait()",
                           Translation("Driver interact exit."),
                           Event("Driver interact exit.")};
};

}  // namespace

TEST_F(ConnectionRun, MakesItsCallsInOrder) {
  const auto interact = Fresh();
  interact->RunDriverConnection();
  EXPECT_EQ(WorkerCalls(), kCompleteRun);
  Settle();
}

TEST_F(ConnectionRun, RegistersBothSystemProcessesEvenIfWaitReturnsAtOnce) {
  const auto interact = Fresh();
  interact->RunDriverConnection();
  const auto sent = host.RequestsOf(20);
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  14 00 00 00  02 00 00 00  90 01 00 00 00 00 00 00"),
                        sent[0].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  14 00 00 00  03 00 00 00  f4 01 00 00 00 00 00 00"),
                        sent[1].bytes));
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
  Settle();
}

TEST_F(ConnectionRun, LeavesTheReadyFlagSet) {
  const auto interact = Fresh();
  interact->RunDriverConnection();
  EXPECT_TRUE(interact->IsDriverReady());
  EXPECT_FALSE(interact->IsStopRequested());
  Settle();
}

TEST_F(ConnectionRun, LogsOnlyNeedStopIfAlreadyStopped) {
  const auto interact = Fresh();
  interact->StopInteract();
  Forget();
  interact->RunDriverConnection();
  EXPECT_EQ(Gate().Entries(), (Lines{Translation("Need stop."), Problem("Need stop.")}));
  EXPECT_EQ(host.PortClientCount(), 0u);
  EXPECT_FALSE(interact->IsDriverReady());
}

TEST_F(ConnectionRun, TheConnectContextHasClientType1ByDefault) {
  const auto interact = Fresh();
  interact->RunDriverConnection();
  ASSERT_EQ(host.ConnectContexts().size(), 1u);
  EXPECT_TRUE(SameBytes(FromHex("62 4c ac 34 25 d5 18 25  c8 00 00 00  01 00 00 00"), host.ConnectContexts()[0]));
  Settle();
}

TEST_F(ConnectionRun, TheConnectContextHasClientType2IfTheFlagIsSet) {
  Settings().clientTypeFlag = true;
  const auto interact = Fresh();
  interact->RunDriverConnection();
  ASSERT_EQ(host.ConnectContexts().size(), 1u);
  EXPECT_TRUE(SameBytes(FromHex("62 4c ac 34 25 d5 18 25  c8 00 00 00  02 00 00 00"), host.ConnectContexts()[0]));
  Settle();
}

TEST_F(ConnectionRun, ThePortNameHas50Characters) { EXPECT_EQ(std::string(kPortName).size(), 50u); }

TEST_F(ConnectionRun, TheLinesAreTranslated) {
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  const auto interact = Fresh();
  interact->RunDriverConnection();
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}),
            (Lines{Event("<Driver Interact Ready.>"), Event("<Current driver version=>19072701"),
                   Event("<Current fenlux version=>19072701"), Event("<Driver interact exit.>")}));
  interact->StopInteract();
  Forget();
  interact->RunDriverConnection();
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}), Lines{Problem("<Need stop.>")});
}

TEST_F(ConnectionRun, BecomesReadyOnlyAfterThePortClientHasStarted) {
  const auto interact = Fresh();
  bool readyInConnect = true, readyInStart = true, readyInFirstRequest = false;
  Gate().OnCall("CPortClient::Connect", [&] { readyInConnect = interact->IsDriverReady(); });
  Gate().OnCall("CPortClient::Start", [&] { readyInStart = interact->IsDriverReady(); });
  Gate().OnCall("CCfg::GetSpspSettings", [&] { readyInFirstRequest = interact->IsDriverReady(); });
  interact->RunDriverConnection();
  EXPECT_FALSE(readyInConnect);
  EXPECT_FALSE(readyInStart);
  EXPECT_TRUE(readyInFirstRequest);
  Settle();
}

TEST_F(ConnectionRun, AStopDuringCreatePortClientClosesTheNewPortClient) {
  Settings().waitBlocks = true;  // until Close
  const auto interact = Fresh();
  Gate().OnCall("CWinWork::CreatePortClient", [&] { interact->StopInteract(); });
  interact->RunDriverConnection();
  EXPECT_TRUE(host.PortClient()->IsClosed());
  const Lines calls = Gate().EntriesOf({"CPortClient::C", "CPortClient::Start", "CPortClient::Wait"});
  EXPECT_EQ(calls,
            (Lines{"CPortClient::Close()", "CPortClient::Connect()", "CPortClient::Start()", "CPortClient::Wait()"}));
  EXPECT_TRUE(interact->IsStopRequested());
  EXPECT_FALSE(interact->IsDriverReady());
  Forget();
  interact->ClearMonitorObjects(1);
  EXPECT_TRUE(host.Requests().empty());
}

TEST_F(ConnectionRun, AStopJustBeforeTheInterfaceBecomesReadyIsNotLost) {
  Settings().waitBlocks = true;
  const auto interact = Fresh();
  Gate().OnCall("CPortClient::Start", [&] { interact->StopInteract(); });
  interact->RunDriverConnection();
  EXPECT_FALSE(interact->IsDriverReady());
  EXPECT_TRUE(interact->IsStopRequested());
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
}

TEST_F(ConnectionRun, AStopWhileWaitingEndsTheRun) {
  Settings().waitBlocks = true;
  const auto interact = Fresh();
  std::thread worker([&] { interact->RunDriverConnection(); });
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  EXPECT_TRUE(interact->IsDriverReady());
  interact->StopInteract();
  worker.join();
  EXPECT_EQ(Gate().EntriesOf({"CLog::"}).back(), Event("Driver interact exit."));
  EXPECT_FALSE(interact->IsDriverReady());
}

TEST_F(ConnectionRun, AnEmptyPortClientIsARuntimeError) {
  Gate().GiveEmpty("CWinWork::CreatePortClient");
  const auto interact = Fresh();
  EXPECT_FALSE(RuntimeErrorOf([&] { interact->RunDriverConnection(); }).empty());
  EXPECT_FALSE(interact->IsDriverReady());
  Settle();
}

TEST_F(ConnectionRun, AnEmptyConnectContextIsARuntimeError) {
  Gate().GiveEmpty("CUtility::CreateBuffer");
  const auto interact = Fresh();
  EXPECT_FALSE(RuntimeErrorOf([&] { interact->RunDriverConnection(); }).empty());
  EXPECT_EQ(host.PortClientCount(), 0u);
  Settle();
}

TEST_F(ConnectionRun, AFailingHostServiceEndsTheRunAtOnceWithoutALogLine) {
  for (const char* operation :
       {"CUtility::CreateBuffer", "CUtility::ToNarrowString", "CWinWork::CreatePortClient", "CPortClient::Connect",
        "CPortClient::Start", "CLog::LogEvent", "CCfg::ReportDriverVersion", "CUtility::QueryVersionFlag",
        "CWinWork::SystemPath", "CWinWork::FindProcessesByImage", "CWinWork::QueryProcessValue", "CPortClient::Wait"}) {
    for (const Failure failure : kAllFailures) {
      const auto interact = Fresh();
      Gate().FailAt(operation, 1, failure);
      EXPECT_TRUE(Propagates(failure, [&] { interact->RunDriverConnection(); })) << operation;
      EXPECT_EQ(Gate().FailedOperation(), operation);
      EXPECT_EQ(Gate().Count("CLog::LogProblem"), 0u) << operation;
      EXPECT_EQ(Gate().Count("CLog::LogEvent(0x10003, Driver interact exit."), 0u) << operation;
    }
  }
}

TEST_F(ConnectionRun, AFailedFirstRefreshEndsTheRunBeforeAnythingElse) {
  const auto interact = ReadyInteract();
  // The second run of one object refreshes a cache that is not empty.
  const Bytes message = NotificationBuilder(4098, 900).Build();
  ASSERT_TRUE(interact->DispatchNotification(message.data(), static_cast<std::uint32_t>(message.size())));
  Forget();
  Gate().FailAt("CWinWork::GetRunningProcessIds", 1, Failure::kStandard);
  EXPECT_TRUE(Propagates(Failure::kStandard, [&] { interact->RunDriverConnection(); }));
  EXPECT_EQ(Gate().Count("CUtility::CreateBuffer"), 0u);
}

// ---------------------------------------------------------------- the handler

TEST_F(ConnectionRun, TheHandlerDispatches) {
  const auto interact = ReadyInteract();
  const auto reply = host.PortClient()->Deliver(NotificationBuilder(4098).Build());
  ASSERT_TRUE(reply);
  EXPECT_EQ(BytesOf(reply).at(12), 2);
}

TEST_F(ConnectionRun, TheHandlerForwardsAnEmptyReply) {
  const auto interact = ReadyInteract();
  EXPECT_FALSE(host.PortClient()->Deliver(NotificationBuilder(4113).Build()));
}

TEST_F(ConnectionRun, TheHandlerDoesNotKeepTheInterfaceAlive) {
  auto interact = ReadyInteract();
  const std::weak_ptr<CWinDriverInteract> weak = interact;
  const auto client = host.PortClient();
  interact.reset();
  EXPECT_TRUE(weak.expired());
  Forget();
  EXPECT_FALSE(client->Deliver(NotificationBuilder(4098).Build()));
  EXPECT_TRUE(Gate().Entries().empty()) << "a destroyed interface dispatches nothing";
}

TEST_F(ConnectionRun, ANotificationDuringTheConnectionDoesNotChangeTheCountThatAllThreadsShare) {
  const auto interact = Fresh();
  long before = 0;
  long during = 0;
  Gate().OnCall("CAoArp::Evaluate", [&] { during = interact.use_count(); });
  Gate().OnCall("CPortClient::Wait", [&] {
    before = interact.use_count();
    EXPECT_TRUE(host.PortClient()->Deliver(NotificationBuilder(4098).Build()));
  });
  interact->RunDriverConnection();
  Settle();
  EXPECT_GT(before, 1) << "the connection has no handles of its own";
  EXPECT_EQ(during, before);
  EXPECT_EQ(interact.use_count(), 1) << "handles of the connection are left";
}

TEST_F(ConnectionRun, AFailedConnectionLeavesNoHandles) {
  Gate().FailAt("CPortClient::Connect", 1, Failure::kStandard);
  const auto interact = Fresh();
  EXPECT_ANY_THROW(interact->RunDriverConnection());
  EXPECT_EQ(interact.use_count(), 1);
}

TEST_F(ConnectionRun, ANotificationThatOutlivesTheConnectionKeepsTheInterfaceAlive) {
  Settings().waitBlocks = true;
  auto interact = Fresh();
  const std::weak_ptr<CWinDriverInteract> weak = interact;
  std::thread worker([own = interact] { own->RunDriverConnection(); });
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  const auto client = host.PortClient();
  bool aliveInside = false;
  Gate().OnCall("CAoArp::Evaluate", [&] {
    interact->StopInteract();
    worker.join();
    interact.reset();
    aliveInside = !weak.expired();
  });
  const auto reply = client->Deliver(NotificationBuilder(4098).Build());
  ASSERT_TRUE(reply);
  EXPECT_EQ(BytesOf(reply).at(12), 2) << "judged";
  EXPECT_TRUE(aliveInside);
  EXPECT_TRUE(weak.expired());
}

TEST_F(ConnectionRun, TheHandlerKeepsTheInterfaceAliveWhileItRuns) {
  auto interact = ReadyInteract();
  const std::weak_ptr<CWinDriverInteract> weak = interact;
  const auto client = host.PortClient();
  bool aliveInside = false;
  Gate().OnCall("CAoArp::Evaluate", [&] {
    interact.reset();
    aliveInside = !weak.expired();
  });
  EXPECT_TRUE(client->Deliver(NotificationBuilder(4098).Build()));
  EXPECT_TRUE(aliveInside);
  EXPECT_TRUE(weak.expired());
}

TEST_F(ConnectionRun, NotificationsAreAnsweredBeforeTheReadyFlagIsSet) {
  const auto interact = Fresh();
  bool answered = false;
  Gate().OnCall("CPortClient::Start", [&] {
    EXPECT_FALSE(interact->IsDriverReady());
    answered = host.PortClient()->Deliver(NotificationBuilder(4098).Build()) != nullptr;
  });
  interact->RunDriverConnection();
  EXPECT_TRUE(answered);
  Settle();
}

TEST_F(ConnectionRun, OnlyAFailureToCreateTheFirstReplyReachesThePortClient) {
  const auto interact = ReadyInteract();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CUtility::CreateBuffer", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { host.PortClient()->Deliver(NotificationBuilder(4098).Build()); }));
  }
  Gate().GiveEmptyAt("CUtility::CreateBuffer", 1);
  EXPECT_FALSE(RuntimeErrorOf([&] { host.PortClient()->Deliver(NotificationBuilder(4098).Build()); }).empty());
  EXPECT_TRUE(Logged().empty());
}

}  // namespace fenlux::testing
