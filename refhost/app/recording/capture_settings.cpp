// Reads the table, and shows a recording's state.
#include "refhost/app/recording/capture_settings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "refhost/base/config/config_reader.h"
#include "refhost/base/text/similar_words.h"

namespace fenlux::refhost {
namespace {

constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;

struct KindChoice {
  std::string_view name;
  bool capture::RecordedKinds::*member;
};

constexpr KindChoice kKinds[] = {
    {"requests", &capture::RecordedKinds::requests},     {"notifications", &capture::RecordedKinds::notifications},
    {"judgements", &capture::RecordedKinds::judgements}, {"facts", &capture::RecordedKinds::facts},
    {"calls", &capture::RecordedKinds::calls},
};

capture::RecordedKinds ReadKinds(const ConfigTable& table) {
  if (!table.Has("kinds")) return {};
  capture::RecordedKinds kinds;
  for (const KindChoice& choice : kKinds) kinds.*choice.member = false;
  for (const std::string& name : table.Texts("kinds")) {
    bool known = false;
    for (const KindChoice& choice : kKinds) {
      if (choice.name != name) continue;
      kinds.*choice.member = true;
      known = true;
    }
    if (known) continue;
    std::vector<std::string_view> names;
    for (const KindChoice& choice : kKinds) names.push_back(choice.name);
    table.Report("kinds",
                 fmt::format("\"{}\" is not one of {}{}", name, fmt::join(names, ", "), DidYouMean(name, names)));
  }
  return kinds;
}

}  // namespace

capture::RecordingSettings ReadCaptureSettings(const ConfigTable& table) {
  capture::RecordingSettings settings;
  settings.file = table.Path("file");
  settings.maxFileSize = table.Unsigned("file_size_mb", 0, 0, 1'000'000) * kMegabyte;
  settings.maxFiles = table.Unsigned("files", settings.maxFiles, 1, 10'000);
  settings.queueSize = static_cast<std::size_t>(table.Unsigned("queue_mb", 16, 1, 1024) * kMegabyte);
  settings.kinds = ReadKinds(table);
  return settings;
}

Report RecordingReport(const capture::RecordingStatus& status) {
  Report report = Report::object();
  report["active"] = status.active;
  report["file"] = status.file.string();
  report["messages"] = status.messages;
  report["written"] = status.written;
  report["dropped"] = status.dropped;
  report["bytes"] = status.bytes;
  report["files"] = status.files;
  report["error"] = status.error;
  return report;
}

}  // namespace fenlux::refhost
