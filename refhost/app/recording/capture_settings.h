// The [capture] table: where and how a host records its port.
#pragma once

#include "refhost/base/report.h"
#include "refhost/capture/recording_port_client.h"

namespace fenlux::refhost {

class ConfigTable;

// Without a file, recording begins when an operator requests it.
capture::RecordingSettings ReadCaptureSettings(const ConfigTable& table);

// A recording's state, for `ctl record status`, `ctl status` and the summary.
Report RecordingReport(const capture::RecordingStatus& status);

}  // namespace fenlux::refhost
