// The text of --help.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

namespace fenlux::refhost {

// The help of one command, in lines of at most `width` characters.
std::string HelpText(const CLI::App& command, std::size_t width);

// Breaks `text` between words and keeps its line breaks. Every line but the first begins with `indent` spaces; the
// first is assumed to begin at that column too.
std::string Wrapped(std::string_view text, std::size_t indent, std::size_t width);

}  // namespace fenlux::refhost
