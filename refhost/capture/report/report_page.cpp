// Composes the page's sections in order. All text from the capture passes through Escaped.
#include "refhost/capture/report/report_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "refhost/capture/decode/exchange_report.h"
#include "refhost/capture/decode/protocol_names.h"
#include "refhost/capture/report/charts.h"
#include "refhost/capture/report/html_text.h"

namespace fenlux::capture {
namespace {

constexpr std::size_t kTopEntries = 15;

// The colours can be distinguished with every kind of colour blindness, on both backgrounds.
constexpr std::string_view kStyle = R"(<style>
:root { color-scheme: light dark; --back: #ffffff; --text: #1b1b1b; --faint: #5c5c5c; --rule: #d0d0d0;
  --one: #0072b2; --two: #d55e00; --shade: #f3f5f7; }
@media (prefers-color-scheme: dark) {
  :root { --back: #16181b; --text: #e8e8e8; --faint: #a8a8a8; --rule: #43474d; --one: #56b4e9; --two: #e69f00;
    --shade: #1f2327; }
}
body { margin: 2rem auto; padding: 0 1rem; max-width: 60rem; background: var(--back); color: var(--text);
  font: 16px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.6rem; margin-bottom: 0; } h2 { font-size: 1.2rem; margin-top: 2.2rem; } h3 { font-size: 1rem; }
p.note, figcaption { color: var(--faint); }
a { color: var(--one); }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: 0.2rem 0.6rem; border-bottom: 1px solid var(--rule); vertical-align: top; }
td.number, th.number { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
td.name { overflow-wrap: anywhere; } td.time { white-space: nowrap; }
td.share { width: 30%; } td.share div { background: var(--one); height: 0.8rem; margin-top: 0.35rem; min-width: 1px; }
.pair { display: grid; grid-template-columns: repeat(auto-fit, minmax(22rem, 1fr)); gap: 0 2rem;
  align-items: start; }
figure { margin: 0.5rem 0; } svg { width: 100%; height: auto; } svg text { font-size: 12px; fill: var(--faint); }
.grid { stroke: var(--rule); stroke-dasharray: 2 4; } .axis { stroke: var(--faint); }
rect.bar, rect.connection { fill: var(--one); } rect.open { fill: var(--two); }
polyline { fill: none; stroke-width: 2; } polyline.half { stroke: var(--one); }
polyline.most { stroke: var(--two); stroke-dasharray: 6 3; } circle.half { fill: var(--one); }
circle.most { fill: var(--two); } .key.half { color: var(--one); } .key.most { color: var(--two); }
pre { background: var(--shade); padding: 0.6rem; overflow-x: auto; white-space: pre-wrap; overflow-wrap: anywhere; }
:target { outline: 2px solid var(--two); }
</style>
)";

// A time to display: "2026-01-31 12:34:56.123". The page says that it is UTC.
std::string ShownTime(std::uint64_t time) {
  std::string text = TimeText(time);
  text.resize(std::min<std::size_t>(text.size(), 23));
  std::ranges::replace(text, 'T', ' ');
  return text;
}

class Page {
 public:
  Page(const CaptureStatistics& pageStatistics) : statistics(pageStatistics) {
    for (const LatencyHistogram& interval : statistics.timeLine.Intervals()) latencies.Add(interval);
  }

  std::string Compose(const std::string& title, const std::string& file) {
    Add("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width\">\n<title>{}</title>\n",
        Escaped(title));
    page += kStyle;
    Add("</head>\n<body>\n<h1>{}</h1>\n<p class=\"note\">{}</p>\n", Escaped(title), Escaped(file));
    AddSummary();
    AddConnections();
    AddTimes();
    AddNumbers("Verdicts", "verdicts", statistics.verdicts, [](std::uint32_t number) { return VerdictName(number); });
    AddNumbers("Decisions", "decisions", statistics.decisions, [](std::uint32_t) { return std::string_view(); });
    AddNumbers("Notifications by code", "codes", statistics.codes,
               [](std::uint32_t number) { return CodeName(number); });
    AddNumbers("Requests by command", "commands", statistics.commands,
               [](std::uint32_t number) { return CommandName(number); });
    AddTop("Rules", "rules", statistics.rules, "(no rule: the default decision)");
    AddTop("Processes", "processes", statistics.processes, "");
    AddTop("Paths", "paths", statistics.paths, "");
    AddProblems();
    AddExchanges();
    page += "</body>\n</html>\n";
    return std::move(page);
  }

 private:
  template <typename... Values>
  void Add(fmt::format_string<Values...> format, Values&&... values) {
    fmt::format_to(std::back_inserter(page), format, std::forward<Values>(values)...);
  }

  void AddRow(std::string_view id, std::string_view name, const std::string& value) {
    Add("<tr><th scope=\"row\">{}</th><td class=\"number\" id=\"{}\">{}</td></tr>\n", name, id, Escaped(value));
  }

  void AddSummary() {
    page += "<h2>Summary</h2>\n<div class=\"pair\">\n<table>\n";
    AddRow("begin", "First message (UTC)", ShownTime(statistics.begin));
    AddRow("duration", "Duration", DurationText(statistics.end - statistics.begin));
    AddRow("connection-count", "Connections", std::to_string(statistics.connections.size()));
    AddRow("requests", "Requests", std::to_string(statistics.requests));
    AddRow("notifications", "Notifications", std::to_string(statistics.notifications));
    AddRow("without-reply", "Need no reply", std::to_string(statistics.withoutReply));
    page += "</table>\n<table>\n";
    AddRow("p50", "Latency, p50", DurationText(latencies.Percentile(0.5)));
    AddRow("p99", "Latency, p99", DurationText(latencies.Percentile(0.99)));
    AddRow("max", "Latency, longest", DurationText(latencies.Max()));
    AddRow("malformed", "Malformed messages", std::to_string(statistics.malformed));
    AddRow("failed", "Failed exchanges", std::to_string(statistics.failed));
    AddRow("unanswered", "Without a reply in the capture", std::to_string(statistics.unanswered));
    AddRow("lost", "Messages missing in the capture", std::to_string(statistics.lost));
    AddRow("damages", "Damaged places in the file", std::to_string(statistics.damages));
    page += "</table>\n</div>\n";
    if (statistics.cutOff) page += "<p class=\"note\">The file ends in the middle of a block.</p>\n";
  }

  void AddFigure(const std::string& svg, std::string_view caption) {
    Add("<figure>\n{}<figcaption>{}</figcaption>\n</figure>\n", svg, caption);
  }

  void AddConnections() {
    page += "<h2>Connections</h2>\n";
    if (statistics.connections.empty()) return AddNothing();
    AddFigure(ConnectionsChart(statistics), "Connections by number, starting at the first message of the capture.");
    page +=
        "<table id=\"connections\">\n<tr><th>Connection</th><th>Begin (UTC)</th><th class=\"number\">Duration</th>"
        "<th class=\"number\">Requests</th><th class=\"number\">Notifications</th><th>End</th></tr>\n";
    for (const ConnectionNumbers& numbers : statistics.connections) {
      const std::uint64_t end = numbers.end.value_or(statistics.end);
      Add("<tr><td>{}</td><td class=\"time\">{}</td><td class=\"number\">{}</td><td class=\"number\">{}</td>"
          "<td class=\"number\">{}</td><td class=\"name\">{}</td></tr>\n",
          numbers.connection, ShownTime(numbers.begin), DurationText(end < numbers.begin ? 0 : end - numbers.begin),
          numbers.requests, numbers.notifications,
          numbers.end ? Escaped(numbers.reason) : "open at the end of the capture");
    }
    page += "</table>\n";
  }

  void AddTimes() {
    page += "<h2>Rate and latency</h2>\n";
    if (latencies.Count() == 0) return AddNothing();
    AddFigure(RateChart(statistics.timeLine), "Notifications per second, starting at the first notification.");
    AddFigure(LatencyChart(statistics.timeLine),
              "Latency over time: <span class=\"key half\">p50, solid</span>, "
              "<span class=\"key most\">p99, dashed</span>.");
    AddFigure(HistogramChart(latencies), "Latency from delivery to reply: number of notifications.");
  }

  template <typename NameOf>
  void AddNumbers(std::string_view heading, std::string_view id, const std::map<std::uint32_t, std::uint64_t>& numbers,
                  const NameOf& nameOf) {
    Add("<h2>{}</h2>\n", heading);
    if (numbers.empty()) return AddNothing();
    std::uint64_t maxCount = 1;
    for (const auto& [number, count] : numbers) maxCount = std::max(maxCount, count);
    Add("<table id=\"{}\">\n", id);
    for (const auto& [number, count] : numbers) {
      Add("<tr data-number=\"{0}\"><td>{0}</td><td class=\"name\">{1}</td><td class=\"number\">{2}</td>"
          "<td class=\"share\"><div style=\"width:{3:.1f}%\"></div></td></tr>\n",
          number, Escaped(nameOf(number)), count, 100.0 * static_cast<double>(count) / static_cast<double>(maxCount));
    }
    page += "</table>\n";
  }

  void AddTopTable(std::string_view caption, const std::vector<TopEntry>& entries, std::string_view emptyKey) {
    Add("<div><h3>{}</h3>\n<table>\n<tr><th>Name</th><th class=\"number\">Count</th><th "
        "class=\"number\">Time</th></tr>\n",
        caption);
    for (const TopEntry& entry : entries) {
      Add("<tr><td class=\"name\">{}</td><td class=\"number\">{}</td><td class=\"number\">{}</td></tr>\n",
          entry.key.empty() ? Escaped(emptyKey) : Escaped(entry.key), entry.count, DurationText(entry.time));
    }
    page += "</table></div>\n";
  }

  void AddTop(std::string_view heading, std::string_view id, const TopList& list, std::string_view emptyKey) {
    Add("<h2>{}</h2>\n", heading);
    const std::vector<TopEntry> byCount = list.ByCount(kTopEntries);
    if (byCount.empty()) return AddNothing();
    Add("<div class=\"pair\" id=\"{}\">\n", id);
    AddTopTable("By count", byCount, emptyKey);
    AddTopTable("By total time", list.ByTime(kTopEntries), emptyKey);
    page += "</div>\n";
    if (list.Incomplete())
      page += "<p class=\"note\">There are too many to count them all; rare ones are left out.</p>\n";
  }

  void AddNothing() { page += "<p class=\"note\">None in this capture.</p>\n"; }

  static std::string Anchor(const ShownExchange& shown) {
    return fmt::format("x{}-{}-{}", shown.connection, shown.exchange, shown.offset);
  }

  void AddLinks(std::string_view id, const std::vector<ShownExchange>& exchanges) {
    Add("<table id=\"{}\">\n<tr><th>Exchange</th><th class=\"number\">Offset</th><th class=\"number\">Latency</th>"
        "<th>What</th></tr>\n",
        id);
    for (const ShownExchange& shown : exchanges) {
      Add("<tr><td><a href=\"#{}\">{}:{}</a></td><td class=\"number\">{}</td><td class=\"number\">{}</td>"
          "<td class=\"name\">{}</td></tr>\n",
          Anchor(shown), shown.connection, shown.exchange, shown.offset, DurationText(shown.latency),
          Escaped(shown.problem.empty() ? shown.subject : shown.problem));
    }
    page += "</table>\n";
  }

  void AddProblems() {
    page += "<h2>Errors and malformed messages</h2>\n";
    if (statistics.problems.empty() && statistics.damage.empty()) AddNothing();
    if (!statistics.problems.empty()) AddLinks("problems", statistics.problems);
    const std::uint64_t all = statistics.malformed + statistics.failed + statistics.unanswered;
    if (all > statistics.problems.size()) {
      Add("<p class=\"note\">The first {} of {}.</p>\n", statistics.problems.size(), all);
    }
    if (!statistics.damage.empty()) {
      page += "<table id=\"damage\">\n<tr><th class=\"number\">Offset</th><th>Damage of the file</th></tr>\n";
      for (const Problem& problem : statistics.damage) {
        Add("<tr><td class=\"number\">{}</td><td class=\"name\">{}</td></tr>\n", problem.offset, Escaped(problem.text));
      }
      page += "</table>\n";
    }
    page += "<h2>Slowest notifications</h2>\n";
    if (statistics.slowest.empty()) return AddNothing();
    AddLinks("slowest", statistics.slowest);
  }

  void AddExchanges() {
    page +=
        "<h2>Exchanges</h2>\n<p class=\"note\">Those that the tables above link to, as \"fenlux-host decode\" shows "
        "them.</p>\n";
    std::vector<const ShownExchange*> shown;
    for (const auto* list : {&statistics.problems, &statistics.slowest}) {
      for (const ShownExchange& exchange : *list) shown.push_back(&exchange);
    }
    std::ranges::sort(shown, {}, &ShownExchange::offset);
    const auto same = [](const ShownExchange* one, const ShownExchange* other) { return one->offset == other->offset; };
    shown.erase(std::unique(shown.begin(), shown.end(), same), shown.end());
    for (const ShownExchange* exchange : shown) {
      Add("<pre id=\"{}\">{}</pre>\n", Anchor(*exchange), WithoutMarkup(exchange->text));
    }
  }

  const CaptureStatistics& statistics;
  LatencyHistogram latencies;
  std::string page;
};

}  // namespace

std::string ReportPage(const CaptureStatistics& statistics, const std::string& title, const std::string& file) {
  return Page(statistics).Compose(title, file);
}

}  // namespace fenlux::capture
