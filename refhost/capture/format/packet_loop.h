// The loop over all that a reader finds in a capture.
#pragma once

#include <cstdint>
#include <functional>

#include "refhost/capture/format/capture_reader.h"

namespace fenlux::capture {

struct PacketSinks {
  std::function<void(const Packet& packet)> packet;
  std::function<void(const Problem& problem)> problem;
  std::function<void(std::uint64_t offset)> progress;  // told now and then how far the reader is; may be empty
};

// Reads until the reader's end, on the caller's thread. Exceptions of the sinks pass through.
void ReadPackets(CaptureReader& reader, const PacketSinks& sinks);

}  // namespace fenlux::capture
