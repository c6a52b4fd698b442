// Passes packets, problems and the progress to their sinks.
#include "refhost/capture/format/packet_loop.h"

namespace fenlux::capture {
namespace {

// Packets between two reports of progress.
constexpr std::uint64_t kProgressStep = 256;

}  // namespace

void ReadPackets(CaptureReader& reader, const PacketSinks& sinks) {
  for (std::uint64_t count = 1;; ++count) {
    if (sinks.progress && count % kProgressStep == 0) sinks.progress(reader.Offset());
    switch (reader.Next()) {
      case CaptureReader::Result::kPacket:
        sinks.packet(reader.CurrentPacket());
        break;
      case CaptureReader::Result::kProblem:
        sinks.problem(reader.CurrentProblem());
        break;
      case CaptureReader::Result::kEnd:
        return;
    }
  }
}

}  // namespace fenlux::capture
