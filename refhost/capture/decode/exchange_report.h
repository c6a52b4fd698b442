// An exchange as JSON and as text, with every field of its records by name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "refhost/base/report.h"
#include "refhost/base/text/glob.h"
#include "refhost/capture/decode/exchange_pairing.h"

namespace fenlux::capture {

// Selects the exchanges to show: those that meet every condition that is set. Without conditions, all of them.
struct ExchangeFilter {
  std::optional<std::uint32_t> code;        // of the notification
  std::optional<std::uint32_t> verdict;     // of the reply to it
  std::optional<refhost::Glob> path;        // matches one of the notification's paths, or the request's
  std::optional<std::uint64_t> slowerThan;  // minimum latency in nanoseconds
};

// The exchange as one JSON object. `hex` adds the bytes of every message. Nullopt if the filter excludes it.
std::optional<refhost::Report> ExchangeReport(const Exchange& exchange, const ExchangeFilter& filter, bool hex);

// That object as lines of text.
std::string ExchangeText(const refhost::Report& report);

// A packet's time as text: "2026-01-31T12:34:56.123456789Z".
std::string TimeText(std::uint64_t time);

}  // namespace fenlux::capture
