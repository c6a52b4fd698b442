// What each notification code means: its event type, the type of its variant, and what else it puts into the record.
#pragma once

#include <cstdint>

#include "host/arp_record.h"
#include "host/win_work.h"
#include "kdi/driver_records.h"

namespace fenlux {

// The event type of a notification, and the one that its variant flag selects instead; the same where there is no pair.
struct EventTypes {
  std::uint32_t plain;
  std::uint32_t variant;
};

// One notification on its way into its record.
struct NotificationContext {
  const records::Notification& message;
  CArpRecord& record;
  CWinWork& winWork;
  bool& replyWanted;  // cleared by the code that the driver expects no answer to
};

// Extra record work of a code; gives the event types to choose from, most often the row's own.
using RecordWork = EventTypes (*)(NotificationContext& context, EventTypes rowTypes);

struct NotificationRow {
  std::uint32_t code;
  EventTypes types;
  RecordWork work;  // null where the event type is all there is
};

// The row of a code, or null for a code that is not known. Any thread.
const NotificationRow* FindNotificationRow(std::uint32_t code);

}  // namespace fenlux
