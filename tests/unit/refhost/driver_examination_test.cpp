// What `drive` finds in a recording: nothing if the driver is correct, and each fault if it is not, with exactly these
// texts.
#include "refhost/app/drive/driver_examination.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fenlux/driver_protocol.h"
#include "refhost/app/drive/drive_report.h"
#include "refhost/app/drive/notification_examination.h"
#include "refhost/capture/format/close_reasons.h"
#include "tests/support/record_builders.h"

namespace fenlux::refhost {
namespace {

using capture::Exchange;
using capture::HeldMessage;
using capture::Kind;
using testing::Bytes;
using testing::NotificationBuilder;

constexpr std::uint64_t kMillisecond = 1'000'000;
constexpr std::uint32_t kVersion = 19072701;
constexpr std::uint32_t kCommands[] = {1, 3, 4, 6, 8, 9, 11, 12, 13, 19, 20, 21, 22, 23, 24};

// A recording of a correct driver, to which a test adds a fault.
class Recording {
 public:
  Recording() {
    Open(1);
    for (const std::uint32_t command : kCommands) Request(1, command);
    Notify(NotificationBuilder(4098).Item1(u"\\a").Item2(u"\\b").Item3({1, 2, 3}).Build());
    Notify(NotificationBuilder(8204).Item4(u"\\further").Build());
    Close(1, std::string(capture::kModuleClosed));
    Open(2);
    Request(2, 13);
    outcome.connected = outcome.reconnectTried = outcome.reconnected = true;
    outcome.replies = DriveReplies();
  }

  void Open(std::uint32_t connection) { Add(Kind::kConnectContext, connection).message.bytes.resize(16); }
  void Close(std::uint32_t connection, const std::string& reason) {
    Add(Kind::kClosed, connection).message.bytes.assign(reason.begin(), reason.end());
  }
  // Adds a request that the driver accepts; the reply to the version request contains the version.
  Exchange& Request(std::uint32_t connection, std::uint32_t command) {
    Exchange& exchange = Add(Kind::kRequest, connection);
    exchange.message.bytes.resize(12);
    FenluxStoreU32(exchange.message.bytes.data() + 8, command);
    exchange.message.originalSize = 65561;
    HeldMessage& reply = exchange.reply.Set();
    reply.time = time += kMillisecond;
    if (command == 13) {
      reply.bytes.resize(65561);
      FenluxBuildVersionReply(kVersion, reply.bytes.data(), reply.bytes.size());
      reply.originalSize = reply.bytes.size();
    }
    return exchange;
  }
  void Notify(Bytes message) {
    Exchange& exchange = Add(Kind::kNotification, 1);
    exchange.message.originalSize = message.size();
    exchange.message.bytes = std::move(message);
    HeldMessage& reply = exchange.reply.Set();
    reply.time = time += kMillisecond;
    reply.originalSize = 156;
  }
  // The version request of the first connection.
  HeldMessage& VersionReply() {
    for (Exchange& exchange : exchanges) {
      if (exchange.header.kind == Kind::kRequest && exchange.message.bytes[8] == 13) return *exchange.reply;
    }
    throw std::logic_error("there is none");
  }
  // Advances the clock.
  void Pass(std::uint64_t milliseconds) { time += milliseconds * kMillisecond; }
  Exchange& Last() { return exchanges.back(); }

  DriverExamination Examined() const {
    DriverExamination examination({.request = std::chrono::milliseconds(2000), .version = kVersion});
    for (const Exchange& exchange : exchanges) examination.Add(exchange);
    DriveOutcome ended = outcome;
    ended.end = time;
    examination.Finish(ended);
    return examination;
  }
  std::string Text() const { return DriveText(Examined(), outcome, false); }
  // The first lines of the findings.
  std::vector<std::string> Findings() const {
    std::vector<std::string> lines;
    const std::string text = Text();
    for (std::size_t at = text.find("\nWRONG "); at != std::string::npos; at = text.find("\nWRONG ", at + 1)) {
      lines.push_back(text.substr(at + 1, text.find('\n', at + 1) - at - 1));
    }
    return lines;
  }

  DriveOutcome outcome;

 private:
  Exchange& Add(Kind kind, std::uint32_t connection) {
    Exchange& exchange = exchanges.emplace_back();
    exchange.header = {kind, connection, exchanges.size()};
    exchange.message.time = time += kMillisecond;
    return exchange;
  }

