// Decoding: records as named fields, exchanges, filters and texts.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "refhost/capture/decode/capture_decoder.h"
#include "refhost/capture/decode/json_text.h"
#include "refhost/capture/decode/protocol_names.h"
#include "refhost/capture/decode/record_fields.h"
#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using refhost::Report;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string Vector(const std::string& name) { return BytesOfFile(std::string(FENLUX_DRIVER_VECTORS) + "/" + name); }

std::span<const std::uint8_t> AsBytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Kind KindOf(const std::string& record) {
  if (record == "connect-context") return Kind::kConnectContext;
  if (record == "request") return Kind::kRequest;
  if (record == "version-reply") return Kind::kRequestReply;
  if (record == "notification") return Kind::kNotification;
  EXPECT_EQ(record, "reply");
  return Kind::kNotificationReply;
}

struct Decoded {
  std::vector<Report> reports;
  std::vector<Problem> problems;

  std::vector<std::uint64_t> Exchanges() const {
    std::vector<std::uint64_t> exchanges;
    for (const Report& report : reports) exchanges.push_back(report.at("exchange").get<std::uint64_t>());
    return exchanges;
  }
};

Decoded Decode(const std::string& bytes, const ExchangeFilter& filter = {}, bool hex = false) {
  Decoded decoded;
  CaptureDecoder decoder(filter, hex,
                         {.exchange = [&](const Report& report) { decoded.reports.push_back(report); },
                          .problem = [&](const Problem& problem) { decoded.problems.push_back(problem); }});
  std::istringstream stream(bytes);
  CaptureReader reader(stream);
  decoder.Read(reader);
  decoder.Finish();
  return decoded;
}

TEST(Decode, EveryTestVectorHasTheFieldsOfItsJson) {
  std::istringstream index(Vector("index.txt"));
  std::size_t count = 0;
  for (std::string record, name; index >> record >> name; ++count) {
    const std::string bytes = Vector(name + ".bin");
    const Report expected = Report::parse(Vector(name + ".json"), nullptr, false);
    if (expected.is_discarded()) {  // a lone surrogate, which the library refuses to read
      EXPECT_THAT(Vector(name + ".json"), HasSubstr("\\ud")) << name;
      continue;
    }
    EXPECT_EQ(RecordFields(KindOf(record), AsBytes(bytes)).dump(-1, ' ', true), expected.dump(-1, ' ', true)) << name;
  }
  EXPECT_GT(count, 100u);
}

