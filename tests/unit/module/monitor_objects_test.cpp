// Monitor objects: the two pending lists, their requests to the driver, and the log lines about the outcome.
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

class MonitorObjects : public ModuleTest {
 protected:
  std::shared_ptr<CWinDriverInteract> InteractWith(const std::vector<std::string>& paths, int type = 1) {
    auto interact = ReadyInteract();
    for (const auto& path : paths) EXPECT_TRUE(interact->AddMonitorObject(false, path.c_str(), type));
    Forget();
    return interact;
  }

  // The requests sent, as "command:type" plus the path of an add request.
  Lines Sent() const {
    Lines sent;
    for (const SentRequest& request : host.Requests()) {
      std::string entry = std::to_string(request.command) + ":" + std::to_string(request.bytes.at(12));
      if (request.command == 1) {
        entry += " ";
        for (std::size_t i = 25; request.bytes.at(i) != 0; i += 2) entry += static_cast<char>(request.bytes[i]);
      }
      sent.push_back(entry);
    }
    return sent;
  }

  static std::string Ok(const std::string& path) { return Event("[Add Monitor OK!][obj path]=" + path); }
  static std::string Failed(const std::string& path, const std::string& report) {
    return Problem("[Add Monitor Failed!][obj path]=" + path + report);
  }
};

class MonitorObjectsFailure : public MonitorObjects, public ::testing::WithParamInterface<Failure> {
 protected:
  static std::string Report(const std::string& tag) { return testing::Report(tag, GetParam()); }
};

}  // namespace

// ---------------------------------------------------------------- adding

TEST_F(MonitorObjects, AddingQueuesTheConvertedPathAndSendsNothing) {
  const auto interact = ReadyInteract();
  EXPECT_TRUE(interact->AddMonitorObject(false, "/no/such/a", 1));
  EXPECT_EQ(Gate().Entries(), Lines{"CUtility::ToWideString(/no/such/a)"});
}

TEST_F(MonitorObjects, AddingOnTheKernelSideIsRefusedFirst) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(RuntimeErrorOf([&] { interact->AddMonitorObject(true, "/a", 1); }), "NOT supported under windows driver!");
  EXPECT_EQ(RuntimeErrorOf([&] { interact->AddMonitorObject(true, nullptr, 9); }),
            "NOT supported under windows driver!");
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(MonitorObjects, ABadTypeIsRefusedAfterTheConversionAndQueuesNothing) {
  const auto interact = ReadyInteract();
  for (const int type : {-1, 0, 4, 100}) {
    Forget();
    EXPECT_EQ(RuntimeErrorOf([&] { interact->AddMonitorObject(false, "/a", type); }), "[wdi,aodm] bad parameter!");
    EXPECT_EQ(Gate().Entries(), Lines{"CUtility::ToWideString(/a)"});
  }
  interact->SendMonitorObjects(1);
  interact->SendMonitorObjects(3);
  EXPECT_EQ(Sent(), (Lines{"3:1", "3:3"}));
}

TEST_F(MonitorObjects, ANullPathIsRefused) {
  const auto interact = ReadyInteract();
  EXPECT_EQ(RuntimeErrorOf([&] { interact->AddMonitorObject(false, nullptr, 1); }), "[wdi,aodm] bad parameter!");
}

TEST_F(MonitorObjects, AFailedConversionPropagatesAndQueuesNothing) {
  const auto interact = ReadyInteract();
  for (const Failure failure : kAllFailures) {
    Gate().FailAt("CUtility::ToWideString", 1, failure);
    EXPECT_TRUE(Propagates(failure, [&] { interact->AddMonitorObject(false, "/a", 1); }));
  }
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), Lines{"3:1"});
}

TEST_F(MonitorObjects, AddingWorksBeforeTheConnectionIsReady) {
  const auto interact = NewInteract();
  EXPECT_TRUE(interact->AddMonitorObject(false, "/a", 3));
}

// ---------------------------------------------------------------- sending

TEST_F(MonitorObjects, DuplicatesAndOrderAreKept) {
  const auto interact = InteractWith({"/x/b", "/x/a", "/x/b"});
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), (Lines{"1:1 /x/b", "1:1 /x/a", "1:1 /x/b", "3:1"}));
}

TEST_F(MonitorObjects, Types1And2ShareOneListAndType3HasItsOwn) {
  const auto interact = ReadyInteract();
  interact->AddMonitorObject(false, "/one", 1);
  interact->AddMonitorObject(false, "/two", 2);
  interact->AddMonitorObject(false, "/three", 3);
  Forget();
  interact->SendMonitorObjects(2);
  EXPECT_EQ(Sent(), (Lines{"1:2 /one", "1:2 /two", "3:2"})) << "the type sent is the requested type";
  Forget();
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), Lines{"3:1"}) << "the shared list is empty";
  Forget();
  interact->SendMonitorObjects(3);
  EXPECT_EQ(Sent(), (Lines{"1:3 /three", "3:3"}));
}