  std::vector<Exchange> exchanges;
  std::uint64_t time = 1'000'000 * kMillisecond;
};

struct Fault {
  std::string_view name;
  std::string_view line;
  std::function<void(Recording& recording)> commit;
};

const std::vector<Fault> kFaults{
    {"refuses a connection", "WRONG connect: connection: refused: access denied",
     [](Recording& recording) {
       recording.Open(3);
       recording.Close(3, "access denied");
     }},
    {"lets the module wait for a connection", "WRONG connect: connection: neither accepted nor refused",
     [](Recording& recording) {
       recording = Recording();
       recording.outcome = {};
     }},
    {"drops the connection", "WRONG connection: connection: ended by the driver",
     [](Recording& recording) { recording.Close(2, std::string(capture::kDriverEnded)); }},
    {"does not accept the next connection", "WRONG reconnect: connection: none after the module closed the last one",
     [](Recording& recording) { recording.outcome.reconnected = false; }},
    {"rejects a command", "WRONG requests: request 24 (driver config): rejected: bad parameter",
     [](Recording& recording) { recording.Request(2, 24).reply->comment = "bad parameter"; }},
    {"never answers a request", "WRONG request-time: request 12 (spsp state): no answer",
     [](Recording& recording) {
       recording.Request(2, 12).reply.Reset();
       recording.Pass(2001);
     }},
    {"answers a request late",
     "WRONG request-time: request 3 (commit monitor objects): answered after more than 2000 ms",
     [](Recording& recording) {
       HeldMessage& reply = *recording.Request(2, 3).reply;
       reply.time += 2000 * kMillisecond;
     }},
    {"does not answer the version request", "WRONG version-reply: version reply: there is none",
     [](Recording& recording) { recording.VersionReply() = HeldMessage(); }},
    {"answers it with the fields only", "WRONG version-reply: version reply, size: 16 bytes",
     [](Recording& recording) {
       recording.VersionReply().bytes.resize(16);
       recording.VersionReply().originalSize = 16;
     }},
    {"answers it with a byte too few", "WRONG version-reply: version reply, size: 65560 bytes",
     [](Recording& recording) { recording.VersionReply().originalSize = 65560; }},
    {"answers it with another magic", "WRONG version-reply: version reply, magic at 0: 0x8f79ffe729a34ae4",
     [](Recording& recording) { recording.VersionReply().bytes[0] = 0xe4; }},
    {"answers it with another command", "WRONG version-reply: version reply, command at 8: 14",
     [](Recording& recording) { recording.VersionReply().bytes[8] = 14; }},
    {"reports another version", "WRONG version-reply: version reply, version at 12: 0, not 19072701",
     [](Recording& recording) { FenluxStoreU32(recording.VersionReply().bytes.data() + 12, 0); }},
    {"sends less than the fixed part", "WRONG notification-size: notification, size: 155 bytes",
     [](Recording& recording) { recording.Notify(Bytes(155)); }},
    {"sends more than a message may have", "WRONG notification-size: notification, size: 196765 bytes",
     [](Recording& recording) { recording.Notify(Bytes(196765)); }},
    {"sends an unknown code", "WRONG notification-code: notification, code at 20: 4115",
     [](Recording& recording) { recording.Notify(NotificationBuilder(4115).Build()); }},
    {"announces an item that is not there",
     "WRONG notification-items: notification 4098, second path, length at 34: begins at 162 of 162 bytes",
     [](Recording& recording) { recording.Notify(NotificationBuilder(4098).Item1(u"\\a").Item2Size(2).Build()); }},
    {"announces more of an item than there is",
     "WRONG notification-items: notification 4099, extra data, length at 38: 9 bytes from 156 on end at 165 of 159",
     [](Recording& recording) {
       recording.Notify(NotificationBuilder(4099).Item3({1, 2, 3}).Item3Size(9).Build());
     }},
    {"announces an item of almost 4 GiB",
     "WRONG notification-items: notification 4099, path, length at 30: 4294967295 bytes from 156 on end at 4294967451 "
     "of "
     "160",
     [](Recording& recording) {
       recording.Notify(NotificationBuilder(4099).Item1(u"a").Item1Size(0xffffffff).Build());
     }},
    {"has a further path beyond the end",
     "WRONG notification-items: notification 8204, further path, flag at 42: begins at 156 of 156 bytes",
     [](Recording& recording) { recording.Notify(NotificationBuilder(8204).Item4Present(1).Build()); }},
    {"sends a text of an odd length",
     "WRONG notification-texts: notification 4098, path, length at 30: 5 bytes, an odd number",
     [](Recording& recording) { recording.Notify(NotificationBuilder(4098).Item1(u"\\a").Item1Size(5).Build()); }},
    {"does not count the NUL", "WRONG notification-texts: notification 4098, path, length at 30: no NUL in its 4 bytes",
     [](Recording& recording) { recording.Notify(NotificationBuilder(4098).Item1(u"\\a").Item1Size(4).Build()); }},
    {"gives up waiting for replies", "WRONG replies: reply: the driver no longer waited for it",
     [](Recording& recording) { recording.outcome.replies->late = 2; }},
    {"does not wait for replies", "WRONG replies: reply: the driver did not wait for it",
     [](Recording& recording) { recording.outcome.replies->notAwaited = 1; }},
    {"waits for a reply to code 4113",
     "WRONG replies: reply: the driver waited for one that the module does not send, or did not accept it",
     [](Recording& recording) { recording.outcome.replies->refused = 1; }},
};

TEST(DriverExamination, FindsNothingInACorrectDriver) {
  const Recording recording;
  EXPECT_EQ(recording.Text(),
            "The driver\n"
            "  ok        connect             accepts every connection of the module (2 attempts)\n"
            "  ok        connection          keeps the connection until the module closes it (2 connections)\n"
            "  ok        reconnect           accepts a new connection after the module closed the last one (1 "
            "connection)\n"
            "  ok        requests            accepts every command (16 requests, all 15 commands)\n"
            "  ok        request-time        answers every request in time (16 requests)\n"
            "  ok        version-reply       answers request 13 with its version (2 replies)\n"
            "  ok        notification-size   sends messages of 156 to 196764 bytes (2 notifications)\n"
            "  ok        notification-code   sends only the codes of the protocol (2 notifications)\n"
            "  ok        notification-items  keeps items within the message (4 items)\n"
            "  ok        notification-texts  sends texts of whole units that end with a NUL (3 texts)\n"
            "  ok        replies             waits for every reply and accepts it (2 notifications)\n"
            "\n"
            "clean\n");
}

TEST(DriverExamination, NamesEachFault) {
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.name);
    Recording recording;
    fault.commit(recording);
    EXPECT_EQ(recording.Findings(), std::vector<std::string>{std::string(fault.line)});
  }
}

