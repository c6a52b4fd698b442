// Replays: which bytes of a message are compared, and what a capture's outline shows before it is played.
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <utility>

#include "refhost/capture/replay/capture_outline.h"
#include "refhost/capture/replay/message_difference.h"
#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Message = std::vector<std::uint8_t>;

Message MessageVector(const std::string& name) {
  const std::string bytes = BytesOfFile(std::string(FENLUX_DRIVER_VECTORS) + "/" + name + ".bin");
  return {bytes.begin(), bytes.end()};
}

std::vector<std::string> Fields(const std::optional<MessageDifference>& difference) {
  std::vector<std::string> names;
  if (!difference) return {"(none)"};
  for (const FieldDifference& field : difference->fields) names.push_back(field.name);
  return names;
}

Message With(Message message, std::size_t offset, std::uint8_t value) {
  message.at(offset) = value;
  return message;
}

TEST(ReplayCompare, OnlyTheWrittenBytesOfAReplyAreCompared) {
  const Message reply = MessageVector("reply/verdict-3");
  EXPECT_FALSE(CompareMessages(Kind::kNotificationReply, reply, reply, {}));
  EXPECT_FALSE(CompareMessages(Kind::kNotificationReply, reply, With(reply, 20, 0xaa), {}));
  EXPECT_FALSE(CompareMessages(Kind::kNotificationReply, reply, With(reply, 155, 0xaa), {}));
  const auto difference = CompareMessages(Kind::kNotificationReply, reply, With(reply, 12, 4), {});
  ASSERT_TRUE(difference);
  EXPECT_THAT(Fields(difference), ElementsAre("verdict"));
  EXPECT_EQ(difference->fields[0].recorded, "3");
  EXPECT_EQ(difference->fields[0].replayed, "4");
  ASSERT_EQ(difference->bytes.size(), 1u);
  EXPECT_EQ(difference->bytes[0].offset, 0u);
  EXPECT_NE(difference->bytes[0].recorded, difference->bytes[0].replayed);
}

TEST(ReplayCompare, AMissingReplyIsADifference) {
  const Message reply = MessageVector("reply/verdict-3");
  EXPECT_FALSE(CompareMessages(Kind::kNotificationReply, {}, {}, {}));
  EXPECT_THAT(Fields(CompareMessages(Kind::kNotificationReply, {}, reply, {})), ElementsAre("message"));
  EXPECT_THAT(Fields(CompareMessages(Kind::kNotificationReply, reply, {}, {})), ElementsAre("message"));
}

TEST(ReplayCompare, BytesAfterAPathAreNotCompared) {
  const Message request = MessageVector("request/01-directory");
  constexpr std::size_t kFlag = 16, kRoot = 17, kPath = 25;
  EXPECT_FALSE(CompareMessages(Kind::kRequest, request, With(request, request.size() - 1, 1), {}));
  EXPECT_THAT(Fields(CompareMessages(Kind::kRequest, request, With(request, kPath, 'Z'), {})), ElementsAre("path"));
  const Message root = With(request, kRoot, 'Z');
  EXPECT_THAT(Fields(CompareMessages(Kind::kRequest, request, root, {})), ElementsAre("rootName"));
  EXPECT_FALSE(CompareMessages(Kind::kRequest, request, root, {.requestContents = true, .rootNames = false}));
  // The flag depends on whether the path exists.
  const Message one = With(request, kFlag, 1);
  const Message zero = With(request, kFlag, 0);
  EXPECT_THAT(Fields(CompareMessages(Kind::kRequest, one, zero, {})), ElementsAre("pathFlag"));
  EXPECT_FALSE(CompareMessages(Kind::kRequest, zero, one, {}));
}

TEST(ReplayCompare, OnlyTheFormOfARequestIsComparedIfItsContentIsUnknown) {
  const Message request = MessageVector("request/08-value");
  const Message other = With(request, 12, 99);
  EXPECT_THAT(Fields(CompareMessages(Kind::kRequest, request, other, {})), ElementsAre("value"));
  const ComparisonRules form{.requestContents = false, .rootNames = false};
  EXPECT_FALSE(CompareMessages(Kind::kRequest, request, other, form));
  EXPECT_TRUE(CompareMessages(Kind::kRequest, request, With(request, 8, 19), form));  // another command
  EXPECT_TRUE(CompareMessages(Kind::kRequest, request, With(request, 0, 0), form));   // no magic
  Message shorter = request;
  shorter.pop_back();
  EXPECT_THAT(Fields(CompareMessages(Kind::kRequest, request, shorter, form)), ::testing::Contains("error"));
}

