// Reads the packets of a capture file in either byte order. Memory use is bounded whatever the file contains, and
// damage costs only the blocks it affects.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "refhost/capture/format/block_stream.h"
#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

// A problem at one position of the file.
struct Problem {
  std::uint64_t offset = 0;  // in bytes
  std::string text;
};

// One thread.
class CaptureReader {
 public:
  // Reads from the stream's current position, which becomes offset 0. The stream must outlive the reader.
  explicit CaptureReader(std::istream& input) : blocks(input) {}

  enum class Result {
    kPacket,   // see CurrentPacket
    kProblem,  // see CurrentProblem; call Next again to continue
    kEnd,      // nothing is left; if the stream grows later, Next continues
  };
  // Reads the next packet. Skips blocks that are not packets.
  Result Next();

  // The packet that Next found. Valid until Next is called again.
  const Packet& CurrentPacket() const { return packet; }
  const Problem& CurrentProblem() const { return problem; }

  // Set this while the file is still being written: a block that extends beyond the end of the stream is then left for
  // later, whatever it contains.
  void SetGrowing(bool isGrowing) { blocks.SetGrowing(isGrowing); }
  // Whether the stream ends in the middle of a block, and where that block begins.
  bool CutOff() const { return blocks.CutOff(); }
  std::uint64_t Offset() const { return blocks.Offset(); }
  // Whether a section header was found: whether the stream is a pcapng file at all.
  bool IsCapture() const { return sectionFound; }

 private:
  struct Interface {
    bool isPort = false;
    bool powerOfTwo = false;
    std::uint32_t exponent = 0;
    std::int64_t offsetSeconds = 0;
  };

  Result Report(std::uint64_t offset, std::string text);
  bool ReadSection(const BlockView& block);
  bool ReadInterface(const BlockView& block);
  // False if the packet is malformed, in which case `problem` says why, or does not belong to the port.
  bool ReadPacket(const BlockView& block);
  static std::uint64_t TimeOf(const Interface& interfaceOfPacket, std::uint64_t units);

  BlockStream blocks;
  std::vector<Interface> interfaces;  // of the current section
  Packet packet;
  Problem problem;
  bool sectionFound = false;
};

}  // namespace fenlux::capture
