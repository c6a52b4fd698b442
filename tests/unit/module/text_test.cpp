// Exception reports, numbers in lines, and the module's own conversions of text.
#include <locale>
#include <string>
#include <type_traits>

#include "common/exception_report.h"
#include "common/text.h"
#include "common/wide_text.h"
#include "tests/unit/module/module_test.h"

namespace fenlux::testing {
namespace {

std::string Unconverted(const std::string& message) { return message; }

template <class Thrown>
std::string ReportOf(const Thrown& thrown) {
  try {
    throw thrown;
  } catch (...) {
    return ReportCurrentException("a,b", "c");
  }
}

template <class Thrown>
std::string ReportByKindOf(const Thrown& thrown) {
  try {
    throw thrown;
  } catch (...) {
    return ReportCurrentExceptionByKind("a,b", [](const std::string& message) { return "<" + message + ">"; });
  }
}

// Groups thousands with dots, as a German locale does, without requiring one to be installed.
struct Grouping : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

class GlobalLocale {
 public:
  GlobalLocale() : before(std::locale::global(std::locale(std::locale(), new Grouping))) {}
  ~GlobalLocale() { std::locale::global(before); }

 private:
  std::locale before;
};

}  // namespace

TEST(ExceptionReport, AStandardExceptionIsReportedWithTagAndMessage) {
  EXPECT_EQ(ReportOf(std::runtime_error("what")), "[a,b,STDE] info=what");
  EXPECT_EQ(ReportOf(std::runtime_error("")), "[a,b,STDE] info=");
  EXPECT_EQ(ReportByKindOf(std::logic_error("what")), "[a,b,STDE] info=what");
}

TEST(ExceptionReport, ANullMessageIsReportedAsAnEmptyText) {
  struct Silent : std::exception {
    const char* what() const noexcept override { return nullptr; }
  };
  EXPECT_EQ(ReportOf(Silent()), "[a,b,STDE] info=");
  EXPECT_EQ(ReportByKindOf(Silent()), "[a,b,STDE] info=");
}

TEST(ExceptionReport, AnythingElseIsReportedWithTheTagOnly) {
  EXPECT_EQ(ReportOf(7), "[c,OTHE]");
  EXPECT_EQ(ReportOf("text"), "[c,OTHE]");
  EXPECT_EQ(ReportByKindOf(7), "[a,b,OTHE]");
  try {
    throw 7;
  } catch (...) {
    EXPECT_EQ(ReportCurrentException("a,b"), "[a,b,OTHE]");
  }
}

TEST(ExceptionReport, PocoExceptionsAreDistinguishedOnlyInReportsByKind) {
  try {
    Throw(Failure::kPoco);
  } catch (...) {
    EXPECT_EQ(ReportCurrentExceptionByKind("t", Unconverted), "[t,PCE] code=42,info=I/O error: poco failure");
    EXPECT_EQ(ReportCurrentException("t"), "[t,STDE] info=I/O error");
  }
}

TEST(ExceptionReport, ABoostSystemErrorIsReportedWithCategoryValueAndConvertedMessage) {
  const boost::system::error_code code(5, boost::system::generic_category());
  EXPECT_EQ(ReportByKindOf(boost::system::system_error(code, "context")),
            "[a,b,BSTE] code=generic:5,info=<" + code.message() + ">");
}

TEST(ExceptionReport, AFilesystemErrorIsABoostSystemError) {
  const boost::system::error_code code(2, boost::system::system_category());
  const boost::filesystem::filesystem_error error("what", "/path", code);
  EXPECT_EQ(ReportByKindOf(error), "[a,b,BSTE] code=system:2,info=<" + code.message() + ">");
}

TEST(ExceptionReport, ANegativeValueKeepsItsSign) {
  const boost::system::error_code code(-1, boost::system::system_category());
  EXPECT_EQ(ReportByKindOf(boost::system::system_error(code)).rfind("[a,b,BSTE] code=system:-1,info=", 0), 0u);
}

TEST(ExceptionReport, NumbersUseTheClassicLocale) {
  const GlobalLocale grouping;
  const boost::system::error_code code(1234567, boost::system::system_category());
  EXPECT_EQ(ReportByKindOf(boost::system::system_error(code)).rfind("[a,b,BSTE] code=system:1234567,info=", 0), 0u);
}

TEST(Decimals, AreWrittenInFull) {
  const auto written = [](auto number) {
    std::string line = "n=";
    AppendDecimal(line, number);
    return line;
  };
  EXPECT_EQ(written(0u), "n=0");
  EXPECT_EQ(written(std::uint32_t{4294967295}), "n=4294967295");
  EXPECT_EQ(written(std::numeric_limits<std::uint64_t>::max()), "n=18446744073709551615");
  EXPECT_EQ(written(std::numeric_limits<std::int64_t>::min()), "n=-9223372036854775808");
  EXPECT_EQ(written(std::numeric_limits<std::int32_t>::min()), "n=-2147483648");
}

namespace {
class NumbersInLines : public ModuleTest {};
}  // namespace

TEST_F(NumbersInLines, DoNotDependOnTheGlobalLocale) {
  const auto interact = ReadyInteract();
  const GlobalLocale grouping;
  interact->CheckDriverVersion();
  EXPECT_EQ(Logged(), (Lines{Event("Current driver version=19072701"), Event("Current fenlux version=19072701")}));
}

// ---------------------------------------------------------------- conversions

TEST(WideText, NarrowPathsAreUtf8) {
  if (std::is_same_v<boost::filesystem::path::value_type, wchar_t>) GTEST_SKIP() << "paths are wide here";
  const std::wstring wide = L"/\u00E9\u20AC\U0001F600";
  const std::string narrow = "/\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(WideFromPath(narrow), wide);
  EXPECT_EQ(PathFromWide(wide), boost::filesystem::path(narrow));
}

TEST(WideText, AsciiPathsRoundTrip) {
  for (const wchar_t* text : {L"", L"/", L"C:\\x y\\z", L"//server/share"}) {
    EXPECT_EQ(WideFromPath(PathFromWide(text)), text);
  }
}

TEST(WideText, InvalidUtf8IsAnError) {
  if (std::is_same_v<boost::filesystem::path::value_type, wchar_t>) GTEST_SKIP() << "paths are wide here";
  EXPECT_ANY_THROW(WideFromPath(std::string("/\xFF\xFE")));
}

TEST(WideText, TheConversionsDoNotDependOnTheProcessLocale) {
  // The test program runs in the "C" locale, in which the path library's own conversion supports only ASCII.
  EXPECT_EQ(WideFromPath(PathFromWide(L"\u4E2D\u6587")), L"\u4E2D\u6587");
}

}  // namespace fenlux::testing
