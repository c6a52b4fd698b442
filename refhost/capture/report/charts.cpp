// Draws axes, bars and lines in a frame of fixed size, which the page scales.
#include "refhost/capture/report/charts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>
#include <vector>

#include "refhost/capture/format/packet.h"
#include "refhost/capture/report/html_text.h"

namespace fenlux::capture {
namespace {

constexpr double kWidth = 900;
constexpr double kHeight = 240;
constexpr double kLeft = 80;
constexpr double kRight = 16;
constexpr double kTop = 12;
constexpr double kBottom = 34;
constexpr double kPlotWidth = kWidth - kLeft - kRight;

// A chart with its frame. Coordinates are relative to the plot: x from 0 to 1, y from 0 (bottom) to 1.
class Chart {
 public:
  Chart(std::string_view label, double plotHeight = kHeight - kTop - kBottom) : height(plotHeight) {
    Append("<svg viewBox=\"0 0 {} {:.0f}\" role=\"img\" aria-label=\"{}\">\n", kWidth, height + kTop + kBottom,
           Escaped(label));
  }

  void Bar(double x, double width, double y, double barHeight, std::string_view kind, std::string_view title) {
    Append("<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.2f}\" height=\"{:.1f}\"><title>{}</title></rect>\n",
           kind, X(x), Y(y + barHeight), std::max(width * kPlotWidth, 1.0), std::max(barHeight * height, 0.5),
           Escaped(title));
  }
  void Line(const std::vector<std::pair<double, double>>& points, std::string_view kind, std::string_view title) {
    if (points.size() < 2) return;
    Append("<polyline class=\"{}\" points=\"", kind);
    for (const auto& [x, y] : points) Append("{:.1f},{:.1f} ", X(x), Y(y));
    Append("\"><title>{}</title></polyline>\n", Escaped(title));
  }
  void Dot(double x, double y, std::string_view kind) {
    Append("<circle class=\"{}\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"2\"/>\n", kind, X(x), Y(y));
  }
  void MarkY(double y, std::string_view text) {
    Append("<line class=\"grid\" x1=\"{}\" x2=\"{}\" y1=\"{:.1f}\" y2=\"{:.1f}\"/>\n", kLeft, kWidth - kRight, Y(y),
           Y(y));
    LabelY(y, text);
  }
  void LabelY(double y, std::string_view text) {
    Append("<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", kLeft - 6, Y(y) + 4, Escaped(text));
  }
  void MarkX(double x, std::string_view text) {
    const char* const anchor = x > 0.95 ? "end" : x < 0.05 ? "start" : "middle";
    Append("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\">{}</text>\n", X(x), kTop + height + 16, anchor,
           Escaped(text));
  }
  std::string Finish() {
    Append("<line class=\"axis\" x1=\"{0}\" x2=\"{1}\" y1=\"{2:.1f}\" y2=\"{2:.1f}\"/>\n</svg>\n", kLeft,
           kWidth - kRight, kTop + height);
    return std::move(svg);
  }

 private:
  static double X(double x) { return kLeft + x * kPlotWidth; }
  double Y(double y) const { return kTop + (1 - y) * height; }
  template <typename... Values>
  void Append(fmt::format_string<Values...> format, Values&&... values) {
    fmt::format_to(std::back_inserter(svg), format, std::forward<Values>(values)...);
  }

