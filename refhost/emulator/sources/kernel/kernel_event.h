// The notification that the module receives for a kernel event.
#pragma once

#include <sys/fanotify.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/emulator/emulator_settings.h"

namespace fenlux::refhost {

// The kernel's mask of the events that the settings select; 0 for none.
std::uint64_t KernelEventMask(const KernelEventSettings& settings);

// The code of the event's notification.
std::uint32_t KernelEventCode(const fanotify_event_metadata& event);
// What the program does with the event's file: "open", "exec" or "read".
std::string_view KernelOperation(const fanotify_event_metadata& event);

// Builds the notification for an event and its file's path in `message`, whose memory is reused. Throws
// std::bad_alloc.
void BuildKernelNotification(const fanotify_event_metadata& event, const std::string& path,
                             std::vector<std::uint8_t>& message);

}  // namespace fenlux::refhost
