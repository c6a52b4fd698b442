// The system's messages for its error codes, in UTF-8. The implementations are platform-specific.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux::refhost {

// The message for a system error code: a value of errno, or on Windows of GetLastError or an HRESULT, where the message
// ends with the number. Any thread.
std::string SystemErrorText(std::int64_t code);
// The message for the calling thread's last error. Call it directly after the call that failed.
std::string LastErrorText();

}  // namespace fenlux::refhost
