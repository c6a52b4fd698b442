// JSON texts from a capture, which may contain anything.
#pragma once

#include <optional>
#include <string_view>

#include "refhost/base/report.h"

namespace fenlux::capture {

// nullopt if the text is no JSON object, or is nested so deeply that no host wrote it.
std::optional<refhost::Report> ParseJsonObject(std::string_view text);

}  // namespace fenlux::capture