TEST_F(MonitorObjects, SendingABadTypeThrowsAndSendsAndClearsNothing) {
  const auto interact = InteractWith({"/a"});
  for (const int type : {-1, 0, 4}) {
    EXPECT_EQ(RuntimeErrorOf([&] { interact->SendMonitorObjects(type); }), "[wdi,samtd] bad parameter!");
  }
  EXPECT_TRUE(Gate().Entries().empty());
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), (Lines{"1:1 /a", "3:1"}));
}

TEST_F(MonitorObjects, AnAddRequestCarriesTypeFlagRootAndPath) {
  const TemporaryDirectory directory;
  const auto made = directory.MakeDirectory("watched");
  Settings().testPath = [](const boost::filesystem::path&) { return false; };
  const auto interact = InteractWith({made.string()}, 2);
  interact->SendMonitorObjects(2);

  const auto sent = host.Requests();
  ASSERT_EQ(sent.size(), 2u);
  const std::wstring wide = made.wstring();
  const std::u16string text(wide.begin(), wide.end());  // temporary paths are ASCII
  const std::wstring root = made.root_name().wstring();
  EXPECT_TRUE(SameBytes(Golden(65561)
                            .Hex(0, "e3 4a a3 29 e7 ff 79 8f  01 00 00 00  02 00 00 00  00")
                            .Put(17, Utf16(std::u16string(root.begin(), root.end())))
                            .Put(25, Utf16(text))
                            .Get(),
                        sent[0].bytes));
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  03 00 00 00  02 00 00 00"), sent[1].bytes));
}

TEST_F(MonitorObjects, EachFieldIsFilledWithItsOwnLimit) {
  const auto interact = InteractWith({"//server/share/x"});
  interact->SendMonitorObjects(1);
  // The root name is the path library's: the network root everywhere, a drive only on Windows.
  EXPECT_EQ(Gate().EntriesOf({"CUtility::CopyToField"}),
            (Lines{"CUtility::CopyToField(8, //server)", "CUtility::CopyToField(65536, //server/share/x)"}));
}

TEST_F(MonitorObjects, ADriveIsTheRootNameIfPathsHaveDrives) {
  const auto interact = InteractWith({"C:\\data\\x"});
  interact->SendMonitorObjects(1);
  const std::string root = boost::filesystem::path("C:\\data\\x").root_name().string();
#if defined(_WIN32)
  EXPECT_EQ(root, "C:");
#endif
  EXPECT_EQ(Gate().EntriesOf({"CUtility::CopyToField"}),
            (Lines{"CUtility::CopyToField(8, " + root + ")", "CUtility::CopyToField(65536, C:\\data\\x)"}));
}

TEST_F(MonitorObjects, AMissingPathGetsFlag1WithoutAskingTheHost) {
  const auto interact = InteractWith({"/no/such/path"});
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Gate().Count("CUtility::TestPath"), 0u);
  EXPECT_EQ(host.Requests().at(0).bytes.at(16), 1);
}

TEST_F(MonitorObjects, APathWithUnreadableStatusGetsFlag1WithoutAskingTheHost) {
#if defined(_WIN32)
  GTEST_SKIP() << "creating a link to itself requires privileges on this system";
#endif
  const TemporaryDirectory directory;
  const auto loop = directory.Path() / "loop";
  boost::filesystem::create_symlink(loop, loop);
  boost::system::error_code error;
  ASSERT_EQ(boost::filesystem::status(loop, error).type(), boost::filesystem::status_error);
  Settings().testPath = [](const boost::filesystem::path&) { return false; };
  const auto interact = InteractWith({loop.string()});
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Gate().Count("CUtility::TestPath"), 0u);
  EXPECT_EQ(host.Requests().at(0).bytes.at(16), 1);
}

TEST_F(MonitorObjects, TheHostDecidesTheFlagOfAnExistingPath) {
  const TemporaryDirectory directory;
  const auto there = directory.MakeFile("there");
  for (const bool answer : {false, true}) {
    Settings().testPath = [answer](const boost::filesystem::path&) { return answer; };
    const auto interact = InteractWith({there.string()});
    interact->SendMonitorObjects(1);
    EXPECT_EQ(Gate().Count("CUtility::TestPath"), 1u);
    EXPECT_EQ(host.Requests().at(0).bytes.at(16), answer ? 1 : 0);
  }
}

