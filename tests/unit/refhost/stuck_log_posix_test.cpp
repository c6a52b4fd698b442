// A stuck output: a named pipe, which only POSIX has in the file system.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "refhost/services/log/log_service.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::TemporaryDirectory;

TEST(LogService, LoggingToAStuckOutputDoesNotBlockAndCountsDroppedLines) {
  // Nobody reads the pipe, so the writer blocks once it is full.
  const TemporaryDirectory directory;
  const auto pipe = directory.Path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  LogSettings settings;
  settings.consoleLevel = kSeverities;
  settings.file = pipe;
  settings.queueLines = 10;
  LogService log(settings);
  const std::string line(1000, 'x');
  std::uint64_t lines = 0;
  do {
    log.LogEvent(0, line);
    ++lines;
  } while (log.Drain(std::chrono::milliseconds(100)) && lines < 10'000);
  ASSERT_LT(lines, 10'000U) << "the pipe never filled";
  const auto start = std::chrono::steady_clock::now();
  for (int count = 0; count < 2000; ++count, ++lines) log.LogEvent(0, line);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  const LogTotals stuck = log.Totals();
  EXPECT_GT(stuck.dropped, 0U);
  EXPECT_EQ(stuck.written + stuck.dropped + stuck.waiting, lines);

  // Once the pipe is read, the waiting lines are written.
  std::uint64_t read = 0;
  std::vector<char> chunk(65536);
  while (!log.Drain(std::chrono::milliseconds(1))) {
    const ssize_t count = ::read(reader, chunk.data(), chunk.size());
    if (count > 0) read += static_cast<std::uint64_t>(std::count(chunk.begin(), chunk.begin() + count, '\n'));
  }
  for (ssize_t count = 0; (count = ::read(reader, chunk.data(), chunk.size())) > 0;) {
    read += static_cast<std::uint64_t>(std::count(chunk.begin(), chunk.begin() + count, '\n'));
  }
  const LogTotals totals = log.Totals();
  EXPECT_EQ(totals.waiting, 0U);
  EXPECT_EQ(totals.written, read);
  EXPECT_EQ(totals.written + totals.dropped, lines);
  ::close(reader);
}

}  // namespace
}  // namespace fenlux::refhost
