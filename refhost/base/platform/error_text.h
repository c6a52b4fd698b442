// The system's messages for its error codes, in UTF-8. The bodies are platform-specific.
#pragma once

#include <cstdint>
#include <string>

namespace fenlux::refhost {

// The message for a system error code: a value of errno, or on Windows of GetLastError or an HRESULT, followed by the
// number there. Any thread.
std::string SystemErrorText(std::int64_t code);
// The same for the calling thread's last error. Call it directly after the call that failed.
std::string LastErrorText();

}  // namespace fenlux::refhost