TEST_F(MonitorObjects, ThePathDoesNotDependOnTheLocale) {
  const auto interact = InteractWith({"/no/such/\xC3\xA9\xE2\x82\xAC"});
  interact->SendMonitorObjects(1);
  const auto sent = host.Requests();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_TRUE(SameBytes(Golden(65561)
                            .Hex(0, "e3 4a a3 29 e7 ff 79 8f  01 00 00 00  01 00 00 00  01")
                            .Put(17, {0, 0})
                            .Put(25, Utf16(u"/no/such/\u00E9\u20AC"))
                            .Get(),
                        sent[0].bytes));
}

TEST_F(MonitorObjects, AnEmptyListSendsOnlyTheCommitAndLogsNothing) {
  const auto interact = ReadyInteract();
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Calls(), (Lines{"CUtility::CreateBuffer(true, 65561, false)", "CPortClient::Send(3, no reply, true)"}));
}

TEST_P(MonitorObjectsFailure, AFailedObjectIsLoggedBeforeTheSuccessfulOnes) {
  const auto interact = InteractWith({"/x/a", "/x/b", "/x/c"});
  Gate().FailAt("CPortClient::Send", 2, GetParam());
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), (Lines{"1:1 /x/a", "1:1 /x/b", "1:1 /x/c", "3:1"}));
  EXPECT_EQ(Logged(), (Lines{Failed("/x/b", Report("wdi,wdpm")), Ok("/x/a"), Ok("/x/c")}));
}

TEST_P(MonitorObjectsFailure, IfAllFailOneLineIsLoggedAndTheCommitIsStillSent) {
  const auto interact = InteractWith({"/x/a", "/x/b"});
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), (Lines{"1:1 /x/a", "1:1 /x/b", "3:1"}));
  EXPECT_EQ(Logged(), Lines{Problem("[wdi,wdpm]Add Monitor All Failed!")});
}

TEST_P(MonitorObjectsFailure, AFailedCommitIsLoggedBeforeTheObjects) {
  const auto interact = InteractWith({"/x/a"});
  Gate().FailAt("CPortClient::Send", 2, GetParam());
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Logged(), (Lines{Problem(Report("wdi,wdpm-2")), Ok("/x/a")}));
}

TEST_P(MonitorObjectsFailure, AFailedCommitOfAnEmptyListIsLogged) {
  const auto interact = ReadyInteract();
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  interact->SendMonitorObjects(3);
  EXPECT_EQ(Logged(), Lines{Problem(Report("wdi,wdpm-2"))});
}

TEST_P(MonitorObjectsFailure, AFailureInAnyStepOfAnAddRequestFailsOnlyThatObject) {
  const TemporaryDirectory directory;
  const std::string there = directory.MakeDirectory("there").string();
  for (const char* operation : {"CUtility::CreateBuffer", "CBuf::GetData", "CUtility::TestPath",
                                "CUtility::CopyToField", "CPortClient::Send"}) {
    const auto interact = InteractWith({there, there});
    Gate().FailAt(operation, 1, GetParam());
    interact->SendMonitorObjects(1);
    EXPECT_EQ(Logged(), (Lines{Failed(there, Report("wdi,wdpm")), Ok(there)})) << operation;
  }
}

TEST_P(MonitorObjectsFailure, AFailingLogIsSwallowedAndTheListIsCleared) {
  const auto interact = InteractWith({"/x/a", "/x/b"});
  Gate().FailAt("CLog::LogEvent", 1, GetParam());
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Logged(), Lines{Ok("/x/a")});
  Forget();
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), Lines{"3:1"});
}

TEST_P(MonitorObjectsFailure, TheListIsClearedWhetherOrNotSendingSucceeds) {
  const auto interact = InteractWith({"/x/a"});
  Gate().FailAlways("CPortClient::Send", GetParam());
  interact->SendMonitorObjects(1);
  Gate().StopFailing();
  Forget();
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), Lines{"3:1"});
}

INSTANTIATE_TEST_SUITE_P(Failures, MonitorObjectsFailure, ::testing::ValuesIn(kAllFailures));

TEST_F(MonitorObjects, WithoutAPortClientEveryObjectFailsAndTheCommitIsReported) {
  const auto interact = NewInteract();
  interact->AddMonitorObject(false, "/x/a", 1);
  Forget();
  interact->SendMonitorObjects(1);
  ASSERT_EQ(Logged().size(), 2u);
  EXPECT_EQ(Logged()[0].rfind("CLog::LogProblem(0x10003, [wdi,wdpm-2,STDE] info=", 0), 0u) << Logged()[0];
  EXPECT_EQ(Logged()[1], Problem("[wdi,wdpm]Add Monitor All Failed!"));
}

