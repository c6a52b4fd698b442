// The report's pictures, as inline SVG. Colours come from the page's style, so that they fit its light and dark form.
#pragma once

#include <string>

#include "refhost/capture/report/capture_statistics.h"

namespace fenlux::capture {

// A bar for each connection from its beginning to its end.
std::string ConnectionsChart(const CaptureStatistics& statistics);
// Notifications per second over time.
std::string RateChart(const TimeLine& timeLine);
// The latencies that half and 99 of 100 notifications do not exceed, over time, on a logarithmic scale.
std::string LatencyChart(const TimeLine& timeLine);
// How many notifications had which latency.
std::string HistogramChart(const LatencyHistogram& histogram);

}  // namespace fenlux::capture