  const double height;
  std::string svg;
};

// The smallest 1, 2 or 5 times a power of ten that is not below the value.
double RoundUp(double value) {
  if (value <= 0) return 1;
  const double power = std::pow(10, std::floor(std::log10(value)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (value <= factor * power) return factor * power;
  }
  return 10 * power;
}

std::string Short(double number) {
  if (number >= 1e6) return fmt::format("{:g} M", number / 1e6);
  if (number >= 1e3) return fmt::format("{:g} k", number / 1e3);
  return fmt::format("{:g}", number);
}

// A scale of powers of ten from `min` to `max` nanoseconds.
class LogScale {
 public:
  LogScale(std::uint64_t min, std::uint64_t max)
      : low(static_cast<int>(std::floor(Log10(std::max<std::uint64_t>(min, 100))))),
        high(std::max(static_cast<int>(std::ceil(Log10(std::max<std::uint64_t>(max, 1000)))), low + 1)) {}

  double Place(std::uint64_t nanoseconds) const {
    if (nanoseconds == 0) return 0;
    return PlaceOfPower(Log10(nanoseconds));
  }
  template <typename Mark>
  void EachPower(const Mark& mark) const {
    for (int power = low; power <= high; ++power) mark(PlaceOfPower(power), PowerText(power));
  }

 private:
  static double Log10(std::uint64_t value) { return std::log10(static_cast<double>(value)); }

  double PlaceOfPower(double power) const { return std::clamp((power - low) / (high - low), 0.0, 1.0); }

  static std::string PowerText(int power) {
    constexpr const char* kUnits[] = {"ns", "us", "ms", "s"};
    const int unit = std::min(power / 3, 3);
    return fmt::format("{:g} {}", std::pow(10, power - 3 * unit), kUnits[unit]);
  }

  const int low;  // powers of ten, in nanoseconds
  const int high;
};

std::string Seconds(double nanoseconds) {
  const double seconds = nanoseconds / static_cast<double>(kNanosecondsPerSecond);
  return seconds < 10 ? fmt::format("{:.2f} s", seconds) : fmt::format("{:.0f} s", seconds);
}

void MarkTimes(Chart& chart, double duration) {
  for (const double share : {0.0, 0.25, 0.5, 0.75, 1.0}) chart.MarkX(share, Seconds(share * duration));
}

double DurationOf(const TimeLine& timeLine) {
  return static_cast<double>(timeLine.Interval() * timeLine.Intervals().size());
}

}  // namespace

std::string ConnectionsChart(const CaptureStatistics& statistics) {
  constexpr double kRow = 22;
  constexpr std::size_t kMaxChartRows = 40;
  const std::size_t rows = std::min(statistics.connections.size(), kMaxChartRows);
  const double duration = std::max<double>(static_cast<double>(statistics.end - statistics.begin), 1);
  const auto place = [&](std::uint64_t time) {
    const std::uint64_t since = time < statistics.begin ? 0 : time - statistics.begin;
    return std::clamp(static_cast<double>(since) / duration, 0.0, 1.0);
  };
  Chart chart("Connections over time", kRow * static_cast<double>(std::max<std::size_t>(rows, 1)));
  for (std::size_t i = 0; i < rows; ++i) {
    const ConnectionNumbers& numbers = statistics.connections[i];
    const double share = 1 / static_cast<double>(rows);
    const double y = 1 - static_cast<double>(i + 1) * share;
    const double begin = place(numbers.begin);
    const double end = place(numbers.end.value_or(statistics.end));
    chart.Bar(begin, end - begin, y + 0.15 * share, 0.7 * share, numbers.end ? "connection" : "open",
              fmt::format("connection {}: {}", numbers.connection, numbers.end ? numbers.reason : "open at the end"));
    chart.LabelY(y + 0.5 * share, std::to_string(numbers.connection));
  }
  MarkTimes(chart, duration);
  return chart.Finish();
}

std::string RateChart(const TimeLine& timeLine) {
  Chart chart("Notifications per second over time");
  const double seconds = static_cast<double>(timeLine.Interval()) / static_cast<double>(kNanosecondsPerSecond);
  std::uint64_t maxValue = 0;
  for (const LatencyHistogram& interval : timeLine.Intervals()) maxValue = std::max(maxValue, interval.Count());
  const double top = RoundUp(static_cast<double>(maxValue) / seconds);
  for (const double share : {0.5, 1.0}) chart.MarkY(share, Short(top * share));
  const double width = 1 / static_cast<double>(timeLine.Intervals().size());
  for (std::size_t i = 0; i < timeLine.Intervals().size(); ++i) {
    const std::uint64_t count = timeLine.Intervals()[i].Count();
    if (count == 0) continue;
    const double rate = static_cast<double>(count) / seconds;
    chart.Bar(static_cast<double>(i) * width, width * 0.9, 0, rate / top, "bar",
              fmt::format("{} notifications, {:.0f} per second", count, rate));
  }
  MarkTimes(chart, DurationOf(timeLine));
  return chart.Finish();
}

std::string LatencyChart(const TimeLine& timeLine) {
  Chart chart("Latency over time");
  std::uint64_t minValue = ~std::uint64_t{0};
  std::uint64_t maxValue = 0;
  for (const LatencyHistogram& interval : timeLine.Intervals()) {
    if (interval.Count() == 0) continue;
    minValue = std::min(minValue, interval.Percentile(0.5));
    maxValue = std::max(maxValue, interval.Percentile(0.99));
  }
  const LogScale scale(minValue, maxValue);
  scale.EachPower([&](double y, const std::string& text) { chart.MarkY(y, text); });
  struct Curve {
    double share;
    const char* kind;
    const char* title;
  };
  for (const Curve& curve : {Curve{0.5, "half", "p50"}, Curve{0.99, "most", "p99"}}) {
    std::vector<std::pair<double, double>> points;  // of the intervals since the last empty one
    for (std::size_t i = 0; i < timeLine.Intervals().size(); ++i) {
      const LatencyHistogram& interval = timeLine.Intervals()[i];
      if (interval.Count() == 0) {
        chart.Line(std::exchange(points, {}), curve.kind, curve.title);
        continue;
      }
      const double x = (static_cast<double>(i) + 0.5) / static_cast<double>(timeLine.Intervals().size());
      points.emplace_back(x, scale.Place(interval.Percentile(curve.share)));
      chart.Dot(x, points.back().second, curve.kind);
    }
    chart.Line(points, curve.kind, curve.title);
  }
  MarkTimes(chart, DurationOf(timeLine));
  return chart.Finish();
}

std::string HistogramChart(const LatencyHistogram& histogram) {
  Chart chart("Latency histogram");
  std::size_t first = LatencyHistogram::kClasses;
  std::size_t last = 0;
  std::uint32_t maxValue = 0;
  for (std::size_t i = 0; i < LatencyHistogram::kClasses; ++i) {
    if (histogram.CountOf(i) == 0) continue;
    first = std::min(first, i);
    last = i;
    maxValue = std::max(maxValue, histogram.CountOf(i));
  }
  const LogScale scale(LatencyHistogram::LowerBound(std::min(first, last)), LatencyHistogram::LowerBound(last + 1));
  const double top = RoundUp(maxValue);
  for (const double share : {0.5, 1.0}) chart.MarkY(share, Short(top * share));
  scale.EachPower([&](double x, const std::string& text) { chart.MarkX(x, text); });
  for (std::size_t i = std::min(first, last); i <= last; ++i) {
    if (histogram.CountOf(i) == 0) continue;
    const std::uint64_t from = LatencyHistogram::LowerBound(i);
    const std::uint64_t to = LatencyHistogram::LowerBound(i + 1);
    const double begin = scale.Place(from);
    chart.Bar(
        begin, (scale.Place(to) - begin) * 0.9, 0, histogram.CountOf(i) / top, "bar",
        fmt::format("{} notifications from {} to {}", histogram.CountOf(i), DurationText(from), DurationText(to)));
  }
  return chart.Finish();
}

}  // namespace fenlux::capture
