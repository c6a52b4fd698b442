// A capture's report as one HTML page that needs nothing else: no network, no script, no font.
#pragma once

#include <string>

#include "refhost/capture/report/capture_statistics.h"

namespace fenlux::capture {

// `title` and `file` are shown at the top; they may contain anything.
std::string ReportPage(const CaptureStatistics& statistics, const std::string& title, const std::string& file);

}  // namespace fenlux::capture
