// Recording of a host's port, and `fenlux-host decode`.
#include <gmock/gmock.h>
#include <signal.h>

#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

using nlohmann::json;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string kRecordRules = std::string(kSystemImage) + kSecretsRule;

class Record : public ::testing::Test {
 protected:
  std::string File(const std::string& name = "port.pcapng") const { return (setup.Path() / name).string(); }

  std::vector<json> Decode(const Arguments& more = {}, const std::string& name = "port.pcapng") const {
    Arguments arguments{"decode", "--json", File(name)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = setup.Run(arguments);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    std::vector<json> exchanges;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) exchanges.push_back(json::parse(line));
    return exchanges;
  }
  // The first exchange of the kind whose message has the value under the key; null if there is none.
  static json Find(const std::vector<json>& exchanges, const std::string& kind, const std::string& key = "",
                   const json& value = nullptr) {
    for (const json& exchange : exchanges) {
      if (exchange.at("kind") != kind) continue;
      const json& message = exchange.at("message");
      if (key.empty() || (message.contains(key) && message.at(key) == value)) return exchange;
    }
    return nullptr;
  }

  const HostSetup setup;
};

TEST_F(Record, ARunIsRecordedCompletelyAndDecoded) {
  const std::string directory = setup.Directory("watched");
  setup.WriteHost("stop_at_end = true\n[policy]\ndirectories = ['watched', 'not-there']\n" + kRecordRules,
                  kThreeEvents);
  const Outcome outcome = setup.Run(RunArguments(setup, {"--json", "--record", File()}));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(JsonValue(outcome.out, "summary.recording.dropped"), "0");
  EXPECT_EQ(JsonValue(outcome.out, "summary.recording.error"), "");
  const std::vector<json> exchanges = Decode();
  EXPECT_EQ(JsonValue(outcome.out, "summary.recording.messages"), JsonValue(outcome.out, "summary.recording.written"));

  const json facts = Find(exchanges, "facts");
  ASSERT_FALSE(facts.is_null());
  EXPECT_EQ(facts.at("message").at("client_type"), 1);
  EXPECT_EQ(facts.at("message").at("policy").at(0).at("type"), "directory");
  EXPECT_EQ(facts.at("message").at("policy").at(1).at("type"), "missing");
  EXPECT_FALSE(Find(exchanges, "call", "operation", "start-work").is_null());
  EXPECT_FALSE(Find(exchanges, "call", "operation", "stop").is_null());
  EXPECT_EQ(Find(exchanges, "connect_context").at("message").at("clientType"), 1);
  EXPECT_EQ(Find(exchanges, "request", "path", directory).at("name"), "add monitor object");
  const json version = Find(exchanges, "request", "command", 13);
  EXPECT_EQ(version.at("reply").at("version"), 19072701);
  EXPECT_FALSE(Find(exchanges, "closed").is_null());

  const json secret = Find(exchanges, "notification", "code", 4098);
  ASSERT_FALSE(secret.is_null());
  EXPECT_EQ(secret.at("message").at("path"), "/a/x.secret");
  EXPECT_EQ(secret.at("judgement").at("decision"), 3);
  EXPECT_EQ(secret.at("judgement").at("rule"), "secrets");
  EXPECT_EQ(secret.at("reply").at("verdict"), 4);
  EXPECT_GT(secret.at("latency_us").get<double>(), 0.0);
  const json unanswered = Find(exchanges, "notification", "code", 4113);
  EXPECT_TRUE(unanswered.at("reply").is_null());
  EXPECT_FALSE(unanswered.contains("unanswered"));

  EXPECT_EQ(Decode({"--code", "4099"}).size(), 1u);
  EXPECT_EQ(Decode({"--verdict", "4"}).size(), 1u);
  EXPECT_EQ(Decode({"--path", "*.secret"}).size(), 1u);
  EXPECT_THAT(Decode({"--slow", "1e9"}), IsEmpty());
  EXPECT_EQ(boost::filesystem::status(File()).permissions(),
            boost::filesystem::owner_read | boost::filesystem::owner_write);
}

TEST_F(Record, TheConfigurationSaysWhereAndWhatIsRecorded) {
  setup.WriteHost("stop_at_end = true\n[capture]\nfile = 'port.pcapng'\nkinds = ['notifications']\n" + kRecordRules,
                  kThreeEvents);
  ASSERT_EQ(setup.Run(RunArguments(setup)).code, 0);
  const std::vector<json> exchanges = Decode();
  EXPECT_TRUE(Find(exchanges, "request").is_null());
  EXPECT_TRUE(Find(exchanges, "facts").is_null());
  EXPECT_FALSE(Find(exchanges, "connect_context").is_null());
  EXPECT_FALSE(Find(exchanges, "notification", "code", 4098).is_null());
}

TEST_F(Record, AWrongTableIsReported) {
  setup.WriteHost("[capture]\nkinds = ['words']\nfiles = 0\nfile_sise_mb = 1\n");
  const Outcome outcome = setup.Run(RunArguments(setup));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("kinds: \"words\" is not one of requests, notifications, judgements"));
  EXPECT_THAT(outcome.err, HasSubstr("capture.files"));
  EXPECT_THAT(outcome.err, HasSubstr("capture.file_sise_mb"));
}

TEST_F(Record, OnlyACaptureIsReplaced) {
  setup.WriteHost("stop_at_end = true\n" + std::string(kSystemImage), kThreeEvents);
  setup.Write("port.pcapng", "a letter");
  const Outcome outcome = setup.Run(RunArguments(setup, {"--record", File()}));
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("port.pcapng exists and is not a capture"));
}

