// Decodes a capture: reads its packets, pairs them, and passes on the exchanges that match the filter.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>

#include "refhost/capture/decode/exchange_pairing.h"
#include "refhost/capture/decode/exchange_report.h"
#include "refhost/capture/format/capture_reader.h"

namespace fenlux::capture {

struct DecodeSinks {
  std::function<void(const refhost::Report& report)> exchange;
  std::function<void(const Problem& problem)> problem;
  std::function<void(std::uint64_t offset)> progress = {};  // called periodically; may be empty
};

// One thread.
class CaptureDecoder {
 public:
  CaptureDecoder(ExchangeFilter exchangeFilter, bool showHex, DecodeSinks decodeSinks);

  // Reads to the end of `reader`. Exchanges without a reply so far may be completed by the next call.
  void Read(CaptureReader& reader);
  // Passes on the exchanges that still lack a reply.
  void Finish() { pairing.Flush(); }

 private:
  const ExchangeFilter filter;
  const bool hex;
  const DecodeSinks sinks;
  ExchangePairing pairing;
};

}  // namespace fenlux::capture
