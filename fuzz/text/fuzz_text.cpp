// Converts any text in every way that the module and the host do, and back.
//
// The first byte of an input selects the conversion (see the README); the rest is the text.
#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/wide_text.h"
#include "fuzz/support/fuzzing.h"
#include "refhost/base/report.h"
#include "refhost/base/text/hex.h"
#include "refhost/base/text/utf_text.h"
#include "refhost/services/events/identity_text.h"
#include "refhost/services/utility_service.h"

namespace fenlux::refhost {
namespace {

using testing::ExactBytes;
using testing::Require;
using Bytes = std::vector<std::uint8_t>;

// An independent decoder: the length of the character at the start, 0 if it is not valid.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  unsigned code = first & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3FU);
  }
  constexpr std::array<unsigned, 5> kMin{0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return code >= kMin[length] && code <= 0x10FFFF && !surrogate ? length : 0;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

void FuzzNarrow(const Bytes& bytes) {
  const std::string text(bytes.begin(), bytes.end());
  const std::wstring wide = WideFromNarrow(text);
  const std::string narrow = NarrowFromWide(wide);
  Require(IsUtf8(narrow), "narrow text is UTF-8");
  Require((narrow == text) == IsUtf8(text), "valid text is not changed, other text is");
  Require(WideFromNarrow(narrow) == wide, "a replaced character stays replaced");
  const std::u16string units = Utf16FromNarrow(text);
  Require(units == Utf16FromWide(wide) && NarrowFromUtf16(units) == narrow, "all conversions give the same text");
}

bool HasLoneSurrogate(std::u16string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] < 0xD800 || text[i] > 0xDFFF) continue;
    if (text[i] > 0xDBFF || i + 1 == text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) return true;
    ++i;
  }
  return false;
}

void FuzzUtf16(const Bytes& bytes) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text.push_back(static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8));
  }
  const std::string narrow = NarrowFromUtf16(text);
  Require(IsUtf8(narrow), "narrow text is UTF-8");
  Require((Utf16FromNarrow(narrow) == text) == !HasLoneSurrogate(text), "valid text is not changed, other text is");

  // As the module reads a notification: up to the NUL, a lone surrogate keeps its value.
  const ExactBytes exact(bytes);
  const std::wstring wide = WideFromUtf16(exact.Data(), exact.Size() / 2);
  const std::u16string_view shown(text.data(), std::min(text.find(u'\0'), text.size()));
  Require(wide.find(L'\0') == std::wstring::npos && wide.size() <= shown.size(), "a text ends at its NUL");
  if (HasLoneSurrogate(shown)) return;
  Require(Utf16FromWide(wide) == shown, "the module and the host read the same text");
  Require(WideFromPath(PathFromWide(wide)) == wide, "a path is converted without loss");
}

void FuzzPrintable(const Bytes& bytes) {
  const std::string text = Printable(std::string(bytes.begin(), bytes.end()));
  Require(IsUtf8(text), "printable text is UTF-8");
  for (const wchar_t character : WideFromNarrow(text)) {
    Require(character >= 0x20 && (character < 0x7F || character > 0x9F), "printable text has no control character");
  }
}

void FuzzHex(const Bytes& bytes) {
  const std::string digits = HexText(bytes);
  Require(digits.size() == 2 * bytes.size() && BytesFromHex(digits) == bytes, "digits decode to the same bytes");
  const std::string text(bytes.begin(), bytes.end());
  const auto read = BytesFromHex(text);
  if (!read) return;
  std::string plain;
  for (const char c : text) {
    if (c != ' ') plain.push_back(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  Require(HexText(*read) == plain, "accepted text is the digits of its bytes");
}

void FuzzField(const Bytes& bytes) {
  if (bytes.empty()) return;
  const std::uint32_t limit = bytes[0];
  const std::wstring text = WideFromNarrow({reinterpret_cast<const char*>(bytes.data()) + 1, bytes.size() - 1});
  const std::unique_ptr<std::uint8_t[]> field(new std::uint8_t[limit]);
  std::fill_n(field.get(), limit, std::uint8_t{0xCD});
  UtilityService utility(nullptr, false);
  utility.CopyToField(field.get(), limit, text);
  std::u16string copied;
  for (std::size_t i = 0; i + 1 < limit; i += 2) {
    copied.push_back(static_cast<char16_t>(field[i] | field[i + 1] << 8));
  }
  const std::u16string whole = Utf16FromWide(text);
  const std::size_t room = limit / 2;
  std::size_t count = std::min(whole.size(), room);
  const bool splits = count < whole.size() && count > 0 && whole[count - 1] >= 0xD800 && whole[count - 1] < 0xDC00;
  if (splits) --count;
  Require(copied.substr(0, count) == whole.substr(0, count), "a field begins with its text");
  if (count < room) Require(copied[count] == 0, "a NUL ends a text that leaves room for it");
  for (std::size_t i = count + 1; i < room; ++i) Require(copied[i] == 0xCDCD, "nothing is written after the NUL");

  std::wstring record;
  utility.ToRecordString(record, text);
  Require(record.size() <= text.size(), "a path in normal form is not longer");
}

void FuzzIdentity(const Bytes& bytes) {
  std::array<std::uint8_t, kIdentityBlockSize> block{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), block.size()), block.begin());
  for (const char c : IdentityText(block)) {
    const bool digit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
    Require(digit || c == 'S' || c == '-', "an identity is digits, or S- and numbers");
  }
}

void FuzzReport(const Bytes& bytes) {
  const std::string text(bytes.begin(), bytes.end());
  Report report = Report::object();
  report["text"] = text;
  report["list"] = std::vector<std::string>{text, "b"};
  const std::string json = JsonText(report);
  Require(IsUtf8(json) && json.find_first_of("\n\r\x1b\x7f") == std::string::npos, "a report is one line of UTF-8");
  const Report again = Report::parse(json, nullptr, false);
  Require(again.is_object() && JsonText(again) == json, "a report can be parsed");
  if (IsUtf8(text)) Require(again["text"] == report["text"], "a report keeps valid text");
  const std::string aligned = AlignedText(report);
  Require(IsUtf8(aligned) && aligned.find('\x1b') == std::string::npos, "a report for people has no escape sequence");
}

}  // namespace
}  // namespace fenlux::refhost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace fenlux::refhost;
  if (size == 0) return 0;
  constexpr void (*kTargets[])(const Bytes&) = {FuzzNarrow, FuzzUtf16,    FuzzPrintable, FuzzHex,
                                                FuzzField,  FuzzIdentity, FuzzReport};
  kTargets[data[0] % std::size(kTargets)]({data + 1, data + size});
  return 0;
}
