// What `drive` shows: the result of every check, and every finding.
#pragma once

#include <string>

#include "refhost/app/drive/driver_examination.h"

namespace fenlux::refhost {

// As text for people. `recorded`: the user keeps the capture, so offsets in it are shown.
std::string DriveText(const DriverExamination& examination, const DriveOutcome& outcome, bool recorded);
// As JSON, one object per line: every check, every finding, and the total.
std::string DriveJson(const DriverExamination& examination, const DriveOutcome& outcome);

}  // namespace fenlux::refhost
