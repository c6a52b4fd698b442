// Conversions between the driver's UTF-16, wide text and paths. Wide text is UTF-16 on Windows and UTF-32 elsewhere;
// off Windows, paths are UTF-8 whatever the locale of the process.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fenlux {

// Returns the text of at most `units` UTF-16 units (little-endian, any alignment), up to the first NUL. With 32-bit
// wide characters, joins surrogate pairs; a lone surrogate keeps its value. Any thread.
std::wstring WideFromUtf16(const std::uint8_t* bytes, std::size_t units);

// Convert losslessly. Throw boost::system::system_error if the bytes of a path are not UTF-8. Any thread.
std::wstring WideFromPath(const boost::filesystem::path& path);
boost::filesystem::path PathFromWide(const std::wstring& text);

}  // namespace fenlux
