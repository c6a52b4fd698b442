// Text between UTF-8, as the host has it, and UTF-16, as the driver's records carry it.
#pragma once

#include <string>
#include <string_view>

namespace fenlux::refhost {

// Bytes that are not UTF-8 become U+FFFD, one for each.
std::u16string Utf16FromUtf8(std::string_view text);
// Surrogates without a partner become U+FFFD.
std::string Utf8FromUtf16(std::u16string_view text);

}  // namespace fenlux::refhost
