// The text of a caught exception, as the log shows it: a bracketed tag, the exception's kind and what it says.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace fenlux {

// Makes the message of a system error readable; may throw, and the message is then used as it is.
using MessageConverter = std::function<std::string(const std::string& message)>;

// To be called inside a catch (...): "[tag,STDE] info=" and the message for a standard exception, "[tag,OTHE]" for
// anything else. `otherTag` stands in for the tag of the second form. Any thread; throws std::bad_alloc alone.
std::string ReportCurrentException(std::string_view tag, std::string_view otherTag = {});

// The same, telling two more kinds apart: "[tag,PCE] code=", the code, ",info=" and the display text for a
// Poco::Exception; "[tag,BSTE] code=", category, colon, value, ",info=" and the converted message for a
// boost::system::system_error.
std::string ReportCurrentExceptionByKind(std::string_view tag, const MessageConverter& convert);

}  // namespace fenlux
