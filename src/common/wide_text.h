// The module's own conversions between the driver's UTF-16, wide text and paths. Each platform has its body: wide text
// is UTF-16 on Windows and UTF-32 elsewhere, where narrow paths are UTF-8 whatever the process's locale is.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fenlux {

// The text of up to `units` UTF-16 units (little-endian, at any alignment), ended early by a NUL. Where wide characters
// are wider than a unit, surrogate pairs are joined; a lone surrogate keeps its value.
std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units);

// Throw boost::system::system_error where the bytes of a path are not UTF-8.
std::wstring WideFromPath(const boost::filesystem::path& path);
boost::filesystem::path PathFromWide(const std::wstring& text);

}  // namespace fenlux
