// `fenlux-host drive`: the emulated driver is clean, and each fault that a test gives it is reported.
#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/integration/host_process.h"

namespace fenlux::testing {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

// Waits for the last request of the policy.
constexpr char kAwait[] = "[[steps]]\nawait_request = 24\nlimit_ms = 240000\n";
// A long deadline, because the machine may be busy.
constexpr char kLongDeadline[] = "[emulator]\nscenario = 'scenario.toml'\ndeadline_ms = 60000\n";

class Drive : public ::testing::Test {
 protected:
  void Write(const std::string& settings, const std::string& scenario) const {
    setup.Write("scenario.toml", scenario);
    setup.Write("host.toml", settings);
  }
  Outcome Run(const Arguments& more = {}) const {
    Arguments arguments{"drive", "--config", (setup.Path() / "host.toml").string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return setup.Run(arguments);
  }
  // Does not wait for the module to reconnect, which takes five seconds.
  Outcome RunBriefly(Arguments more = {}) const {
    more.insert(more.end(), {"--no-reconnect", "--limit", "240s", "--duration", "60s"});
    return Run(more);
  }
  std::string File(const std::string& name) const { return (setup.Path() / name).string(); }

  HostSetup setup;
};

// A step with a notification of code 4098, from the lengths of its items and the bytes that follow the fixed part.
std::string Raw(std::uint8_t length1, std::uint8_t length2, std::uint8_t length3, const std::string& items) {
  std::vector<std::uint8_t> fixed(156);
  fixed[20] = 0x02;
  fixed[21] = 0x10;
  fixed[30] = length1;
  fixed[34] = length2;
  fixed[38] = length3;
  std::string hex;
  for (const std::uint8_t byte : fixed) {
    hex += "0123456789abcdef"[byte / 16];
    hex += "0123456789abcdef"[byte % 16];
  }
  return "[[steps]]\nraw_hex = '" + hex + items + "'\n";
}

struct Fault {
  std::string name;
  std::string settings;  // of the emulator's faults
  std::string steps;     // of the scenario
  std::string line;
};

constexpr char kNone[] = "";

const std::vector<Fault> kFaults{
    {"refuses a connection", "refuse_connects = 1", kNone,
     "WRONG connect: connection: refused: the driver refuses the connection"},
    {"drops the connection", kNone, "[[steps]]\ndrop = true\n", "WRONG connection: connection: ended by the driver"},
    {"rejects a command", "fail_send = { command = 6 }", kNone,
     "WRONG requests: request 6 (grsp switch): rejected: the driver fails on request"},
    {"does not answer the version request", "version_reply = 'empty'", kNone,
     "WRONG version-reply: version reply: there is none"},
    {"answers the version request with a byte too few", "version_reply = 'short'", kNone,
     "WRONG version-reply: version reply, size: 65560 bytes"},
    {"reports another version", "driver_version = 19072700", kNone,
     "WRONG version-reply: version reply, version at 12: 19072700, not 19072701"},
    {"sends less than the fixed part", kNone, "[[steps]]\nnotify = 4098\nsize = 155\n",
     "WRONG notification-size: notification, size: 155 bytes"},
    {"sends an unknown code", kNone, "[[steps]]\nnotify = 4115\npath = '/a'\n",
     "WRONG notification-code: notification, code at 20: 4115"},
    {"announces an item that is not there", kNone, Raw(0, 8, 0, ""),
     "WRONG notification-items: notification 4098, second path, length at 34: begins at 156 of 156 bytes"},
    {"announces more of an item than there is", kNone, Raw(0, 0, 255, "010203"),
     "WRONG notification-items: notification 4098, extra data, length at 38: 255 bytes from 156 on end at 411 of 159"},
    {"sends a text of an odd length", kNone, Raw(5, 0, 0, "2f00610000"),
     "WRONG notification-texts: notification 4098, path, length at 30: 5 bytes, an odd number"},
    {"does not count the NUL", kNone, Raw(4, 0, 0, "2f006100"),
     "WRONG notification-texts: notification 4098, path, length at 30: no NUL in its 4 bytes"},
};

// The first lines of the findings.
std::vector<std::string> Findings(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = text.find("\nWRONG "); at != std::string::npos; at = text.find("\nWRONG ", at + 1)) {
    lines.push_back(text.substr(at + 1, text.find('\n', at + 1) - at - 1));
  }
  return lines;
}

TEST_F(Drive, TheEmulatorIsClean) {
  const Outcome outcome = setup.Run({"drive", "--config", FENLUX_EXAMPLES "/drive.toml", "--limit", "240s"});
  EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, EndsWith("\n\nclean\n"));
  for (const char* line : {"  ok        connect             accepts every connection of the module (2 attempts)\n",
                           "  ok        reconnect  ", ", all 15 commands)\n", "  ok        version-reply  ",
                           "  ok        notification-items  ", "  ok        notification-texts  "}) {
    EXPECT_THAT(outcome.out, HasSubstr(line));
  }
  EXPECT_EQ(outcome.out.find("not seen"), std::string::npos) << outcome.out;
}

