// The loop over a reader's results.
#include "refhost/capture/decode/capture_decoder.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace fenlux::capture {
namespace {

// Packets between two reports of progress.
constexpr std::uint64_t kProgressStep = 1024;

}  // namespace

CaptureDecoder::CaptureDecoder(ExchangeFilter exchangeFilter, bool showHex, DecodeSinks decodeSinks)
    : filter(std::move(exchangeFilter)),
      hex(showHex),
      sinks(std::move(decodeSinks)),
      pairing([this](const Exchange& exchange) {
        if (const std::optional<refhost::Report> report = ExchangeReport(exchange, filter, hex)) {
          sinks.exchange(*report);
        }
      }) {}

void CaptureDecoder::Read(CaptureReader& reader) {
  for (std::uint64_t count = 1;; ++count) {
    if (sinks.progress && count % kProgressStep == 0) sinks.progress(reader.Offset());
    switch (reader.Next()) {
      case CaptureReader::Result::kPacket:
        pairing.Add(reader.CurrentPacket());
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
