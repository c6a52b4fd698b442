// Polls the host for new events. A watcher that is blocked on its output does not poll, and so loses events; the host
// never waits for it.
#include "refhost/app/commands/watch_events.h"

#include <fmt/format.h>

#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "refhost/app/exit_codes.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

// The pause between two polls, unless more events are waiting.
constexpr std::chrono::milliseconds kInterval{100};

// Reports the events that this watcher missed.
void ShowLoss(const Report& news, bool json) {
  const auto lost = news.at("lost").get<std::uint64_t>();
  const bool unwatched = news.at("unwatched").get<bool>();
  if (lost == 0 && !unwatched) return;
  if (json) {
    Report report = Report::object();
    report["lost"] = lost;
    report["more_lost"] = unwatched;
    std::cout << JsonText(report) << '\n';
  } else {
    std::cout << fmt::format("-- {}{} events lost: this watcher is too slow\n", unwatched ? "at least " : "", lost);
  }
}

void Show(const Report& news, bool json) {
  ShowLoss(news, json);
  if (json) {
    for (const Report& event : news.at("events")) std::cout << JsonText(event) << '\n';
  } else {
    for (const Report& line : news.at("lines")) std::cout << line.get_ref<const std::string&>() << '\n';
  }
  std::cout << std::flush;
}

}  // namespace

int WatchEvents(ControlRequest request, bool json,
                const std::function<ControlAnswer(const ControlRequest& request)>& send) {
  if (json) request.arguments["objects"] = "true";
  for (;;) {
    const ControlAnswer answer = send(request);
    if (!answer.done) {
      std::cerr << PrintableLines(answer.error) << '\n';
      return kExitRefused;
    }
    const Report news = Report::parse(answer.json);
    Show(news, json);
    if (!std::cout) return kExitOutput;
    request.arguments["next"] = std::to_string(news.at("next").get<std::uint64_t>());
    if (!news.at("more").get<bool>()) std::this_thread::sleep_for(kInterval);
  }
}

}  // namespace fenlux::refhost
