// The loop over all packets and problems of a capture.
#pragma once

#include <cstdint>
#include <functional>

#include "refhost/capture/format/capture_reader.h"

namespace fenlux::capture {

struct PacketSinks {
  std::function<void(const Packet& packet)> packet;
  std::function<void(const Problem& problem)> problem;
  std::function<void(std::uint64_t offset)> progress;  // gets the reader's position periodically; may be empty
};

// Reads to the reader's end on the caller's thread. Propagates exceptions from the sinks.
void ReadPackets(CaptureReader& reader, const PacketSinks& sinks);

}  // namespace fenlux::capture
