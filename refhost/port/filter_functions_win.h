// The Filter Manager's user-mode functions, looked up at run time so that a host that does not use them also runs on
// systems without them.
#pragma once

#include <windows.h>
// Needs windows.h before it.
#include <fltuser.h>

#include <boost/filesystem/path.hpp>

// The result of FilterReplyMessage if the reply is no longer awaited. MinGW's headers lack it.
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

// Loads the functions from the given library, or from the system's if `file` is empty. Throws std::runtime_error that
// names what is missing. Never unloads the library, because one of our threads may be running its code at any time.
FilterFunctions LoadFilterFunctions(const boost::filesystem::path& file);

}  // namespace fenlux::refhost
