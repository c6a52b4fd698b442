#include "refhost/emulator/utf16.h"

#include <boost/locale/utf.hpp>
#include <iterator>

namespace fenlux::refhost {
namespace {

namespace utf = boost::locale::utf;

constexpr utf::code_point kReplacement = 0xfffd;

template <typename Target, typename Unit>
std::basic_string<Target> Convert(std::basic_string_view<Unit> text) {
  std::basic_string<Target> converted;
  converted.reserve(text.size());
  const Unit* at = text.data();
  const Unit* const end = at + text.size();
  while (at != end) {
    const Unit* const start = at;
    utf::code_point point = utf::utf_traits<Unit>::decode(at, end);
    if (point == utf::illegal || point == utf::incomplete) {
      point = kReplacement;
      at = start + 1;
    }
    utf::utf_traits<Target>::encode(point, std::back_inserter(converted));
  }
  return converted;
}

}  // namespace

std::u16string Utf16FromUtf8(std::string_view text) { return Convert<char16_t>(text); }

std::string Utf8FromUtf16(std::u16string_view text) { return Convert<char>(text); }

}  // namespace fenlux::refhost
