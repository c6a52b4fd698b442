// A full disk: /dev/full accepts lines into the buffer and fails when they are flushed.
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <stdexcept>
#include <string>

#include "refhost/services/log/log_file_sink.h"
#include "refhost/services/log/log_service.h"

namespace fenlux::refhost {
namespace {

constexpr char kFullDisk[] = "/dev/full";
constexpr std::chrono::seconds kLogTimeout{20};

TEST(LogService, CountsABatchThatCannotBeFlushedAsLostAndSaysSoOnce) {
  if (!boost::filesystem::exists(kFullDisk)) GTEST_SKIP() << "no " << kFullDisk;
  LogSettings settings;
  settings.consoleLevel = kSeverities;  // the loss is reported even if no line goes to the console
  settings.file = kFullDisk;
  ::testing::internal::CaptureStderr();
  LogTotals totals;
  {
    LogService log(settings);
    for (int line = 0; line < 300; ++line) {
      log.LogEvent(0, "a line");
      if (line % 100 == 0) log.Drain(kLogTimeout);  // several batches, shorter than the file's buffer
    }
    EXPECT_TRUE(log.Drain(kLogTimeout));
    totals = log.Totals();
  }
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(totals.written, 0U);
  EXPECT_EQ(totals.dropped, 300U);
  const std::string text = "[host] log lines are lost, counted as dropped: ";
  const std::size_t first = said.find(text);
  ASSERT_NE(first, std::string::npos) << said;
  EXPECT_EQ(said.find(text, first + 1), std::string::npos) << said;
  EXPECT_NE(said.find("No space left on device"), std::string::npos) << said;
}

// The C library empties the buffer when a write fails, and the flush after it succeeds.
TEST(LogFileSink, AFailedWriteMakesTheNextFlushFail) {
  if (!boost::filesystem::exists(kFullDisk)) GTEST_SKIP() << "no " << kFullDisk;
  LogFileSink sink(OpenLogFile(kFullDisk));
  const std::string text(3000, 'x');
  const spdlog::details::log_msg line({}, {}, "", spdlog::level::info, text);
  sink.log(line);
  EXPECT_THROW(sink.log(line), std::runtime_error);
  EXPECT_THROW(sink.flush(), std::runtime_error);
  EXPECT_NO_THROW(sink.flush()) << "nothing was written since";
}

TEST(LogService, CountsOnlyTheLinesWrittenToTheFullDisk) {
  if (!boost::filesystem::exists(kFullDisk)) GTEST_SKIP() << "no " << kFullDisk;
  LogSettings settings;
  settings.consoleLevel = static_cast<std::size_t>(Severity::kEvent);
  settings.file = kFullDisk;
  settings.fileLevel = static_cast<std::size_t>(Severity::kProblem);
  ::testing::internal::CaptureStderr();
  LogTotals totals;
  {
    LogService log(settings);
    log.LogEvent(0, "to the console");
    log.LogProblem(0, "to both");
    EXPECT_TRUE(log.Drain(kLogTimeout));
    totals = log.Totals();
  }
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(totals.written, 1U);
  EXPECT_EQ(totals.dropped, 1U);
}

}  // namespace
}  // namespace fenlux::refhost
