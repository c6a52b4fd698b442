// A capture's report as one self-contained HTML page: no network, no script, no font.
#pragma once

#include <string>

#include "refhost/capture/report/capture_statistics.h"

namespace fenlux::capture {

// `title` and `file` appear at the top; they may contain any text.
std::string ReportPage(const CaptureStatistics& statistics, const std::string& title, const std::string& file);

}  // namespace fenlux::capture
