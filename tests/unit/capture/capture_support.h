// Captures in memory, and the packets that a reader returns from them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/capture/format/block_writer.h"
#include "refhost/capture/format/capture_reader.h"

namespace fenlux::testing {

// The content of a file; fails the test if it cannot be read.
inline std::string BytesOfFile(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream) << file;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// A packet that a reader returned, with copies of the data it points to.
struct ReadPacket {
  capture::Packet packet;
  std::string message;
  std::string comment;
};

struct ReadCapture {
  std::vector<ReadPacket> packets;
  std::vector<capture::Problem> problems;
  bool cutOff = false;
  bool isCapture = false;

  std::vector<std::uint64_t> Exchanges() const {
    std::vector<std::uint64_t> exchanges;
    for (const ReadPacket& read : packets) exchanges.push_back(read.packet.header.exchange);
    return exchanges;
  }
};

inline ReadCapture ReadAll(const std::string& bytes) {
  std::istringstream stream(bytes);
  capture::CaptureReader reader(stream);
  ReadCapture result;
  for (;;) {
    const auto found = reader.Next();
    if (found == capture::CaptureReader::Result::kEnd) break;
    if (found == capture::CaptureReader::Result::kProblem) {
      result.problems.push_back(reader.CurrentProblem());
      continue;
    }
    const capture::Packet& packet = reader.CurrentPacket();
    result.packets.push_back({packet, std::string(packet.Text()), std::string(packet.comment)});
  }
  result.cutOff = reader.CutOff();
  result.isCapture = reader.IsCapture();
  return result;
}

// Composes a capture.
class CaptureText {
 public:
  CaptureText() { capture::AppendFileHeader(bytes); }

  // Adds a packet and returns the offset of its block.
  std::size_t Add(capture::Kind kind, std::uint64_t exchange, std::string_view message, std::uint64_t time = 1,
                  std::string_view comment = {}) {
    capture::Packet packet;
    packet.header = {kind, 1, exchange};
    packet.time = time;
    packet.message = {reinterpret_cast<const std::uint8_t*>(message.data()), message.size()};
    packet.originalSize = message.size();
    packet.comment = comment;
    const std::size_t at = bytes.size();
    capture::AppendPacket(bytes, packet);
    return at;
  }
  std::string Text() const { return {bytes.begin(), bytes.end()}; }
  std::size_t Size() const { return bytes.size(); }

 private:
  capture::Bytes bytes;
};

}  // namespace fenlux::testing
