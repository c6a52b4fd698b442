// A progress bar for long work on a file: share, rate and remaining time, on one line of the terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace fenlux::refhost {

// The line for `done` of `total` bytes after `elapsed`: "[#####.....]  50%  120.0 MB/s  3 s left".
std::string ProgressText(std::uint64_t done, std::uint64_t total, std::chrono::milliseconds elapsed);

// Writes to standard error. Shows nothing if that is not a terminal, or if standard output is one as well: then the
// program's output shows the progress. One thread.
class ProgressBar {
 public:
  // Shows nothing if `totalBytes` is 0.
  explicit ProgressBar(std::uint64_t totalBytes);
  // Clears the line.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Shows the progress unless it was updated very recently.
  void Show(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;

  const std::uint64_t total;
  const bool visible;
  const Clock::time_point begin = Clock::now();
  Clock::time_point next = begin;
  std::size_t shown = 0;  // length of the line on the terminal
};

}  // namespace fenlux::refhost
