// Redraws the line in place.
#include "refhost/base/progress_bar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "refhost/base/platform/terminal.h"

namespace fenlux::refhost {
namespace {

constexpr std::chrono::milliseconds kRedraw{100};
constexpr std::size_t kWidth = 30;

std::string TimeText(double seconds) {
  if (seconds < 60) return fmt::format("{:.0f} s", seconds);
  if (seconds < 3600) return fmt::format("{:.0f} min", seconds / 60);
  return fmt::format("{:.1f} h", seconds / 3600);
}

}  // namespace

std::string ProgressText(std::uint64_t done, std::uint64_t total, std::chrono::milliseconds elapsed) {
  done = std::min(done, total);
  const double share = total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(total);
  const auto filled = static_cast<std::size_t>(share * static_cast<double>(kWidth));
  std::string text =
      fmt::format("[{}{}] {:3.0f}%", std::string(filled, '#'), std::string(kWidth - filled, '.'), share * 100);
  const double seconds = std::chrono::duration<double>(elapsed).count();
  if (done == 0 || seconds <= 0) return text;
  const double rate = static_cast<double>(done) / seconds;
  return text + fmt::format("  {:.1f} MB/s  {} left", rate / 1e6, TimeText(static_cast<double>(total - done) / rate));
}

ProgressBar::ProgressBar(std::uint64_t totalBytes)
    : total(totalBytes), visible(totalBytes != 0 && ErrorIsTerminal() && !OutputIsTerminal()) {}

ProgressBar::~ProgressBar() {
  if (shown != 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown), "");
}

void ProgressBar::Show(std::uint64_t done) {
  if (!visible) return;
  const Clock::time_point now = Clock::now();
  if (now < next) return;
  next = now + kRedraw;
  const std::string text =
      ProgressText(done, total, std::chrono::duration_cast<std::chrono::milliseconds>(now - begin));
  std::fprintf(stderr, "\r%-*s", static_cast<int>(shown), text.c_str());
  std::fflush(stderr);
  shown = std::max(shown, text.size());
}

}  // namespace fenlux::refhost
