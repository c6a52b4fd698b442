// Buffers, fields, paths and measurements.
#include "refhost/services/utility_service.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/buf.h"
#include "refhost/services/log/log_service.h"
#include "tests/support/temporary_directory.h"

namespace fenlux::refhost {
namespace {

using fenlux::testing::FileText;
using fenlux::testing::TemporaryDirectory;

std::shared_ptr<LogService> SilentLog() {
  LogSettings settings;
  settings.consoleLevel = kSeverities;
  return std::make_shared<LogService>(settings);
}

class UtilityServiceTest : public ::testing::Test {
 protected:
  UtilityService utility{SilentLog(), true};
};

// The field after the copy. The bytes around it are 0xCD and must not change.
std::vector<std::uint8_t> Copied(UtilityService& utility, std::uint32_t limit, const std::wstring& text) {
  std::vector<std::uint8_t> bytes(limit + 8, 0xCD);
  utility.CopyToField(bytes.data() + 1, limit, text);
  EXPECT_EQ(bytes[0], 0xCD);
  EXPECT_TRUE(std::all_of(bytes.begin() + 1 + limit, bytes.end(), [](std::uint8_t byte) { return byte == 0xCD; }));
  return {bytes.begin() + 1, bytes.begin() + 1 + limit};
}

TEST_F(UtilityServiceTest, CopiesUtf16WithATerminatorIfThereIsRoom) {
  EXPECT_EQ(Copied(utility, 8, L"ab"), (std::vector<std::uint8_t>{'a', 0, 'b', 0, 0, 0, 0xCD, 0xCD}));
  EXPECT_EQ(Copied(utility, 4, L"ab"), (std::vector<std::uint8_t>{'a', 0, 'b', 0}));
  EXPECT_EQ(Copied(utility, 4, L"abc"), (std::vector<std::uint8_t>{'a', 0, 'b', 0}));
  EXPECT_EQ(Copied(utility, 5, L"abc"), (std::vector<std::uint8_t>{'a', 0, 'b', 0, 0xCD}));
  EXPECT_EQ(Copied(utility, 2, L""), (std::vector<std::uint8_t>{0, 0}));
  EXPECT_EQ(Copied(utility, 1, L"a"), (std::vector<std::uint8_t>{0xCD}));
  EXPECT_EQ(Copied(utility, 0, L"a"), (std::vector<std::uint8_t>{}));
}

TEST_F(UtilityServiceTest, NeverSplitsACharacter) {
  EXPECT_EQ(Copied(utility, 4, L"a\U0001F600"), (std::vector<std::uint8_t>{'a', 0, 0, 0}));
  EXPECT_EQ(Copied(utility, 6, L"a\U0001F600"), (std::vector<std::uint8_t>{'a', 0, 0x3D, 0xD8, 0x00, 0xDE}));
  EXPECT_EQ(Copied(utility, 2, L"\U0001F600"), (std::vector<std::uint8_t>{0, 0}));
}

TEST_F(UtilityServiceTest, CreatesZeroFilledBuffersOfTheExactSize) {
  for (const std::uint32_t size : {0U, 1U, 156U, 65561U}) {
    std::shared_ptr<CBuf> buffer;
    ASSERT_NE(utility.CreateBuffer(buffer, true, size, false), nullptr);
    EXPECT_EQ(buffer->GetSize(), size);
    EXPECT_TRUE(std::all_of(buffer->GetData(), buffer->GetData() + size, [](std::uint8_t byte) { return byte == 0; }));
  }
}

TEST_F(UtilityServiceTest, CopiesBytesIntoANewBuffer) {
  std::uint8_t bytes[] = {1, 2, 3};
  std::shared_ptr<CBuf> buffer;
  utility.BufferFromBytes(buffer, bytes, 3);
  bytes[0] = 9;
  ASSERT_EQ(buffer->GetSize(), 3U);
  EXPECT_EQ(buffer->GetData()[0], 1);
}

TEST_F(UtilityServiceTest, RecognizesDirectories) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(utility.TestPath(directory.Path()));
  EXPECT_FALSE(utility.TestPath(directory.Write("f", "")));
  EXPECT_FALSE(utility.TestPath(directory.Path() / "none"));
}

TEST_F(UtilityServiceTest, NormalizesRecordPaths) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"/a/b", L"/a/b"},
      {L"/a//b///c", L"/a/b/c"},
      {L"/a/./b/.", L"/a/b/"},
      {L"/a/../b", L"/a/../b"},
      {L"/a/.hidden", L"/a/.hidden"},
      {L"\\??\\C:\\a\\\\b", L"C:\\a\\b"},
      {L"\\\\?\\C:\\a", L"C:\\a"},
      {L"\\\\server\\\\share", L"\\\\server\\share"},
      {L"\\\\\\.\\server\\a", L"\\\\server\\a"},
      {L"./a", L"./a"},
      {L"//./a", L"/a"},
      {L"/.", L"/"},
      {L"", L""},
  };
  for (const auto& [path, expected] : cases) {
    std::wstring out;
    EXPECT_EQ(utility.ToRecordString(out, path), expected);
  }
}

TEST_F(UtilityServiceTest, ReplacesInvalidBytesInSystemMessages) {
  std::string out;
  EXPECT_EQ(utility.ConvertText(out, "No such file \xFF\\"), "No such file \uFFFD\\");
}

TEST_F(UtilityServiceTest, ConvertsText) {
  std::string narrow;
  std::wstring wide;
  EXPECT_EQ(utility.ToNarrowString(narrow, L"/\u00fc"), "/\u00fc");
  EXPECT_EQ(utility.ToWideString(wide, "/\u00fc"), L"/\u00fc");
  EXPECT_EQ(utility.TransformPath(narrow, "/x"), "/x");
}

TEST_F(UtilityServiceTest, MeasuresFromItsCreation) {
  std::shared_ptr<CMeasurement> measurement;
  ASSERT_NE(utility.CreateMeasurement(measurement), nullptr);
  std::string text;
  measurement->GetResultText(text);
  ASSERT_GT(text.size(), 3U);
  EXPECT_EQ(text.substr(text.size() - 3), " us");
  EXPECT_LT(std::stoll(text), 60'000'000);
  EXPECT_GE(std::stoll(text), 0);
}

TEST_F(UtilityServiceTest, ReturnsItsVersionFlag) {
  EXPECT_TRUE(utility.QueryVersionFlag());
  EXPECT_FALSE(UtilityService(SilentLog(), false).QueryVersionFlag());
}

TEST(UtilityServiceLog, WritesLinesWithTheirCategory) {
  const TemporaryDirectory directory;
  LogSettings settings;
  settings.consoleLevel = kSeverities;
  settings.file = directory.Path() / "l.log";
  const auto log = std::make_shared<LogService>(settings);
  UtilityService(log, false).WriteLog(0x10003, "thread start", 7);
  ASSERT_TRUE(log->Drain(std::chrono::seconds(20)));
  EXPECT_NE(FileText(settings.file).find("event   (category 7) thread start\n"), std::string::npos);
}

}  // namespace
}  // namespace fenlux::refhost
