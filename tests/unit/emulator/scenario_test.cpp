// Scenario files: what each kind of step becomes, and every error reported with its position.
#include "refhost/emulator/sources/scenario.h"

#include <unistd.h>

#include <set>

#include "refhost/base/config/config_reader.h"
#include "tests/unit/emulator/emulator_test.h"

namespace fenlux::testing {
namespace {

using namespace refhost;

Scenario ReadScenario(const std::string& text, std::string& errorTexts) {
  ConfigErrors errors;
  const ConfigDocument document(text, "/etc/host/scenario.toml", errors);
  Scenario scenario = ReadScenario(document.Root());
  errorTexts = errors.Text();
  return scenario;
}

// Reads a scenario of one step, which must be valid.
NotifyStep ReadOneStep(const std::string& keys) {
  std::string errors;
  const Scenario scenario = ReadScenario("[[steps]]\n" + keys, errors);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(scenario.steps.size(), 1u);
  return std::get<NotifyStep>(scenario.steps.at(0).action);
}

// The errors of a scenario of one step.
std::string ErrorsOf(const std::string& keys) {
  std::string errors;
  ReadScenario("[[steps]]\n" + keys, errors);
  return errors;
}

TEST(Scenario, IsEmptyByDefault) {
  std::string errors;
  const Scenario scenario = ReadScenario("", errors);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(scenario.threads, 2u);
  EXPECT_EQ(scenario.repeat, 1u);
  EXPECT_TRUE(scenario.steps.empty());
}

TEST(Scenario, ReadsItsSettingsAndFaults) {
  std::string errors;
  const Scenario scenario =
      ReadScenario("name = 'n'\nthreads = 5\nrepeat = 0\n[faults]\nrefuse_connects = 2\n", errors);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(scenario.name, "n");
  EXPECT_EQ(scenario.threads, 5u);
  EXPECT_EQ(scenario.repeat, 0u);
  EXPECT_EQ(scenario.faults.refuseConnects, 2u);
}

TEST(Scenario, ReadsEveryFieldOfANotification) {
  const NotifyStep step = ReadOneStep(R"(notify = 8204
pid = 77
variant = 1
condition_a = 2
condition_b = 3
condition_c = 4
oplock = 5
path = "C:\\a"
second_path = "b"
extra_hex = "01 fF"
further_path = "c"
identity_hex = "0102"
access_kind = 6
access_values = [7, 8]
count = 9
rate = 2.5
threads = 2
expect_verdict = 0
hold_reply_ms = 11
hold_until_end = true
background = true
)");
  const Bytes expected = BuildNotification({.code = 8204,
                                            .processId = 77,
                                            .variant = 1,
                                            .conditionA = 2,
                                            .conditionB = 3,
                                            .conditionC = 4,
                                            .oplock = 5,
                                            .path = u"C:\\a",
                                            .secondPath = u"b",
                                            .extraData = {1, 255},
                                            .furtherPath = u"c",
                                            .identity = {1, 2},
                                            .accessKind = 6,
                                            .accessValueA = 7,
                                            .accessValueB = 8});
  EXPECT_TRUE(SameBytes(expected, step.message));
  EXPECT_EQ(NotificationView(step.message).Code(), 8204u);
  EXPECT_EQ(step.count, 9u);
  EXPECT_EQ(step.ratePerSecond, 2.5);
  EXPECT_EQ(step.threads, 2u);
  EXPECT_EQ(step.expectedVerdict, 0u);
  EXPECT_EQ(step.holdReply, std::chrono::milliseconds(11));
  EXPECT_TRUE(step.holdUntilEnd);
  EXPECT_TRUE(step.inBackground);
}

TEST(Scenario, TheProcessIsTheHostUnlessAnotherIsNamed) {
  const auto self = static_cast<std::uint64_t>(::getpid());
  for (const char* keys : {"notify = 4098", "notify = 4098\nprocess = 'self'"}) {
    EXPECT_TRUE(SameBytes(BuildNotification({.code = 4098, .processId = self}), ReadOneStep(keys).message));
  }
  EXPECT_NE(ErrorsOf("notify = 4098\nprocess = 'other'").find("use pid to name another process by its number"),
            std::string::npos);
}

TEST(Scenario, ReadsEndpointsAndRemoteWords) {
  EXPECT_TRUE(SameBytes(
      BuildNotification({.code = 4114, .processId = 1, .detail = EndpointFields{.port = 80, .address = 0x0100007fu}}),
      ReadOneStep("notify = 4114\npid = 1\nport = 80\naddress = '127.0.0.1'").message));
  std::array<std::uint8_t, 16> loopback{};
  loopback[15] = 1;
  EXPECT_TRUE(SameBytes(
      BuildNotification({.code = 4114, .processId = 1, .detail = EndpointFields{.port = 0, .address = loopback}}),
      ReadOneStep("notify = 4114\npid = 1\naddress = '::1'").message));
  for (const std::uint32_t code : {4116u, 8205u}) {
    EXPECT_TRUE(SameBytes(
        BuildNotification({.code = code, .processId = 1, .detail = RemoteFields{true, {1, 2, 3, 0}}}),
        ReadOneStep("notify = " + std::to_string(code) + "\npid = 1\nremote = true\nwords = [1, 2, 3]").message));
  }
  EXPECT_NE(ErrorsOf("notify = 4114\naddress = 'here'").find("address: is neither an IPv4 nor an IPv6 address"),
            std::string::npos);
  EXPECT_NE(ErrorsOf("notify = 4116\nwords = [1,2,3,4,5]").find("words: has more than four values"), std::string::npos);
  EXPECT_NE(ErrorsOf("notify = 4098\nport = 1"), "");  // this code has no endpoint
}

TEST(Scenario, PlaysBothVariantsAsTwoSteps) {
  std::string errors;
  const Scenario scenario = ReadScenario("[[steps]]\nnotify = 4101\npid = 1\nboth_variants = true\n", errors);
  EXPECT_EQ(errors, "");
  ASSERT_EQ(scenario.steps.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(scenario.steps[i].number, 1u);
    EXPECT_TRUE(SameBytes(BuildNotification({.code = 4101, .processId = 1, .variant = static_cast<std::uint8_t>(i)}),
                          std::get<NotifyStep>(scenario.steps[i].action).message));
  }
}

TEST(Scenario, CutsAMessageToItsSize) {
  EXPECT_EQ(ReadOneStep("notify = 4098\nsize = 155").message.size(), 155u);
  EXPECT_EQ(ReadOneStep("notify = 4098\nsize = 0").message.size(), 0u);
  EXPECT_EQ(NotificationView(ReadOneStep("notify = 4098\nsize = 10").message).Code(), 0u);
}

TEST(Scenario, GeneratesTheSameGarbageFromTheSameSeed) {
  const Bytes first = ReadOneStep("garbage = 300\nseed = 7").message;
  EXPECT_EQ(first.size(), 300u);
  EXPECT_EQ(first, ReadOneStep("garbage = 300\nseed = 7").message);
  EXPECT_NE(first, ReadOneStep("garbage = 300\nseed = 8").message);
  EXPECT_TRUE(ReadOneStep("garbage = 0").message.empty());
}

TEST(Scenario, ReadsARawMessage) {
  const NotifyStep step = ReadOneStep("raw_hex = '01 ff 00'\ncount = 3\nexpect_verdict = 8\n");
  EXPECT_EQ(step.message, (std::vector<std::uint8_t>{0x01, 0xff, 0x00}));
  EXPECT_EQ(step.count, 3u);
  EXPECT_EQ(step.expectedVerdict, 8u);
  EXPECT_NE(ErrorsOf("raw_hex = 'x'").find("steps[0].raw_hex: must be hexadecimal bytes"), std::string::npos)
      << ErrorsOf("raw_hex = 'x'");
}

TEST(Scenario, ReadsANotificationAndItsVerdictFromACapture) {
  const std::string key = std::string("from_capture = '") + FENLUX_GOLDEN_CAPTURE + "'\n";
  std::set<std::optional<std::uint32_t>> verdicts;
  std::size_t notifications = 0;
  for (int exchange = 1; exchange <= 100; ++exchange) {
    const std::string keys = key + "exchange = " + std::to_string(exchange) + "\n";
    if (!ErrorsOf(keys).empty()) continue;  // a request
    ++notifications;
    const NotifyStep step = ReadOneStep(keys);
    EXPECT_GE(step.message.size(), sizeof(records::Notification));
    ASSERT_TRUE(step.expectedVerdict);
    verdicts.insert(step.expectedVerdict);
    EXPECT_EQ(ReadOneStep(keys + "expect_verdict = 5\n").expectedVerdict, 5u);
  }
  EXPECT_GE(notifications, 35u);
  EXPECT_EQ(verdicts, (std::set<std::optional<std::uint32_t>>{0, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(Scenario, SaysWhatIsWrongWithACapture) {
  const std::string golden = std::string("from_capture = '") + FENLUX_GOLDEN_CAPTURE + "'\n";
  EXPECT_NE(ErrorsOf(golden + "exchange = 100000\n").find("has no notification with exchange 100000"),
            std::string::npos);
  EXPECT_NE(ErrorsOf(golden).find("exchange"), std::string::npos);
  EXPECT_NE(ErrorsOf("from_capture = 'missing.pcapng'\nexchange = 1\n").find("missing.pcapng cannot be read: "),
            std::string::npos);
  EXPECT_NE(ErrorsOf("from_capture = '" FENLUX_EXAMPLES_DIRECTORY "'\nexchange = 1\n")
                .find("cannot be read: it is a directory; name a file"),
            std::string::npos);
  EXPECT_NE(
      ErrorsOf("from_capture = '" FENLUX_EXAMPLES_DIRECTORY "/scripted.toml'\nexchange = 1\n").find("is not a capture"),
      std::string::npos);
}

TEST(Scenario, ReadsTheOtherSteps) {
  std::string errors;
  const Scenario scenario = ReadScenario(R"(
[[steps]]
pause_ms = 20
[[steps]]
drop = true
[[steps]]
faults = { version_reply = "empty", fail_send = { exception = "system" } }
[[steps]]
await_request = 24
times = 2
limit_ms = 5
)",
                                         errors);
  EXPECT_EQ(errors, "");
  ASSERT_EQ(scenario.steps.size(), 4u);
  EXPECT_EQ(std::get<PauseStep>(scenario.steps[0].action).duration, std::chrono::milliseconds(20));
  EXPECT_TRUE(std::holds_alternative<DropStep>(scenario.steps[1].action));
  const EmulatorFaults faults = std::get<FaultStep>(scenario.steps[2].action).faults;
  EXPECT_EQ(faults.versionReply, VersionReply::kEmpty);
  EXPECT_EQ(faults.failSend, (FailingSend{0, 1, SendFailure::kSystemError}));
  EXPECT_EQ(faults.dropAfter, std::nullopt);
  const auto await = std::get<AwaitRequestStep>(scenario.steps[3].action);
  EXPECT_EQ(await.command, 24u);
  EXPECT_EQ(await.times, 2u);
  EXPECT_EQ(await.limit, std::chrono::milliseconds(5));
  EXPECT_EQ(scenario.steps[3].number, 4u);
}

TEST(Scenario, ReportsEveryErrorWithItsPosition) {
  struct Case {
    const char* keys;
    const char* reported;
  };
  const Case cases[] = {
      {"count = 1",
       "does nothing; a step has notify, raw_hex, from_capture, garbage, pause_ms, drop, faults or await_request"},
      {"notify = 4098\ndrop = true", ":3:8: steps[0].drop: conflicts with notify; a step does one thing"},
      {"notify = -1", ":2:10: steps[0].notify: "},
      {"notify = 'open'", ":2:10: steps[0].notify: "},
      {"notify = 4098\ncolour = 1", ":3:1: steps[0].colour: "},
      {"notify = 4098\nextra_hex = '1'", "extra_hex: must be hexadecimal bytes"},
      {"notify = 4098\nextra_hex = 'zz'", "extra_hex: must be hexadecimal bytes"},
      {"notify = 4098\naccess_values = [1, 2, 3]", "access_values: has more than two values"},
      {"notify = 4098\nvariant = 256", ":3:11: steps[0].variant: "},
      {"notify = 4098\ncount = 0", ":3:9: steps[0].count: "},
      {"notify = 4098\nthreads = 3", "threads: is more than the scenario's threads"},
      {"notify = 4098\nexpect_verdict = 9", ":3:18: steps[0].expect_verdict: "},
      {"notify = 4098\nsize = 196765", ":3:8: steps[0].size: "},
      {"garbage = 196765", ":2:11: steps[0].garbage: "},
      {"garbage = 1\npath = 'x'", ":3:1: steps[0].path: "},
      {"pause_ms = 3600001", ":2:12: steps[0].pause_ms: "},
      {"drop = false", "drop: can only be true"},
      {"faults = { refuse = 1 }", "refuse: "},
      {"await_request = 2", "await_request: is not a command of the driver"},
  };
  for (const Case& wrong : cases) {
    EXPECT_NE(ErrorsOf(wrong.keys).find(wrong.reported), std::string::npos) << wrong.keys << "\n"
                                                                            << ErrorsOf(wrong.keys);
  }
  const std::string longIdentity = "notify = 4098\nidentity_hex = '" + std::string(130, '0') + "'";
  EXPECT_NE(ErrorsOf(longIdentity).find("identity_hex: has more than 64 bytes"), std::string::npos);
  const std::string longPath = "notify = 4098\npath = '" + std::string(98304, 'p') + "'";
  EXPECT_NE(ErrorsOf(longPath).find("makes a notification of more than 196764 bytes"), std::string::npos);
}

TEST(Scenario, ReportsAMissingFile) {
  ConfigErrors errors;
  EXPECT_TRUE(LoadScenario("/nowhere/scenario.toml", errors).steps.empty());
  EXPECT_FALSE(errors.Empty());
}

// The shipped example has no errors and is complete.
TEST(Scenario, TheExampleContainsEveryCodeInBothVariants) {
  ConfigErrors errors;
  const Scenario scenario = LoadScenario(std::string(FENLUX_EXAMPLES_DIRECTORY) + "/scenario-all-codes.toml", errors);
  ASSERT_EQ(errors.Text(), "");
  std::set<std::pair<std::uint32_t, bool>> played;
  bool oplock = false;
  bool cut = false;
  bool drop = false;
  std::set<std::uint32_t> verdicts;
  for (const ScenarioStep& step : scenario.steps) {
    drop |= std::holds_alternative<DropStep>(step.action);
    const auto* notify = std::get_if<NotifyStep>(&step.action);
    if (notify == nullptr) continue;
    cut |= notify->message.size() == 155;
    if (notify->expectedVerdict) verdicts.insert(*notify->expectedVerdict);
    if (notify->message.size() < 156) continue;
    played.emplace(NotificationView(notify->message).Code(), notify->message[24] != 0);
    oplock |= notify->message[29] != 0;
  }
  std::vector<std::uint32_t> codes{4095, 8192, 8207};
  for (std::uint32_t code = 4096; code <= 4118; ++code) codes.push_back(code);
  for (std::uint32_t code = 8193; code <= 8206; ++code) codes.push_back(code);
  for (const std::uint32_t code : codes) {
    EXPECT_TRUE(played.contains({code, false})) << code;
    EXPECT_TRUE(played.contains({code, true})) << code;
  }
  EXPECT_TRUE(oplock);
  EXPECT_TRUE(cut);
  EXPECT_TRUE(drop);
  EXPECT_TRUE(verdicts.contains(6));
}

}  // namespace
}  // namespace fenlux::testing
