// Decodes a capture: reads its packets, pairs them, and gives out what passes the filter.
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
  std::function<void(std::uint64_t offset)> progress = {};  // called now and then; may be empty
};

// One thread.
class CaptureDecoder {
 public:
  CaptureDecoder(ExchangeFilter exchangeFilter, bool showHex, DecodeSinks decodeSinks);

  // Reads on to the end of what `reader` has. Exchanges that wait for their reply go on in the next call.
  void Read(CaptureReader& reader);
  // Gives out the exchanges that still wait.
  void Finish() { pairing.Flush(); }

 private:
  const ExchangeFilter filter;
  const bool hex;
  const DecodeSinks sinks;
  ExchangePairing pairing;
};

}  // namespace fenlux::capture
