// The Filter Manager's user-mode functions, looked up at run time so that a host that needs none of them also runs
// where there are none.
#pragma once

#include <windows.h>
// After windows.h, which it needs.
#include <fltuser.h>

#include <boost/filesystem/path.hpp>

// The result of FilterReplyMessage if nobody is waiting for the reply anymore. MinGW's headers do not have it.
#ifndef ERROR_FLT_NO_WAITER_FOR_REPLY
#define ERROR_FLT_NO_WAITER_FOR_REPLY _HRESULT_TYPEDEF_(0x801F0020L)
#endif

namespace fenlux::refhost {

struct FilterFunctions {
  decltype(&::FilterConnectCommunicationPort) connect = nullptr;
  decltype(&::FilterGetMessage) getMessage = nullptr;
  decltype(&::FilterReplyMessage) replyMessage = nullptr;
  decltype(&::FilterSendMessage) sendMessage = nullptr;
};

// Loads the functions from the given library, or from the system's own if `file` is empty. Throws std::runtime_error
// naming what is missing. The library is never unloaded, because a thread of ours may be running its code at any time.
FilterFunctions LoadFilterFunctions(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