TEST(DriverExamination, AFindingGivesThePlaceTheProtocolsRuleAndTheRemedy) {
  Recording recording;
  recording.VersionReply().originalSize = 65560;
  EXPECT_NE(recording.Text().find(
                "\nWRONG version-reply: version reply, size: 65560 bytes\n"
                "  seen      connection 1, exchange 10\n"
                "  protocol  the reply has at least 65561 bytes; the module treats a shorter one as version 0 "
                "(docs/protocol.md, \"13: version, and the version reply\")\n"
                "  do        return 65561 bytes, not only the fields\n"
                "\n1 finding\n"),
            std::string::npos)
      << recording.Text();
}

TEST(DriverExamination, ARepeatedMistakeIsOneFinding) {
  Recording recording;
  for (int i = 0; i < 1000; ++i) recording.Notify(Bytes(3));
  EXPECT_EQ(recording.Findings(), std::vector<std::string>{"WRONG notification-size: notification, size: 3 bytes"});
  EXPECT_NE(recording.Text().find("connection 1, exchange 22, 1000 times\n"), std::string::npos) << recording.Text();
  EXPECT_NE(recording.Text().find("  wrong     notification-size "), std::string::npos);
  EXPECT_EQ(recording.Examined().Findings().Wrong(DriveCheck::kNotificationSize), 1000U);
}

TEST(DriverExamination, MoreKindsOfMistakesThanCanBeShownAreCounted) {
  Recording recording;
  for (std::uint32_t code = 1; code <= 1200; ++code) recording.Notify(NotificationBuilder(code).Build());
  EXPECT_EQ(recording.Findings().size(), 1000U);
  EXPECT_NE(recording.Text().find("\n200 further findings are only counted\n1200 findings\n"), std::string::npos);
}

TEST(DriverExamination, ARequestThatFailsBecauseTheConnectionEndsIsNotAMistake) {
  Recording closed;
  closed.Close(2, std::string(capture::kModuleClosed));
  closed.Request(2, 3).reply->comment = "the port is closed";
  EXPECT_EQ(closed.Findings(), std::vector<std::string>());
  Recording dropped;
  dropped.Request(2, 3).reply->comment = "the port is closed";
  dropped.Close(2, std::string(capture::kDriverEnded));
  EXPECT_EQ(dropped.Findings(), std::vector<std::string>{"WRONG connection: connection: ended by the driver"});
  EXPECT_NE(dropped.Text().find("the last request was request 3 (commit monitor objects)\n"), std::string::npos);
}

TEST(DriverExamination, ARejectedRequestIsAMistakeEvenJustBeforeTheModuleCloses) {
  Recording recording;
  recording.Request(2, 3).reply->comment = "no";
  recording.Close(2, std::string(capture::kModuleClosed));
  EXPECT_EQ(recording.Findings(),
            std::vector<std::string>{"WRONG requests: request 3 (commit monitor objects): rejected: no"});
}

TEST(DriverExamination, ARejectedRequestIsAMistakeIfALaterOneSucceeded) {
  Recording recording;
  recording.Request(2, 3).reply->comment = "no";
  recording.Request(2, 11);
  recording.Close(2, std::string(capture::kDriverEnded));
  EXPECT_EQ(recording.Findings(),
            (std::vector<std::string>{"WRONG connection: connection: ended by the driver",
                                      "WRONG requests: request 3 (commit monitor objects): rejected: no"}));
}

