// Reads the filter from the arguments, and shows the events that it selects.
#include "refhost/app/watch/watch_operation.h"

#include <nlohmann/json.hpp>

#include "refhost/app/decisions/decision_text.h"
#include "refhost/app/status/status_report.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

std::optional<Glob> GlobArgument(const ControlArguments& arguments, std::string_view name) {
  if (!arguments.contains(name)) return std::nullopt;
  return Glob(TextArgument(arguments, name));
}

WatchFilter FilterOf(const ControlArguments& arguments) {
  WatchFilter filter;
  filter.refusedOnly = HasFlag(arguments, "refused");
  if (arguments.contains("code")) filter.code = Uint32Argument(arguments, "code");
  filter.path = GlobArgument(arguments, "path");
  filter.process = GlobArgument(arguments, "process");
  return filter;
}

Report EventReport(const DecisionRecord& record) {
  Report report = Report::object();
  report["time"] = TimeText(record.time);
  report.update(DecisionReport(record));
  return report;
}

}  // namespace

Report WatchReport(EventFeed& feed, const ControlArguments& arguments) {
  std::optional<std::uint64_t> from;
  if (arguments.contains("next")) from = Uint64Argument(arguments, "next");
  const EventFeed::Batch batch = feed.Read(from, FilterOf(arguments), EventFeed::Clock::now());
  Report report = Report::object();
  report["next"] = batch.next;
  report["lost"] = batch.lost;
  report["unwatched"] = batch.unwatched;
  report["more"] = batch.more;
  const bool asObjects = HasFlag(arguments, "objects");
  Report& shown = report[asObjects ? "events" : "lines"] = Report::array();
  for (const DecisionRecord& record : batch.events) {
    if (asObjects) {
      shown.push_back(EventReport(record));
    } else {
      shown.push_back(TimeText(record.time) + " " + Printable(DecisionText(record)));
    }
  }
  return report;
}

}  // namespace fenlux::refhost
