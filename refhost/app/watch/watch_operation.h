// The operation behind `ctl watch`: returns the events since the watcher's last request.
#pragma once

#include "refhost/app/control/control_arguments.h"
#include "refhost/app/watch/event_feed.h"
#include "refhost/base/report.h"

namespace fenlux::refhost {

// {"next": ..., "lost": ..., "unwatched": ..., "more": ..., "events": [...], "lines": [...]}: `events` as objects for
// programs, or `lines` for people. The argument "next" comes from the previous answer; without it the watch begins.
// Throws ControlRefusal.
Report WatchReport(EventFeed& feed, const ControlArguments& arguments);

}  // namespace fenlux::refhost
