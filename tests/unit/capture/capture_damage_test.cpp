// Truncated, damaged and deliberately misleading captures: the reader says where the damage is and reads the rest.
#include <gmock/gmock.h>

#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Three packets with exchanges 1 to 3, and where their blocks begin.
struct Sample {
  Sample() {
    for (std::uint64_t exchange = 1; exchange <= 3; ++exchange) {
      offsets.push_back(capture.Add(Kind::kNotification, exchange, "the message"));
    }
    bytes = capture.Text();
  }
  void Set32(std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[at + static_cast<std::size_t>(i)] = static_cast<char>(value >> (8 * i));
  }

  CaptureText capture;
  std::vector<std::size_t> offsets;
  std::string bytes;
};

TEST(CaptureDamage, ATruncatedFileIsReadUpToItsLastCompleteBlock) {
  const Sample sample;
  for (std::size_t size = sample.offsets[2]; size < sample.bytes.size(); ++size) {
    const ReadCapture read = ReadAll(sample.bytes.substr(0, size));
    EXPECT_THAT(read.Exchanges(), ElementsAre(1, 2)) << size;
    EXPECT_THAT(read.problems, IsEmpty()) << size;
    EXPECT_EQ(read.cutOff, size != sample.offsets[2]) << size;
  }
}

TEST(CaptureDamage, AWrongBlockLengthLosesOnlyThatBlock) {
  for (const std::uint32_t length : {0u, 4u, 13u, 100u, 0xFFFFFFFCu, 1u << 20}) {
    Sample sample;
    sample.Set32(sample.offsets[1] + 4, length);
    const ReadCapture read = ReadAll(sample.bytes);
    EXPECT_THAT(read.Exchanges(), ElementsAre(1, 3)) << length;
    ASSERT_EQ(read.problems.size(), 1u) << length;
    EXPECT_EQ(read.problems[0].offset, sample.offsets[1]);
    EXPECT_THAT(read.problems[0].text, HasSubstr(std::to_string(length)));
  }
}

TEST(CaptureDamage, AWrongTrailingLengthLosesOnlyThatBlock) {
  Sample sample;
  sample.Set32(sample.offsets[2] - 4, 8);
  const ReadCapture read = ReadAll(sample.bytes);
  EXPECT_THAT(read.Exchanges(), ElementsAre(1, 3));
  ASSERT_EQ(read.problems.size(), 1u);
  EXPECT_EQ(read.problems[0].offset, sample.offsets[1]);
  EXPECT_THAT(read.problems[0].text, HasSubstr("two lengths, 84 and 8 bytes"));
}

TEST(CaptureDamage, AWrongCapturedLengthLosesOnlyThatPacket) {
  Sample sample;
  sample.Set32(sample.offsets[0] + 20, 5000);
  const ReadCapture read = ReadAll(sample.bytes);
  EXPECT_THAT(read.Exchanges(), ElementsAre(2, 3));
  ASSERT_EQ(read.problems.size(), 1u);
  EXPECT_EQ(read.problems[0].offset, sample.offsets[0]);
  EXPECT_THAT(read.problems[0].text, HasSubstr("5000 captured bytes"));
}

TEST(CaptureDamage, AWrongOriginalLengthLosesOnlyThatPacket) {
  for (const std::uint32_t original : {3u, 0xFFFFFFFFu}) {
    Sample sample;
    sample.Set32(sample.offsets[0] + 24, original);
    const ReadCapture read = ReadAll(sample.bytes);
    EXPECT_THAT(read.Exchanges(), ElementsAre(2, 3));
    ASSERT_EQ(read.problems.size(), 1u);
    EXPECT_THAT(read.problems[0].text, HasSubstr("original length of " + std::to_string(original)));
  }
}

TEST(CaptureDamage, OverwrittenBytesLoseOnlyTheBlocksTheyTouch) {
  Sample sample;
  for (std::size_t at = sample.offsets[0] + 60; at < sample.offsets[1] + 20; ++at) sample.bytes[at] = '\x5A';
  const ReadCapture read = ReadAll(sample.bytes);
  EXPECT_THAT(read.Exchanges(), ElementsAre(3));
  ASSERT_EQ(read.problems.size(), 1u);
  EXPECT_EQ(read.problems[0].offset, sample.offsets[0]);
}

TEST(CaptureDamage, AnotherInterfaceIsSkipped) {
  Sample sample;
  sample.bytes[52] = 1;  // link type of the interface: Ethernet
  const ReadCapture read = ReadAll(sample.bytes);
  EXPECT_THAT(read.packets, IsEmpty());
  ASSERT_EQ(read.problems.size(), 1u);
  EXPECT_THAT(read.problems[0].text, HasSubstr("link type 1"));
}

TEST(CaptureDamage, APacketOfAnUnknownInterfaceOrVersionIsReported) {
  Sample sample;
  sample.Set32(sample.offsets[0] + 8, 7);
  sample.bytes[sample.offsets[1] + 28] = 2;
  const ReadCapture read = ReadAll(sample.bytes);
  EXPECT_THAT(read.Exchanges(), ElementsAre(3));
  ASSERT_EQ(read.problems.size(), 2u);
  EXPECT_THAT(read.problems[0].text, HasSubstr("interface 7"));
  EXPECT_THAT(read.problems[1].text, HasSubstr("version 2"));
}

TEST(CaptureDamage, OtherFilesAreNotCaptures) {
  for (const std::string& bytes : {std::string("PK\x03\x04 some other kind of file"), std::string(100, '\0')}) {
    const ReadCapture read = ReadAll(bytes);
    EXPECT_FALSE(read.isCapture);
    ASSERT_EQ(read.problems.size(), 1u);
    EXPECT_EQ(read.problems[0].offset, 0u);
  }
  EXPECT_FALSE(ReadAll("").isCapture);
}

TEST(CaptureDamage, ASectionAfterDamagedBytesIsRead) {
  const Sample sample;
  const ReadCapture read = ReadAll("abcdefgh" + sample.bytes);
  EXPECT_TRUE(read.isCapture);
  EXPECT_THAT(read.Exchanges(), ElementsAre(1, 2, 3));
  EXPECT_EQ(read.problems.size(), 1u);
}

// The reader does not search a growing file for the next block, because its end may still be incomplete.
TEST(CaptureDamage, AWrongLengthInAGrowingFileIsReportedOnlyWhenItStopsGrowing) {
  Sample sample;
  sample.Set32(sample.offsets[1] + 4, 1u << 20);
  std::istringstream stream(sample.bytes);
  CaptureReader reader(stream);
  reader.SetGrowing(true);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kPacket);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kEnd);
  reader.SetGrowing(false);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kProblem);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kPacket);
  EXPECT_EQ(reader.CurrentPacket().header.exchange, 3u);
}

}  // namespace
}  // namespace fenlux::testing
