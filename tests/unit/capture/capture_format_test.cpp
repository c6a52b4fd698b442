// The capture format: what the writer writes, byte for byte, and what the reader accepts.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>

#include "tests/unit/capture/capture_support.h"

namespace fenlux::testing {
namespace {

using namespace fenlux::capture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

template <std::size_t size>
std::string Literal(const char (&text)[size]) {
  return {text, size - 1};
}

// Reverses the bytes of an integer at `at`.
void Swap(std::string& bytes, std::size_t at, std::size_t size) {
  std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
}

TEST(CaptureFormat, AFileBeginsWithASectionAndThePort) {
  Bytes bytes;
  AppendFileHeader(bytes);
  EXPECT_EQ(Text(bytes), Literal("\x0A\x0D\x0D\x0A\x2C\x00\x00\x00\x4D\x3C\x2B\x1A\x01\x00\x00\x00"
                                 "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"
                                 "\x04\x00\x06\x00"
                                 "fenlux\x00\x00\x00\x00\x00\x00\x2C\x00\x00\x00"
                                 "\x01\x00\x00\x00\x30\x00\x00\x00\x93\x00\x00\x00\x00\x00\x00\x00"
                                 "\x02\x00\x0B\x00"
                                 "fenlux port\x00\x09\x00\x01\x00\x09\x00\x00\x00\x00\x00\x00\x00\x30\x00\x00\x00"));
}

TEST(CaptureFormat, APacketHasItsHeaderDirectionAndDropCount) {
  Packet packet;
  packet.header = {Kind::kNotification, 0x01020304, 0x1112131415161718};
  packet.time = 0x2122232425262728;
  packet.dropped = 5;
  const std::array<std::uint8_t, 3> message{0xA1, 0xA2, 0xA3};
  packet.message = message;
  packet.originalSize = 3;
  Bytes bytes;
  AppendPacket(bytes, packet);
  EXPECT_EQ(Text(bytes), Literal("\x06\x00\x00\x00\x4C\x00\x00\x00\x00\x00\x00\x00"
                                 "\x24\x23\x22\x21\x28\x27\x26\x25\x13\x00\x00\x00\x13\x00\x00\x00"
                                 "\x01\x04\x00\x00\x04\x03\x02\x01\x18\x17\x16\x15\x14\x13\x12\x11"
                                 "\xA1\xA2\xA3\x00"
                                 "\x02\x00\x04\x00\x01\x00\x00\x00"
                                 "\x04\x00\x08\x00\x05\x00\x00\x00\x00\x00\x00\x00"
                                 "\x00\x00\x00\x00\x4C\x00\x00\x00"));
  EXPECT_EQ(PacketBlockSize(packet), bytes.size());
}

TEST(CaptureFormat, TrailingZerosOfARequestAreOmitted) {
  const std::string message = std::string("request") + std::string(65554, '\0');
  Packet packet;
  packet.header.kind = Kind::kRequest;
  packet.message = {reinterpret_cast<const std::uint8_t*>(message.data()), message.size()};
  CutZeros(packet);
  EXPECT_EQ(packet.Text(), "request");
  EXPECT_EQ(packet.originalSize, 65561u);

  Bytes bytes;
  AppendFileHeader(bytes);
  AppendPacket(bytes, packet);
  const ReadCapture read = ReadAll(Text(bytes));
  ASSERT_EQ(read.packets.size(), 1u);
  EXPECT_EQ(read.packets[0].message, "request");
  EXPECT_EQ(read.packets[0].packet.originalSize, 65561u);
}

TEST(CaptureFormat, PacketsAreReadBackAsWritten) {
  CaptureText capture;
  const std::size_t first = capture.Add(Kind::kConnectContext, 0, "context", 1'700'000'000'123'456'789);
  capture.Add(Kind::kRequestReply, 7, "", 1'700'000'000'123'456'790, "the driver fails");
  const ReadCapture read = ReadAll(capture.Text());
  EXPECT_THAT(read.problems, IsEmpty());
  EXPECT_FALSE(read.cutOff);
  ASSERT_EQ(read.packets.size(), 2u);
  const Packet& context = read.packets[0].packet;
  EXPECT_EQ(context.header.kind, Kind::kConnectContext);
  EXPECT_EQ(context.header.connection, 1u);
  EXPECT_EQ(context.direction, Direction::kFromModule);
  EXPECT_EQ(context.time, 1'700'000'000'123'456'789u);
  EXPECT_EQ(context.offset, first);
  EXPECT_EQ(read.packets[0].message, "context");
  EXPECT_EQ(read.packets[1].packet.header.exchange, 7u);
  EXPECT_EQ(read.packets[1].packet.direction, Direction::kToModule);
  EXPECT_EQ(read.packets[1].comment, "the driver fails");
}

TEST(CaptureFormat, StatisticsAndUnknownBlocksAreSkipped) {
  Bytes bytes;
  AppendFileHeader(bytes);
  AppendStatistics(bytes, 1, 10, 2);
  std::string text = Text(bytes) + Literal(
                                       "\xAD\x0B\x00\x00\x10\x00\x00\x00"
                                       "abcd\x10\x00\x00\x00");
  CaptureText capture;
  const std::size_t header = capture.Size();
  capture.Add(Kind::kCall, 3, "{}");
  text += capture.Text().substr(header);
  const ReadCapture read = ReadAll(text);
  EXPECT_THAT(read.problems, IsEmpty());
  EXPECT_THAT(read.Exchanges(), ElementsAre(3));
}

TEST(CaptureFormat, BlocksInTheOtherByteOrderAreRead) {
  CaptureText capture;
  const std::size_t packet = capture.Add(Kind::kNotification, 9, "abcd", 0x0102030405060708);
  std::string bytes = capture.Text();
  // The section: length, magic, versions, section length, option header, trailing length.
  for (const std::size_t at : {4U, 8U, 40U}) Swap(bytes, at, 4);
  for (const std::size_t at : {12U, 14U, 24U, 26U}) Swap(bytes, at, 2);
  Swap(bytes, 16, 8);
  // The interface: type, length, link type, captured length, option headers, trailing length.
  for (const std::size_t at : {44U, 48U, 56U, 88U}) Swap(bytes, at, 4);
  for (const std::size_t at : {52U, 54U, 60U, 62U, 76U, 78U}) Swap(bytes, at, 2);
  // The packet: type, length, interface, times, lengths, flags, drop count, trailing length. The payload stays.
  for (const std::size_t at : {0U, 4U, 8U, 12U, 16U, 20U, 24U, 52U, 72U}) Swap(bytes, packet + at, 4);
  for (const std::size_t at : {48U, 50U, 56U, 58U}) Swap(bytes, packet + at, 2);
  Swap(bytes, packet + 60, 8);
  const ReadCapture read = ReadAll(bytes);
  for (const Problem& problem : read.problems) ADD_FAILURE() << problem.offset << ": " << problem.text;
  ASSERT_EQ(read.packets.size(), 1u);
  EXPECT_EQ(read.packets[0].packet.time, 0x0102030405060708u);
  EXPECT_EQ(read.packets[0].packet.header.exchange, 9u);
  EXPECT_EQ(read.packets[0].packet.direction, Direction::kToModule);
  EXPECT_EQ(read.packets[0].message, "abcd");
}

TEST(CaptureFormat, TimesOfOtherResolutionsAreConvertedToNanoseconds) {
  struct Case {
    std::uint8_t resolution;
    std::uint64_t units, nanoseconds;
  };
  for (const Case& each : {Case{6, 5, 5000}, Case{9, 5, 5}, Case{12, 5000, 5}, Case{3, 2, 2'000'000},
                           Case{0x80 | 10, 1536, 1'500'000'000}, Case{0, 3, 3'000'000'000}}) {
    CaptureText capture;
    capture.Add(Kind::kCall, 1, "{}", each.units);
    std::string bytes = capture.Text();
    bytes[80] = static_cast<char>(each.resolution);
    const ReadCapture read = ReadAll(bytes);
    ASSERT_EQ(read.packets.size(), 1u);
    EXPECT_EQ(read.packets[0].packet.time, each.nanoseconds) << int{each.resolution};
  }
}

TEST(CaptureFormat, AGrowingFileIsReadAsItGrows) {
  CaptureText capture;
  capture.Add(Kind::kCall, 1, "{}");
  const std::size_t second = capture.Add(Kind::kCall, 2, "{}");
  const std::string all = capture.Text();
  std::stringstream stream;
  stream << all.substr(0, second + 10);
  CaptureReader reader(stream);
  reader.SetGrowing(true);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kPacket);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kEnd);
  EXPECT_TRUE(reader.CutOff());
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kEnd);
  stream.clear();
  stream << all.substr(second + 10);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kPacket);
  EXPECT_EQ(reader.CurrentPacket().header.exchange, 2u);
  EXPECT_EQ(reader.Next(), CaptureReader::Result::kEnd);
  EXPECT_FALSE(reader.CutOff());
}

}  // namespace
}  // namespace fenlux::testing