TEST_F(MonitorObjects, TheFixedPartsOfTheLinesAreTranslatedAndReportsAreNot) {
  const auto interact = InteractWith({"/x/a", "/x/b"});
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Gate().FailAt("CPortClient::Send", 1, Failure::kInt);
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Logged(), (Lines{Problem("<[Add Monitor Failed!][obj path]=>/x/a[wdi,wdpm,OTHE]"),
                             Event("<[Add Monitor OK!][obj path]=>/x/b")}));
}

TEST_F(MonitorObjects, TheAllFailedLineIsTranslatedAndTheReportOfTheCommitIsNot) {
  const auto interact = InteractWith({"/x/a"});
  Settings().translate = [](const std::string& text) { return "<" + text + ">"; };
  Gate().FailAlways("CPortClient::Send", Failure::kInt);
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Logged(), (Lines{Problem("[wdi,wdpm-2,OTHE]"), Problem("<[wdi,wdpm]Add Monitor All Failed!>")}));
}

TEST_F(MonitorObjects, OneObjectMakesItsCallsInThisOrder) {
  const TemporaryDirectory directory;
  const std::string there = directory.MakeDirectory("there").string();
  const auto interact = InteractWith({there});
  interact->SendMonitorObjects(1);
  const std::string root = boost::filesystem::path(there).root_name().string();
  EXPECT_EQ(Calls(), (Lines{"CUtility::CreateBuffer(true, 65561, false)", "CUtility::TestPath(" + there + ")",
                            "CUtility::CopyToField(8, " + root + ")", "CUtility::CopyToField(65536, " + there + ")",
                            "CPortClient::Send(1, no reply, true)", "CUtility::ToNarrowString(" + there + ")",
                            "CUtility::CreateBuffer(true, 65561, false)", "CPortClient::Send(3, no reply, true)",
                            Translation("[Add Monitor OK!][obj path]="), Ok(there)}));
}

// ---------------------------------------------------------------- clearing

TEST_F(MonitorObjects, ClearingEmptiesTheListAndNotifiesTheDriver) {
  const auto interact = InteractWith({"/a"});
  EXPECT_TRUE(interact->ClearMonitorObjects(2));
  ASSERT_EQ(host.Requests().size(), 1u);
  EXPECT_TRUE(SameBytes(GoldenRequest("e3 4a a3 29 e7 ff 79 8f  03 00 00 00  02 00 00 00"), host.Requests()[0].bytes));
  Forget();
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), Lines{"3:1"});
}

TEST_F(MonitorObjects, ClearingOneListLeavesTheOther) {
  const auto interact = ReadyInteract();
  interact->AddMonitorObject(false, "/one", 1);
  interact->AddMonitorObject(false, "/three", 3);
  interact->ClearMonitorObjects(3);
  Forget();
  interact->SendMonitorObjects(1);
  interact->SendMonitorObjects(3);
  EXPECT_EQ(Sent(), (Lines{"1:1 /one", "3:1", "3:3"}));
}

TEST_F(MonitorObjects, ClearingBeforeTheConnectionIsReadySendsNothing) {
  const auto interact = NewInteract();
  interact->AddMonitorObject(false, "/a", 1);
  Forget();
  EXPECT_TRUE(interact->ClearMonitorObjects(1));
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(MonitorObjects, ClearingAfterTheStopSendsNothing) {
  const auto interact = InteractWith({"/a"});
  interact->StopInteract();
  Forget();
  EXPECT_TRUE(interact->ClearMonitorObjects(1));
  EXPECT_TRUE(Gate().Entries().empty());
}

TEST_F(MonitorObjects, ClearingABadTypeIsRefusedAndReleasesTheLock) {
  const auto interact = InteractWith({"/a"});
  for (const int type : {-5, 0, 4, 99}) {
    EXPECT_EQ(RuntimeErrorOf([&] { interact->ClearMonitorObjects(type); }), "[wdi,gcm] bad parameter!");
  }
  EXPECT_TRUE(Gate().Entries().empty());
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), (Lines{"1:1 /a", "3:1"}));
}

TEST_P(MonitorObjectsFailure, AFailedClearPropagatesButEmptiesTheList) {
  const auto interact = InteractWith({"/a"});
  Gate().FailAt("CPortClient::Send", 1, GetParam());
  EXPECT_TRUE(Propagates(GetParam(), [&] { interact->ClearMonitorObjects(1); }));
  Forget();
  interact->SendMonitorObjects(1);
  EXPECT_EQ(Sent(), Lines{"3:1"});
}

}  // namespace fenlux::testing
