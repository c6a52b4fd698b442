// The notification that the module receives for a kernel event.
#pragma once

#include <sys/fanotify.h>

#include <cstdint>
#include <vector>

#include "refhost/emulator/emulator_settings.h"

namespace fenlux::refhost {

// The kernel's mask of the events that the settings ask for; 0 for none.
std::uint64_t KernelEventMask(const KernelEventSettings& settings);

// Builds the event's notification in `message`, whose memory is reused. The path is the one under which /proc knows the
// event's open file. Throws std::bad_alloc.
void BuildKernelNotification(const fanotify_event_metadata& event, std::vector<std::uint8_t>& message);

}  // namespace fenlux::refhost
