// The text of a caught exception in the log: a bracketed tag, the kind of exception, and its message.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace fenlux {

// Makes the message of a system error readable. If it throws, the report has the original message.
using MessageConverter = std::function<std::string(const std::string& message)>;

// Describes the exception being handled; call inside a catch (...). Returns "[tag,STDE] info=" and the message for a
// standard exception (nothing after it if what() is null), "[tag,OTHE]" for anything else. `otherTag`, if not empty,
// replaces the tag of the second form. Throws std::bad_alloc only. Any thread.
std::string ReportCurrentException(std::string_view tag, std::string_view otherTag = {});

// Like ReportCurrentException, with two more kinds: "[tag,PCE] code=", the code, ",info=" and the display text for a
// Poco::Exception; "[tag,BSTE] code=", category, colon, value, ",info=" and the converted message for a
// boost::system::system_error.
std::string ReportCurrentExceptionByKind(std::string_view tag, const MessageConverter& convert);

}  // namespace fenlux
