// Parses JSON text from a capture, which may contain anything.
#pragma once

#include <optional>
#include <string_view>

#include "refhost/base/report.h"

namespace fenlux::capture {

// Nullopt if the text is not a JSON object, or is nested more deeply than any host would write.
std::optional<refhost::Report> ParseJsonObject(std::string_view text);

}  // namespace fenlux::capture