TEST(ReplayOutline, AnIncompleteCaptureCannotBeReplayed) {
  const auto outlineOf = [](const std::string& bytes) {
    std::istringstream stream(bytes);
    return ReadOutline(stream, {});
  };
  EXPECT_EQ(outlineOf("a letter").Obstacle(), "it is not a capture");
  CaptureText empty;
  EXPECT_EQ(outlineOf(empty.Text()).Obstacle(), "it has no messages");
  CaptureText whole;
  whole.Add(Kind::kFacts, 0, "{}");
  EXPECT_EQ(outlineOf(whole.Text()).Obstacle(), "");
  EXPECT_EQ(outlineOf(whole.Text().substr(0, whole.Size() - 1)).Obstacle(), "it has no messages");

  Bytes lossy;
  AppendFileHeader(lossy);
  Packet packet;
  packet.header = {Kind::kNotification, 1, 1};
  packet.dropped = 3;
  AppendPacket(lossy, packet);
  EXPECT_EQ(outlineOf({lossy.begin(), lossy.end()}).Obstacle(), "it lacks 3 messages, and a replay needs all of them");
}

TEST(ReplayOutline, TheOpeningShowsWhatTheHostGaveTheModule) {
  std::ifstream stream(std::string(FENLUX_SOURCE_DIR) + "/tests/unit/capture/golden/all-records.pcapng",
                       std::ios::binary);
  const CaptureOutline outline = ReadOutline(stream, {});
  EXPECT_THAT(outline.problems, IsEmpty());
  EXPECT_TRUE(outline.requests);
  EXPECT_THAT(outline.facts, HasSubstr("{"));
  ASSERT_FALSE(outline.connections.empty());
  EXPECT_EQ(outline.connections.begin()->second.context.size(), 16u);
}

// A connection whose requests are these vectors, in this order.
ConnectionOutline OutlineOf(const std::vector<std::string>& requests, const std::string& call = {}) {
  CaptureText capture;
  capture.Add(Kind::kConnectContext, 0, "context");
  if (!call.empty()) capture.Add(Kind::kCall, 0, call);
  std::uint64_t exchange = 0;
  for (const std::string& request : requests) {
    const Message message = MessageVector("request/" + request);
    capture.Add(Kind::kRequest, ++exchange, {reinterpret_cast<const char*>(message.data()), message.size()});
  }
  std::istringstream stream(capture.Text());
  return ReadOutline(stream, {}).connections.at(1);
}

TEST(ReplayOutline, ThePolicyMayPrecedeTheOpeningRequests) {
  const std::vector<std::string> policy{"01-directory", "03-commit-type-2", "11-dump", "24-block"};
  const std::vector<std::string> opening{"12-all", "13-version", "20-csrss"};
  for (const auto& [first, second] : {std::pair(policy, opening), std::pair(opening, policy)}) {
    std::vector<std::string> requests = first;
    requests.insert(requests.end(), second.begin(), second.end());
    const ConnectionOutline connection = OutlineOf(requests);
    EXPECT_TRUE(connection.opening);
    EXPECT_EQ(connection.settings.spsp.size(), 4u);
    EXPECT_EQ(connection.settings.paths.size(), 1u);
    EXPECT_FALSE(connection.settings.configBlock.empty());
    EXPECT_EQ(connection.settings.systemProcesses.size(), 1u);
  }
}

TEST(ReplayOutline, ACaptureThatBeginsInTheMiddleHasNoOpening) {
  for (const ConnectionOutline& connection :
       {OutlineOf({"01-directory", "13-version", "12-all"}), OutlineOf({"01-directory", "24-block"}),
        OutlineOf({"12-all"}, R"({"operation":"spsp"})")}) {
    EXPECT_FALSE(connection.opening);
    EXPECT_TRUE(connection.settings.paths.empty());
    EXPECT_TRUE(connection.settings.configBlock.empty());
    EXPECT_TRUE(connection.settings.spsp.empty());
  }
}

TEST(ReplayOutline, ARefusedConnectionHasTheDriversReason) {
  CaptureText capture;
  capture.Add(Kind::kConnectContext, 0, "context");
  capture.Add(Kind::kClosed, 0, "the driver refuses the connection");
  std::istringstream stream(capture.Text());
  const CaptureOutline outline = ReadOutline(stream, {});
  ASSERT_TRUE(outline.connections.at(1).refused);
  EXPECT_EQ(*outline.connections.at(1).refused, "the driver refuses the connection");

  CaptureText ended;
  ended.Add(Kind::kConnectContext, 0, "context");
  ended.Add(Kind::kClosed, 0, "the module closed the connection");
  std::istringstream other(ended.Text());
  EXPECT_FALSE(ReadOutline(other, {}).connections.at(1).refused);
}

}  // namespace
}  // namespace fenlux::testing