TEST(DriverExamination, EscapesTheDriversTexts) {
  Recording recording;
  recording.Open(3);
  recording.Close(3, "no \\port\n\x1b");
  EXPECT_EQ(recording.Findings(), std::vector<std::string>{R"(WRONG connect: connection: refused: no \\port\n\x1b)"});
}

TEST(DriverExamination, ARequestAtTheEndOfTheRecordingMayLackItsAnswer) {
  Recording recording;
  recording.Request(2, 12).reply.Reset();
  EXPECT_EQ(recording.Findings(), std::vector<std::string>());
}

TEST(DriverExamination, TheDriverNeedNotAwaitNotificationsThatRequireNoReply) {
  Recording recording;
  recording.Notify(NotificationBuilder(4113).Build());
  recording.Last().reply->originalSize = 0;
  recording.outcome.replies->notAwaited = 1;
  EXPECT_EQ(recording.Findings(), std::vector<std::string>());
}

TEST(DriverExamination, ListsWhatWasNotExamined) {
  DriverExamination examination({});
  DriveOutcome outcome;
  outcome.stopped = "no connection was ready";
  examination.Finish(outcome);
  const std::string text = DriveText(examination, outcome, false);
  EXPECT_NE(text.find("  not seen  connect             accepts every connection of the module (the module did not "
                      "connect)\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\nnot everything was tried: no connection was ready\nclean\n"), std::string::npos) << text;

  Recording recording;
  recording.Last().dropped = 7;
  EXPECT_NE(recording.Text().find("\n7 messages were not recorded and not checked\nclean\n"), std::string::npos);
}

TEST(DriverExamination, JsonHasTheSameContent) {
  Recording recording;
  recording.Notify(NotificationBuilder(4115).Build());
  const std::string json = DriveJson(recording.Examined(), recording.outcome);
  EXPECT_NE(json.find("{\"check\":{\"name\":\"notification-code\",\"result\":\"wrong\",\"seen\":3,\"wrong\":1}}\n"),
            std::string::npos)
      << json;
  EXPECT_NE(
      json.find("{\"finding\":{\"check\":\"notification-code\",\"record\":\"notification\",\"field\":\"code at "
                "20\",\"wrong\":\"4115\",\"connection\":1,\"exchange\":22,\"offset\":0,\"count\":1,\"protocol\":"),
      std::string::npos)
      << json;
  EXPECT_NE(json.find("{\"drive\":{\"clean\":false,\"findings\":1,\"commands_not_sent\":[],\"gaps\":[]}}\n"),
            std::string::npos)
      << json;
}

TEST(DriverExamination, EveryRuleNamesASectionOfTheProtocol) {
  std::ifstream in(FENLUX_PROTOCOL_DOCUMENT);
  std::set<std::string> headings;
  for (std::string line; std::getline(in, line);) {
    if (const std::size_t at = line.find("# "); at != std::string::npos) headings.insert(line.substr(at + 2));
  }
  for (std::size_t i = 0; i < kDriveRules; ++i) {
    const DriveRuleText& rule = TextOf(static_cast<DriveRule>(i));
    EXPECT_TRUE(headings.contains(std::string(rule.section))) << rule.section;
    EXPECT_FALSE(rule.protocol.empty() || rule.advice.empty()) << rule.section;
  }
}

// The module answers whatever the driver kit's parser refuses with verdict 8, so it must never pass as clean.
TEST(DriverExamination, EverythingThatTheKitRefusesIsAFinding) {
  std::mt19937 random(1);
  const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  for (int i = 0; i < 4'000; ++i) {
    Exchange exchange;
    exchange.header = {Kind::kNotification, 1, 1};
    Bytes& message = exchange.message.bytes;
    message.resize(150 + below(60));
    for (std::uint8_t& byte : message) byte = static_cast<std::uint8_t>(below(3));
    if (message.size() > 50) {
      FenluxStoreU32(message.data() + 20, below(4) == 0 ? 8204 : 4096 + below(24));
      for (const std::size_t at : {30U, 34U, 38U}) {
        FenluxStoreU32(message.data() + at, below(20) == 0 ? 0xffffffff - below(300) : below(20));
      }
      FenluxStoreU32(message.data() + 42, below(2));
    }
    FenluxNotificationView view;
    const FenluxError error = FenluxParseNotification(message.data(), message.size(), &view);
    DriveFindings findings;
    ExamineNotification(exchange, findings);
    EXPECT_TRUE(error == FENLUX_OK || !findings.Clean()) << i << ": " << FenluxErrorText(error);
  }
}

}  // namespace
}  // namespace fenlux::refhost
