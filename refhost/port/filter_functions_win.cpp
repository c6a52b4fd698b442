// Loads the library and looks up its functions.
#include "refhost/port/filter_functions_win.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

template <typename Function>
Function Find(HMODULE library, const std::string& libraryName, const char* name) {
  const FARPROC found = ::GetProcAddress(library, name);
  if (found == nullptr) {
    throw std::runtime_error(fmt::format("the Filter Manager's library {} has no {}", libraryName, name));
  }
  return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

}  // namespace

FilterFunctions LoadFilterFunctions(const boost::filesystem::path& file) {
  const bool isDefault = file.empty();
  const boost::filesystem::path path = isDefault ? boost::filesystem::path(L"fltlib.dll") : file;
  const std::string name = NarrowFromWide(path.native());
  // The default library is searched for in the system directory only.
  const DWORD where =
      isDefault ? LOAD_LIBRARY_SEARCH_SYSTEM32
                : LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | (path.is_absolute() ? LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR : 0);
  const HMODULE library = ::LoadLibraryExW(path.c_str(), nullptr, where);
  if (library == nullptr) {
    throw std::runtime_error(
        fmt::format("the Filter Manager's library {} cannot be loaded: {}", name, LastErrorText()));
  }
  FilterFunctions functions;
  functions.connect = Find<decltype(functions.connect)>(library, name, "FilterConnectCommunicationPort");
  functions.getMessage = Find<decltype(functions.getMessage)>(library, name, "FilterGetMessage");
  functions.replyMessage = Find<decltype(functions.replyMessage)>(library, name, "FilterReplyMessage");
  functions.sendMessage = Find<decltype(functions.sendMessage)>(library, name, "FilterSendMessage");
  return functions;
}

}  // namespace fenlux::refhost
