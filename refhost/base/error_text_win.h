// What Windows says of its errors, in UTF-8.
#pragma once

#include <string>

namespace fenlux::refhost {

// The text of a system error code (of GetLastError) or of an HRESULT, with its number. Any thread.
std::string SystemErrorText(unsigned long code);
// The same for the calling thread's last error; to be called directly after what failed.
std::string LastErrorText();

}  // namespace fenlux::refhost