TEST(Decode, AnExchangeHasItsJudgementReplyAndLatency) {
  CaptureText capture;
  const std::size_t offset = capture.Add(Kind::kNotification, 7, Vector("notification/4098-text.bin"), 1'000'000'500);
  capture.Add(Kind::kJudgement, 7, R"({"decision":3,"rule":"r","microseconds":2})", 1'000'000'600);
  capture.Add(Kind::kNotificationReply, 7, Vector("reply/verdict-4.bin"), 1'000'012'800);
  const Decoded decoded = Decode(capture.Text());
  EXPECT_THAT(decoded.problems, IsEmpty());
  ASSERT_EQ(decoded.reports.size(), 1u);
  const Report& report = decoded.reports[0];
  EXPECT_EQ(report.at("time"), "1970-01-01T00:00:01.000000500Z");
  EXPECT_EQ(report.at("offset"), offset);
  EXPECT_EQ(report.at("kind"), "notification");
  EXPECT_EQ(report.at("name"), "event 0x4005");
  EXPECT_EQ(report.at("message").at("code"), 4098);
  EXPECT_EQ(report.at("judgement").at("rule"), "r");
  EXPECT_DOUBLE_EQ(report.at("latency_us").get<double>(), 12.3);
  EXPECT_EQ(report.at("reply").at("verdict"), 4);
  const std::string text = ExchangeText(report);
  EXPECT_THAT(text, HasSubstr("1970-01-01T00:00:01.000000500Z 1:7 notification, event 0x4005, 12.3 us\n"));
  EXPECT_THAT(text, HasSubstr(" code=4098 "));
  EXPECT_THAT(text, HasSubstr(R"( decision=3 rule="r" microseconds=2)"));
}

TEST(Decode, ARequestIsReadWithItsOmittedTrailingZeros) {
  const std::string request = Vector("request/01-directory.bin");
  Packet packet;
  packet.header = {Kind::kRequest, 1, 1};
  packet.message = AsBytes(request);
  CutZeros(packet);
  ASSERT_LT(packet.message.size(), 200u);
  Bytes bytes;
  AppendFileHeader(bytes);
  AppendPacket(bytes, packet);
  const Decoded decoded = Decode({bytes.begin(), bytes.end()});
  ASSERT_EQ(decoded.reports.size(), 1u);
  EXPECT_EQ(decoded.reports[0].at("name"), "add monitor object");
  EXPECT_EQ(decoded.reports[0].at("message").at("path"), "C:\\Users\\Public");
  EXPECT_EQ(decoded.reports[0].at("unanswered"), true);
}

TEST(Decode, RepliesMayBeEmptyOrFailed) {
  CaptureText capture;
  capture.Add(Kind::kRequest, 1, Vector("request/08-value.bin"));
  capture.Add(Kind::kRequestReply, 1, "");
  capture.Add(Kind::kRequest, 2, Vector("request/13-version.bin"));
  capture.Add(Kind::kRequestReply, 2, "", 1, "the driver\nfails");
  capture.Add(Kind::kRequest, 3, Vector("request/13-version.bin"));
  capture.Add(Kind::kRequestReply, 3, Vector("version-reply/module-version.bin"));
  const Decoded decoded = Decode(capture.Text());
  ASSERT_THAT(decoded.Exchanges(), ElementsAre(1, 2, 3));
  EXPECT_TRUE(decoded.reports[0].at("reply").is_null());
  EXPECT_FALSE(decoded.reports[0].contains("failure"));
  EXPECT_EQ(decoded.reports[1].at("failure"), "the driver\\nfails");
  EXPECT_EQ(decoded.reports[2].at("reply").at("version"), 19072701);
  EXPECT_THAT(ExchangeText(decoded.reports[0]), HasSubstr("  reply      none\n"));
}

TEST(Decode, MalformedMessagesAreShownWithTheirError) {
  CaptureText capture;
  capture.Add(Kind::kNotification, 1, "short");
  capture.Add(Kind::kNotificationReply, 1, "too");
  capture.Add(Kind::kFacts, 0, "[1]");
  capture.Add(static_cast<Kind>(77), 0, "?");
  const Decoded decoded = Decode(capture.Text());
  EXPECT_THAT(decoded.problems, IsEmpty());
  ASSERT_EQ(decoded.reports.size(), 3u);
  EXPECT_EQ(decoded.reports[0].at("message").at("error"), "wrong size");
  EXPECT_EQ(decoded.reports[0].at("reply").at("error"), "wrong size");
  EXPECT_EQ(decoded.reports[1].at("message").at("error"), "not a JSON object");
  EXPECT_EQ(decoded.reports[2].at("kind"), "unknown");
  EXPECT_EQ(decoded.reports[2].at("message").at("bytes"), "3f");
}

TEST(Decode, FiltersSelectExchanges) {
  CaptureText capture;
  capture.Add(Kind::kConnectContext, 0, Vector("connect-context/client-type-1.bin"));
  capture.Add(Kind::kNotification, 1, Vector("notification/4098-text.bin"), 1000);
  capture.Add(Kind::kNotificationReply, 1, Vector("reply/verdict-4.bin"), 2000);
  capture.Add(Kind::kNotification, 2, Vector("notification/8205-remote.bin"), 1000);
  capture.Add(Kind::kNotificationReply, 2, Vector("reply/verdict-3.bin"), 9000);
  capture.Add(Kind::kRequest, 3, Vector("request/01-directory.bin"), 1000);
  capture.Add(Kind::kRequestReply, 3, "", 1500);
  const std::string bytes = capture.Text();
  EXPECT_THAT(Decode(bytes).Exchanges(), ElementsAre(0, 1, 2, 3));
  ExchangeFilter filter;
  filter.code = 8205;
  EXPECT_THAT(Decode(bytes, filter).Exchanges(), ElementsAre(2));
  filter.verdict = 4;
  EXPECT_THAT(Decode(bytes, filter).Exchanges(), IsEmpty());
  filter.code.reset();
  EXPECT_THAT(Decode(bytes, filter).Exchanges(), ElementsAre(1));
  filter = {};
  filter.slowerThan = 1000;
  EXPECT_THAT(Decode(bytes, filter).Exchanges(), ElementsAre(1, 2));
  filter = {};
  filter.path = refhost::Glob("C:\\Users\\*");
  EXPECT_THAT(Decode(bytes, filter).Exchanges(), ElementsAre(3));
}

TEST(Decode, MessagesOfSeveralConnectionsAreKeptApart) {
  Bytes bytes;
  AppendFileHeader(bytes);
  for (const Kind kind : {Kind::kRequest, Kind::kRequestReply}) {
    for (const std::uint32_t connection : {1u, 2u}) {
      Packet packet;
      packet.header = {kind, connection, 5};
      AppendPacket(bytes, packet);
    }
  }
  const Decoded decoded = Decode({bytes.begin(), bytes.end()});
  ASSERT_EQ(decoded.reports.size(), 2u);
  for (const Report& report : decoded.reports) EXPECT_FALSE(report.contains("unanswered"));
}

TEST(Decode, AnExchangeThatBeginsTwiceIsReturnedTwice) {
  CaptureText capture;
  capture.Add(Kind::kRequest, 1, "first");
  capture.Add(Kind::kRequest, 1, "second");
  capture.Add(Kind::kRequestReply, 1, "");
  capture.Add(Kind::kRequestReply, 1, "");
  const Decoded decoded = Decode(capture.Text());
  ASSERT_EQ(decoded.reports.size(), 3u);
  EXPECT_TRUE(decoded.reports[0].contains("unanswered"));
  EXPECT_FALSE(decoded.reports[1].contains("unanswered"));
  EXPECT_EQ(decoded.reports[2].at("kind"), "request_reply");
}

TEST(Decode, HexShowsTheCapturedBytes) {
  CaptureText capture;
  capture.Add(Kind::kNotification, 1, "\x01\x02");
  capture.Add(Kind::kNotificationReply, 1, "\xFF");
  const Decoded decoded = Decode(capture.Text(), {}, true);
  EXPECT_EQ(decoded.reports.at(0).at("message_bytes"), "0102");
  EXPECT_EQ(decoded.reports.at(0).at("reply_bytes"), "ff");
  EXPECT_THAT(ExchangeText(decoded.reports[0]), HasSubstr("  message_bytes 0102\n"));
}

TEST(Decode, TextsInACaptureCannotBreakALine) {
  CaptureText capture;
  capture.Add(Kind::kClosed, 0, "a\n\x1b[31mb");
  capture.Add(Kind::kFacts, 0, R"({"a\nb":"c\u001bd"})");
  const Decoded decoded = Decode(capture.Text());
  ASSERT_EQ(decoded.reports.size(), 2u);
  EXPECT_THAT(ExchangeText(decoded.reports[0]), HasSubstr(R"(reason="a\n\x1b[31mb")"));
  EXPECT_THAT(ExchangeText(decoded.reports[1]), HasSubstr(R"(a\nb="c\x1bd")"));
}

TEST(Decode, DeeplyNestedJsonIsRefused) {
  EXPECT_TRUE(ParseJsonObject(R"({"a":[1,{"b":"]]]"}]})"));
  EXPECT_FALSE(ParseJsonObject("{\"a\":" + std::string(100, '[') + std::string(100, ']') + "}"));
  std::string sly = "{\"a\":";
  for (int i = 0; i < 100; ++i) sly += "[\"]\\\"]\",";
  EXPECT_FALSE(ParseJsonObject(sly + "1" + std::string(100, ']') + "}"));
  EXPECT_FALSE(ParseJsonObject("{\"a\":"));
}

TEST(Decode, EveryNumberOfTheProtocolHasAName) {
  for (const std::uint32_t command : {1U, 3U, 4U, 6U, 8U, 9U, 11U, 12U, 13U, 19U, 20U, 21U, 22U, 23U, 24U}) {
    EXPECT_NE(CommandName(command), "unknown") << command;
  }
  for (std::uint32_t code = 4097; code <= 4118; ++code) EXPECT_EQ(CodeName(code) == "unknown", code == 4115) << code;
  for (std::uint32_t code = 8193; code <= 8206; ++code) EXPECT_NE(CodeName(code), "unknown") << code;
  for (std::uint32_t verdict = 2; verdict <= 8; ++verdict) EXPECT_NE(VerdictName(verdict), "unknown") << verdict;
  EXPECT_EQ(CommandName(2), "unknown");
  EXPECT_EQ(CodeName(8207), "unknown");
  EXPECT_EQ(VerdictName(9), "unknown");
}

}  // namespace
}  // namespace fenlux::testing
