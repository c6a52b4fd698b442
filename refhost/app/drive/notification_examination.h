// Checks the notifications of a driver.
#pragma once

#include "refhost/app/drive/drive_findings.h"
#include "refhost/capture/decode/exchange_pairing.h"

namespace fenlux::refhost {

// Examines size, code, items and texts of the exchange's notification.
void ExamineNotification(const capture::Exchange& exchange, DriveFindings& findings);

}  // namespace fenlux::refhost