TEST_F(Drive, EachFaultIsReported) {
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.name);
    Write(std::string(kLongDeadline) + "[emulator.faults]\n" + fault.settings, std::string(kAwait) + fault.steps);
    const Outcome outcome = RunBriefly();
    EXPECT_EQ(outcome.code, 4) << outcome.out << outcome.err;
    EXPECT_EQ(Findings(outcome.out), std::vector<std::string>{fault.line}) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, EndsWith("\n1 finding\n"));
  }
}

TEST_F(Drive, ADriverThatRefusesASecondConnectionIsReported) {
  Write(kLongDeadline, std::string(kAwait) + "[[steps]]\nfaults = { refuse_connects = 1000 }\n");
  const Outcome outcome = Run({"--limit", "240s", "--timeout", "5s"});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_EQ(Findings(outcome.out),
            (std::vector<std::string>{"WRONG connect: connection: refused: the driver refuses the connection",
                                      "WRONG reconnect: connection: none after the module closed the last one"}));
}

TEST_F(Drive, ADriverThatNeverConnectsIsReported) {
  Write(std::string(kLongDeadline) + "[emulator.faults]\nrefuse_connects = 1000\n", kNone);
  const Outcome outcome = RunBriefly({"--timeout", "5s"});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nWRONG connect: connection: refused: the driver refuses the connection\n"));
  EXPECT_THAT(outcome.out, EndsWith("\nnot everything was tried: no connection was ready\n1 finding\n"));
}

TEST_F(Drive, ADriverThatDoesNotAnswerARequestIsReported) {
  Write(std::string(kLongDeadline) + "[emulator.faults]\ndelay_requests_ms = 3600000\n", kNone);
  const Outcome outcome = Run({"--timeout", "5s", "--limit", "300ms", "--duration", "1ms"});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nWRONG request-time: request 12 (spsp state): no answer\n")) << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr("\nnot everything was tried: \"version\" did not return\n")) << outcome.out;
}

TEST_F(Drive, ASlowDriverIsReported) {
  Write(std::string(kLongDeadline) + "[emulator.faults]\ndelay_requests_ms = 60\n", kNone);
  const Outcome outcome = Run({"--no-reconnect", "--limit", "50ms", "--duration", "1ms"});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_THAT(outcome.out,
              HasSubstr("\nWRONG request-time: request 13 (driver version): answered after more than 50 ms\n"));
}

TEST_F(Drive, ADriverThatDoesNotWaitForAReplyIsReported) {
  Write("[emulator]\nscenario = 'scenario.toml'\ndeadline_ms = 20\n",
        std::string(kAwait) + "[[steps]]\nnotify = 4098\npath = '/a'\nhold_reply_ms = 3600000\n");
  const Outcome outcome = RunBriefly();
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  EXPECT_EQ(Findings(outcome.out),
            std::vector<std::string>{"WRONG replies: reply: the driver no longer waited for it"});
}

TEST_F(Drive, AFindingLocatesItsRecordInTheRecording) {
  Write(kLongDeadline, std::string(kAwait) + "[[steps]]\nnotify = 4115\npath = '/a'\n");
  const Outcome outcome = RunBriefly({"--record", File("port.pcapng"), "--json"});
  EXPECT_EQ(outcome.code, 4) << outcome.err;
  const std::size_t found = outcome.out.find("{\"finding\":");
  ASSERT_NE(found, std::string::npos) << outcome.out;
  const std::string offset =
      JsonValue(outcome.out.substr(found, outcome.out.find('\n', found) - found), "finding.offset");
  const Outcome decoded = setup.Run({"decode", "--json", File("port.pcapng"), "--code", "4115"});
  EXPECT_EQ(decoded.code, 0) << decoded.err;
  EXPECT_EQ(JsonValue(decoded.out, "offset"), offset);
  EXPECT_THAT(outcome.out,
              EndsWith("\"drive\":{\"clean\":false,\"findings\":1,\"commands_not_sent\":[],\"gaps\":[]}}\n"));
}

TEST_F(Drive, WrongInputIsRefused) {
  Write("[module]\nenabled = false\n", kNone);
  Outcome outcome = Run();
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("[module] enabled = false: the module would not connect to the driver\n"));
  Write("[modul]\n", kNone);
  EXPECT_EQ(Run().code, 2);
  Write(kLongDeadline, kNone);
  outcome = Run({"--record", File("no/such/directory")});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("no/such/directory"));
  outcome = Run({"--module", File("no-such-module.so")});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr("cannot load the module: "));
  EXPECT_EQ(Run({"--duration", "soon"}).code, 2);
}

}  // namespace
}  // namespace fenlux::testing
