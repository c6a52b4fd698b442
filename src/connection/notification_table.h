// Notification codes: their event types, and what else each stores in the event record.
#pragma once

#include <cstdint>

#include "host/arp_record.h"
#include "host/win_work.h"
#include "kdi/driver_records.h"

namespace fenlux {

// The event type of a notification, and the one that its variant flag selects. Equal if there is no variant.
struct EventTypes {
  std::uint32_t plain;
  std::uint32_t variant;
};

// A notification and the record it is stored in.
struct NotificationContext {
  const records::Notification& message;
  CArpRecord& record;
  CWinWork& winWork;
  bool& replyWanted;  // set to false by a code that needs no reply
};

// Stores what a code carries besides paths. Returns the event types to choose from, usually `rowTypes`. Throws what
// the host throws.
using RecordWork = EventTypes (*)(NotificationContext& context, EventTypes rowTypes);

struct NotificationRow {
  std::uint32_t code;
  EventTypes types;
  RecordWork work;  // null if the code has nothing but an event type
};

// Returns the row of a code, or null for an unknown code. Any thread.
const NotificationRow* FindNotificationRow(std::uint32_t code);

}  // namespace fenlux
