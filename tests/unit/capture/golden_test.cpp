// The golden captures, which a script writes from the driver kit's test vectors, and the names in the dissector.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "refhost/capture/decode/capture_decoder.h"
#include "refhost/capture/decode/protocol_names.h"
#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using refhost::Report;
using ::testing::IsEmpty;

std::string SourceText(const std::string& file) { return BytesOfFile(std::string(FENLUX_SOURCE_DIR) + "/" + file); }

std::string Golden(const std::string& name) { return SourceText("tests/unit/capture/golden/" + name + ".pcapng"); }

std::vector<Report> DecodeGolden(const std::string& name) {
  std::vector<Report> reports;
  CaptureDecoder decoder({}, false,
                         {.exchange = [&](const Report& report) { reports.push_back(report); },
                          .problem = [&](const Problem& problem) { ADD_FAILURE() << problem.text; }});
  std::istringstream stream(Golden(name));
  CaptureReader reader(stream);
  decoder.Read(reader);
  decoder.Finish();
  return reports;
}

bool IsMalformed(const Report& report, const char* part) {
  return report.contains(part) && report.at(part).is_object() && report.at(part).contains("error");
}

TEST(GoldenCapture, TheWriterWritesTheSameBytes) {
  for (const char* name : {"all-records", "malformed"}) {
    const std::string golden = Golden(name);
    const ReadCapture read = ReadAll(golden);
    EXPECT_THAT(read.problems, IsEmpty());
    Bytes bytes;
    AppendFileHeader(bytes);
    for (const ReadPacket& each : read.packets) {
      Packet packet = each.packet;
      packet.message = {reinterpret_cast<const std::uint8_t*>(each.message.data()), each.message.size()};
      packet.comment = each.comment;
      EXPECT_EQ(packet.direction, DirectionOf(packet.header.kind));
      AppendPacket(bytes, packet);
    }
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), golden) << name;
  }
}

TEST(GoldenCapture, EveryRecordIsDecoded) {
  const std::vector<Report> reports = DecodeGolden("all-records");
  std::set<std::uint32_t> codes, commands, verdicts;
  for (const Report& report : reports) {
    EXPECT_FALSE(IsMalformed(report, "message") || IsMalformed(report, "reply")) << report;
    EXPECT_FALSE(report.contains("unanswered")) << report;
    const Report& message = report.at("message");
    if (message.contains("code")) codes.insert(message.at("code").get<std::uint32_t>());
    if (message.contains("command")) commands.insert(message.at("command").get<std::uint32_t>());
    if (report.contains("reply") && report.at("reply").contains("verdict")) {
      verdicts.insert(report.at("reply").at("verdict").get<std::uint32_t>());
    }
  }
  EXPECT_EQ(codes.size(), 35u);
  EXPECT_EQ(commands.size(), 15u);
  EXPECT_EQ(verdicts.size(), 7u);
}

TEST(GoldenCapture, EveryMalformedRecordIsNamed) {
  const std::vector<Report> reports = DecodeGolden("malformed");
  EXPECT_EQ(reports.size(), 33u);
  for (const Report& report : reports) {
    EXPECT_NE(IsMalformed(report, "message"), IsMalformed(report, "reply")) << report;
  }
}

// The dissector for Wireshark is written in another language, so its names are compared one by one.
TEST(GoldenCapture, TheDissectorHasTheSameNames) {
  const std::string script = SourceText("share/wireshark/fenlux.lua");
  struct Table {
    const char* name;
    std::string_view (*nameOf)(std::uint32_t);
    std::size_t count;
  };
  for (const Table& table :
       {Table{"commands", CommandName, 15}, Table{"codes", CodeName, 35}, Table{"verdicts", VerdictName, 7}}) {
    const std::string begin = std::string("local ") + table.name + " = {";
    const std::size_t at = script.find(begin);
    ASSERT_NE(at, std::string::npos) << table.name;
    const std::string body = script.substr(at, script.find("\n}", at) - at);
    const std::regex line(R"re(\[(\d+)\] = "([^"]*)")re");
    std::size_t count = 0;
    for (std::sregex_iterator match(body.begin(), body.end(), line), end; match != end; ++match, ++count) {
      EXPECT_EQ((*match)[2].str(), table.nameOf(static_cast<std::uint32_t>(std::stoul((*match)[1])))) << (*match)[0];
    }
    EXPECT_EQ(count, table.count) << table.name;
  }
}

}  // namespace
}  // namespace fenlux::testing