TEST_F(Record, AHostThatIsKilledLeavesCompleteBlocks) {
  setup.WriteHost(kSystemImage, kThreeEvents);
  for (int round = 0; round < 3; ++round) {
    HostProcess host(setup, RunArguments(setup, {"--record", File()}));
    ASSERT_TRUE(host.WaitForError("scenario finished"));
    ASSERT_TRUE(Eventually([&] { return setup.Run({"decode", "--code", "4113", File()}).out != ""; }));
    host.Signal(SIGKILL);
    EXPECT_EQ(host.Wait().code, 128 + SIGKILL);
    EXPECT_FALSE(Find(Decode(), "notification", "code", 4113).is_null());
    boost::filesystem::remove(setup.Path() / "host.sock");
  }
}

TEST_F(Record, ARunningHostIsRecordedOnRequest) {
  setup.WriteHost("[module]\nconfig_block = 'AB'\n");
  HostProcess host(setup, RunArguments(setup));
  ASSERT_TRUE(host.WaitForError("Driver Interact Ready."));
  EXPECT_EQ(JsonValue(setup.ControlJson({"record", "status"}), "active"), "false");
  EXPECT_EQ(setup.Control({"record", "start", File()}).code, 0);
  const Outcome again = setup.Control({"record", "start", File("other.pcapng")});
  EXPECT_EQ(again.code, 1);
  EXPECT_THAT(again.err, HasSubstr("a recording is already active"));
  EXPECT_EQ(setup.Control({"grdto", "77"}).code, 0);
  const std::string status = setup.ControlJson({"record", "status"});
  EXPECT_EQ(JsonValue(status, "active"), "true");
  EXPECT_EQ(JsonValue(status, "file"), File());
  EXPECT_EQ(setup.Control({"record", "stop"}).code, 0);
  EXPECT_EQ(setup.Control({"grdto", "78"}).code, 0);
  const std::vector<json> exchanges = Decode();
  EXPECT_FALSE(Find(exchanges, "facts").is_null());
  EXPECT_FALSE(Find(exchanges, "connect_context").is_null());
  EXPECT_FALSE(Find(exchanges, "request", "value", 77).is_null());
  EXPECT_TRUE(Find(exchanges, "request", "value", 78).is_null());
  const json call = Find(exchanges, "call", "operation", "grdto");
  ASSERT_FALSE(call.is_null());
  EXPECT_EQ(call.at("message").at("arguments").at("value"), "77");
  EXPECT_EQ(setup.Control({"record", "stop"}).code, 1);
  EXPECT_EQ(host.Stop().code, 0);
}

TEST_F(Record, ACaptureIsFollowedAcrossItsRotation) {
  setup.WriteHost("[capture]\nfile = 'port.pcapng'\nfiles = 2\n" + kRecordRules, kThreeEvents);
  HostProcess first(setup, RunArguments(setup));
  ASSERT_TRUE(first.WaitForError("scenario finished"));
  HostProcess decode(setup, {"decode", "--follow", File()});
  EXPECT_TRUE(decode.WaitForOutput("code=4113"));
  EXPECT_EQ(first.Stop().code, 0);
  HostProcess second(setup, RunArguments(setup));
  EXPECT_TRUE(decode.WaitForOutput("code=4113", 2));
  EXPECT_EQ(second.Stop().code, 0);
  EXPECT_EQ(decode.Stop().code, 0);
  EXPECT_FALSE(Find(Decode({}, "port.1.pcapng"), "notification", "code", 4113).is_null());
}

TEST_F(Record, AFileThatIsNotACaptureIsRefused) {
  setup.Write("letter", "not a capture at all");
  Outcome outcome = setup.Run({"decode", File("letter")});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("letter is not a capture\n"));
  outcome = setup.Run({"decode", File("missing\x1b[31m")});
  EXPECT_THAT(outcome.err, HasSubstr("missing\\x1b[31m cannot be opened"));
  outcome = setup.Run({"decode", File("missing")});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("missing cannot be opened: No such file or directory\n"));
  EXPECT_EQ(setup.Run({"decode", setup.Path().string()}).code, 2);
}

TEST_F(Record, DamageIsReportedWithItsOffsetAndTheRestIsRead) {
  const std::string golden = FENLUX_GOLDEN_CAPTURE;
  std::ifstream stream(golden, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  const std::size_t whole = CountOf(setup.Run({"decode", "--json", golden}).out, "\n");
  bytes[92 + 4] = '\x03';  // the length of the first packet's block, which has the facts
  setup.Write("port.pcapng", bytes);
  Outcome outcome = setup.Run({"decode", File()});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("fenlux-host: offset 92: the block states an impossible length of 3 bytes\n"));
  outcome = setup.Run({"decode", "--json", File()});
  EXPECT_EQ(CountOf(outcome.out, "\n"), whole);  // one exchange less, one error more
  EXPECT_THAT(outcome.out, HasSubstr("{\"offset\":92,\"error\":\"the block"));

  setup.Write("port.pcapng", bytes.substr(0, 92) + bytes.substr(92 + 88, 5000));
  outcome = setup.Run({"decode", File()});
  EXPECT_THAT(outcome.err, HasSubstr("the file ends in the middle of a block, which is left out\n"));
}

}  // namespace
}  // namespace fenlux::testing
