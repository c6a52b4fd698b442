// Exception reports, numbers in lines, and the module's own conversions of text.
#include <cstddef>
#include <cstdint>
#include <locale>
#include <string>
#include <type_traits>
#include <vector>

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

TEST(WideText, PathsOfOtherCharactersRoundTripWhereverTheCharacterIs) {
  for (wchar_t character = 0; character <= 0x100; ++character) {
    for (const std::size_t position : {std::size_t{0}, std::size_t{1}, std::size_t{39}}) {
      std::wstring text(40, L'a');
      text[position] = character;
      EXPECT_EQ(WideFromPath(PathFromWide(text)), text) << static_cast<int>(character) << " at " << position;
    }
  }
  EXPECT_EQ(PathFromWide(L"a\x7F\x80").native().size(), sizeof(wchar_t) == 2 ? 3u : 4u) << "U+0080 takes two bytes";
}

TEST(WideText, InvalidUtf8IsAnError) {
  if (std::is_same_v<boost::filesystem::path::value_type, wchar_t>) GTEST_SKIP() << "paths are wide here";
  EXPECT_ANY_THROW(WideFromPath(std::string("/\xFF\xFE")));
}

TEST(WideText, TheConversionsDoNotDependOnTheProcessLocale) {
  // The test program runs in the "C" locale, in which the path library's own conversion supports only ASCII.
  EXPECT_EQ(WideFromPath(PathFromWide(L"\u4E2D\u6587")), L"\u4E2D\u6587");
}

// ---------------------------------------------------------------- UTF-16 of the driver

namespace {

// The bytes of the units, at an address that is not aligned for them; nothing may be read before or after them.
class DriverText {
 public:
  explicit DriverText(const std::u16string& units) {
    bytes.reserve(1 + 2 * units.size());
    bytes.push_back(0xEE);
    for (const char16_t unit : units) {
      bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
      bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
  }
  std::wstring Wide() const { return WideFromUtf16(bytes.data() + 1, (bytes.size() - 1) / 2); }

 private:
  std::vector<std::uint8_t> bytes;
};

// Different units, none of them NUL or a surrogate.
std::u16string Units(std::size_t count) {
  std::u16string units;
  for (std::size_t index = 0; index < count; ++index) units.push_back(static_cast<char16_t>(0x4E00 + index));
  return units;
}

std::wstring Widened(const std::u16string& units) { return {units.begin(), units.end()}; }

}  // namespace

TEST(DriverUtf16, TextsOfEveryLengthAreConverted) {
  for (std::size_t length = 0; length <= 70; ++length) {
    EXPECT_EQ(DriverText(Units(length)).Wide(), Widened(Units(length))) << length;
  }
}

TEST(DriverUtf16, ATextEndsAtTheFirstNulWhereverItIs) {
  for (std::size_t length = 1; length <= 50; ++length) {
    for (std::size_t nul = 0; nul < length; ++nul) {
      std::u16string units = Units(length);
      units[nul] = 0;
      units[length - 1] = 0;  // only the first one counts
      EXPECT_EQ(DriverText(units).Wide(), Widened(Units(nul))) << nul << " of " << length;
    }
  }
}

TEST(DriverUtf16, AUnitWithOneZeroByteDoesNotEndAText) {
  const std::u16string units(40, u'\x0100');
  EXPECT_EQ(DriverText(units).Wide(), Widened(units));
  EXPECT_EQ(DriverText(std::u16string(40, u'a')).Wide(), std::wstring(40, L'a'));
}

TEST(DriverUtf16, ASurrogatePairIsOneCharacterWhereverItIs) {
  for (std::size_t before = 0; before <= 40; ++before) {
    const std::u16string units = Units(before) + u"\U0001F600" + Units(40);
    EXPECT_EQ(DriverText(units).Wide(), Widened(Units(before)) + L"\U0001F600" + Widened(Units(40))) << before;
  }
}

TEST(DriverUtf16, ALoneSurrogateKeepsItsValue) {
  for (const char16_t lone : {u'\xD800', u'\xDBFF', u'\xDC00', u'\xDFFF'}) {
    for (std::size_t before = 0; before <= 20; ++before) {
      std::u16string units = Units(40);
      units[before] = lone;
      EXPECT_EQ(DriverText(units).Wide(), Widened(units)) << before;
    }
  }
}

}  // namespace fenlux::testing
