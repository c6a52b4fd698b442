// The report's charts, as inline SVG. Colours come from the page's style, so that they fit its light and dark modes.
#pragma once

#include <string>

#include "refhost/capture/report/capture_statistics.h"

namespace fenlux::capture {

// A bar for each connection, from its start to its end.
std::string ConnectionsChart(const CaptureStatistics& statistics);
// Notifications per second over time.
std::string RateChart(const TimeLine& timeLine);
// The p50 and p99 latencies over time, on a logarithmic scale.
std::string LatencyChart(const TimeLine& timeLine);
// The number of notifications per range of latency.
std::string HistogramChart(const LatencyHistogram& histogram);

}  // namespace fenlux::capture
