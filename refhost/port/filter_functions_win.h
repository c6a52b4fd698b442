// The functions by which the Filter Manager connects programs with filter drivers, looked up by name when they are
// wanted: a host that needs none of them runs where there are none.
#pragma once

#include <windows.h>
// After windows.h, which it needs.
#include <fltuser.h>

#include <boost/filesystem/path.hpp>

namespace fenlux::refhost {

struct FilterFunctions {
  decltype(&::FilterConnectCommunicationPort) connect = nullptr;
  decltype(&::FilterGetMessage) getMessage = nullptr;
  decltype(&::FilterReplyMessage) replyMessage = nullptr;
  decltype(&::FilterSendMessage) sendMessage = nullptr;
};

// From the library at the path; from the system's own where it is empty. Throws std::runtime_error that says what is
// missing. The library stays loaded: its code may be at work on a thread of ours at any time.
FilterFunctions LoadFilterFunctions(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
