// Maps the kernel's event masks to notification codes, and fills in the notifications.
#include "refhost/emulator/sources/kernel/kernel_event.h"

#include <algorithm>
#include <iterator>

#include "kdi/driver_records.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/emulator/sources/notification_builder.h"

namespace fenlux::refhost {
namespace {

// The notification codes for opening and for reading a file.
constexpr std::uint32_t kOpenCode = records::code::kAccess1;
constexpr std::uint32_t kReadCode = records::code::kPlain;

struct EventKind {
  std::uint64_t mask;
  bool KernelEventSettings::*setting;
  std::uint32_t code;
  std::uint8_t conditionA;
  std::string_view operation;
};
// An event may have several bits of the mask; the first matching row applies.
constexpr EventKind kEventKinds[] = {
    {FAN_OPEN_EXEC_PERM, &KernelEventSettings::onExec, kOpenCode, 1, "exec"},
    {FAN_OPEN_PERM, &KernelEventSettings::onOpen, kOpenCode, 0, "open"},
    {FAN_ACCESS_PERM, &KernelEventSettings::onAccess, kReadCode, 0, "read"},
};
constexpr const EventKind& kDefaultKind = kEventKinds[1];

const EventKind& KindOf(std::uint64_t mask) {
  const auto* kind = std::find_if(std::begin(kEventKinds), std::end(kEventKinds),
                                  [mask](const EventKind& candidate) { return (candidate.mask & mask) != 0; });
  return kind == std::end(kEventKinds) ? kDefaultKind : *kind;
}

}  // namespace

std::uint64_t KernelEventMask(const KernelEventSettings& settings) {
  std::uint64_t mask = 0;
  for (const EventKind& kind : kEventKinds) {
    if (settings.*kind.setting) mask |= kind.mask;
  }
  return mask;
}

std::uint32_t KernelEventCode(const fanotify_event_metadata& event) { return KindOf(event.mask).code; }

std::string_view KernelOperation(const fanotify_event_metadata& event) { return KindOf(event.mask).operation; }

void BuildKernelNotification(const fanotify_event_metadata& event, const std::string& path,
                             std::vector<std::uint8_t>& message) {
  const EventKind& kind = KindOf(event.mask);
  NotificationFields fields;
  fields.code = kind.code;
  fields.conditionA = kind.conditionA;
  fields.processId = static_cast<std::uint64_t>(event.pid);
  fields.accessValueA = static_cast<std::uint32_t>(event.mask);
  fields.path = Utf16FromNarrow(path);
  message.resize(NotificationSize(fields));
  WriteNotification(fields, message.data());
}

}  // namespace fenlux::refhost
