// Pairs the packets of a reader, and reports the exchanges that pass the filter.
#include "refhost/capture/decode/capture_decoder.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "refhost/capture/format/packet_loop.h"

namespace fenlux::capture {

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
  ReadPackets(reader, {.packet = [this](const Packet& packet) { pairing.Add(packet); },
                       .problem = sinks.problem,
                       .progress = sinks.progress});
}

}  // namespace fenlux::capture
