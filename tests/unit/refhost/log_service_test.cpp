// Lines reach their outputs in order, logging does not block, and the totals are right.
#include "refhost/services/log/log_service.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "refhost/base/config/config_reader.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::FileText;
using fenlux::testing::TemporaryDirectory;

constexpr std::size_t kOff = kSeverities;
constexpr std::chrono::seconds kDrainTimeout{20};

LogSettings ToFile(const boost::filesystem::path& file, Severity level = Severity::kDetail) {
  LogSettings settings;
  settings.consoleLevel = kOff;
  settings.file = file;
  settings.fileLevel = static_cast<std::size_t>(level);
  return settings;
}

std::vector<std::string> LinesOf(const boost::filesystem::path& file) {
  std::vector<std::string> lines;
  std::istringstream stream(FileText(file));
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The line without date and time.
std::string WithoutTime(const std::string& line) { return line.substr(line.find(' ', line.find(' ') + 1) + 1); }

TEST(LogService, WritesEachOperationWithItsSeverity) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "l.log";
  LogService log(ToFile(file));
  log.LogAlert(0x10003, "alert");
  log.LogProblem(0x10003, "problem");
  log.LogWarning(0x10003, "warning");
  log.LogNotice(0x10003, "notice");
  log.LogEvent(0x10003, "event");
  log.LogDetail(0x10003, "detail");
  log.Write(Severity::kEvent, 0x10003, "thread line", 7);
  ASSERT_TRUE(log.Drain(kDrainTimeout));
  const std::vector<std::string> lines = LinesOf(file);
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(WithoutTime(lines[0]), "alert   alert");
  EXPECT_EQ(WithoutTime(lines[1]), "problem problem");
  EXPECT_EQ(WithoutTime(lines[2]), "warning warning");
  EXPECT_EQ(WithoutTime(lines[3]), "notice  notice");
  EXPECT_EQ(WithoutTime(lines[4]), "event   event");
  EXPECT_EQ(WithoutTime(lines[5]), "detail  detail");
  EXPECT_EQ(WithoutTime(lines[6]), "event   (category 7) thread line");
  EXPECT_EQ(log.Totals().Of(Severity::kAlert), 1U);
  EXPECT_EQ(log.Totals().Of(Severity::kEvent), 2U);
}

TEST(LogService, WritesOneJsonObjectPerLine) {
  const TemporaryDirectory directory;
  LogSettings settings = ToFile(directory.Path() / "l.log");
  settings.json = true;
  LogService log(settings);
  log.LogProblem(0x10003, "a \"quoted\"\nline");
  ASSERT_TRUE(log.Drain(kDrainTimeout));
  const std::vector<std::string> lines = LinesOf(settings.file);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].find(R"({"time":")"), 0U);
  const std::string rest = R"("severity":"problem","level":"error","code":65539,"text":"a \"quoted\"\nline"})";
  ASSERT_GT(lines[0].size(), rest.size());
  EXPECT_EQ(lines[0].substr(lines[0].size() - rest.size()), rest);
}

TEST(LogService, EscapesLineEndsAndOtherControlCharacters) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "l.log";
  LogService log(ToFile(file));
  log.LogEvent(0, "a\nb\x1b[31m");
  log.LogEvent(0, "/x/\u202egpj.exe\u2028\\n");
  ASSERT_TRUE(log.Drain(kDrainTimeout));
  const std::vector<std::string> lines = LinesOf(file);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(WithoutTime(lines[0]), "event   a\\nb\\x1b[31m");
  EXPECT_EQ(WithoutTime(lines[1]), "event   /x/\\u202egpj.exe\\u2028\\\\n");
}

TEST(LogService, OmitsAndCountsLinesBelowTheThreshold) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "l.log";
  LogService log(ToFile(file, Severity::kWarning));
  log.LogNotice(0, "no");
  log.LogWarning(0, "yes");
  ASSERT_TRUE(log.Drain(kDrainTimeout));
  EXPECT_EQ(LinesOf(file).size(), 1U);
  const LogTotals totals = log.Totals();
  EXPECT_EQ(totals.unwanted, 1U);
  EXPECT_EQ(totals.written, 1U);
  EXPECT_EQ(totals.dropped, 0U);
  EXPECT_EQ(totals.Of(Severity::kNotice), 1U);
}

TEST(LogService, KeepsOrderAndCountOfConcurrentLines) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "l.log";
  LogService log(ToFile(file));
  constexpr int kLines = 1000;
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 3; ++writer) {
    writers.emplace_back([&log, writer] {
      for (int line = 0; line < kLines; ++line) {
        log.LogEvent(0, std::to_string(writer) + ":" + std::to_string(line));
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  ASSERT_TRUE(log.Drain(kDrainTimeout));
  const std::vector<std::string> lines = LinesOf(file);
  const LogTotals totals = log.Totals();
  EXPECT_EQ(totals.written + totals.dropped, 3U * kLines);
  EXPECT_EQ(lines.size(), totals.written);
  std::vector<int> last(3, -1);
  for (const std::string& line : lines) {
    const std::string text = line.substr(line.rfind(' ') + 1);
    const auto writer = static_cast<std::size_t>(text[0] - '0');
    const int number = std::stoi(text.substr(2));
    EXPECT_GT(number, last[writer]);
    last[writer] = number;
  }
}

TEST(LogService, WritesWaitingLinesBeforeItEnds) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "l.log";
  {
    LogService log(ToFile(file));
    for (int line = 0; line < 500; ++line) log.LogEvent(0, "line");
  }
  EXPECT_EQ(LinesOf(file).size(), 500U);
}

TEST(LogService, CreatesTheDirectoriesOfItsFile) {
  const TemporaryDirectory directory;
  const auto file = directory.Path() / "a" / "b" / "l.log";
  { LogService(ToFile(file)).LogEvent(0, "line"); }
  EXPECT_EQ(LinesOf(file).size(), 1U);
}

TEST(LogService, AppendsToAnExistingFile) {
  const TemporaryDirectory directory;
  const auto file = directory.Write("l.log", "before\n");
  { LogService(ToFile(file)).LogEvent(0, "after"); }
  EXPECT_EQ(LinesOf(file).size(), 2U);
}

TEST(LogService, ThrowsIfItsFileCannotBeOpened) {
  const TemporaryDirectory directory;
  try {
    LogService log(ToFile(directory.Path()));
    FAIL();
  } catch (const std::runtime_error& error) {
    const std::string expected = "the log file " + directory.Path().string() + " cannot be opened for writing: ";
    EXPECT_EQ(std::string(error.what()).find(expected), 0U) << error.what();
    EXPECT_GT(std::string(error.what()).size(), expected.size());  // the system's reason
  }
}

TEST(LogService, ReadsItsSettings) {
  ConfigErrors errors;
  const ConfigDocument document("console = 'warning'\nfile = '/x.log'\nfile_level = 'off'\nqueue_lines = 5\n", "c.toml",
                                errors);
  const LogSettings settings = ReadLogSettings(document.Root());
  document.Root().Finish();
  EXPECT_EQ(errors.Text(), "");
  EXPECT_EQ(settings.consoleLevel, static_cast<std::size_t>(Severity::kWarning));
  EXPECT_EQ(settings.file, testing::Rooted("/x.log"));
  EXPECT_EQ(settings.fileLevel, kOff);
  EXPECT_EQ(settings.queueLines, 5U);
}

}  // namespace
}  // namespace fenlux::refhost
