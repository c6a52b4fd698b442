// The look-up, and the texts of what is missing.
#include "refhost/port/filter_functions_win.h"

#include <stdexcept>
#include <string>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {
namespace {

template <typename Function>
void Find(HMODULE library, const std::string& libraryName, const char* name, Function& function) {
  const FARPROC found = ::GetProcAddress(library, name);
  if (found == nullptr) throw std::runtime_error("the Filter Manager's library " + libraryName + " has no " + name);
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

}  // namespace

FilterFunctions LoadFilterFunctions(const boost::filesystem::path& file) {
  const bool standard = file.empty();
  const boost::filesystem::path path = standard ? boost::filesystem::path(L"fltlib.dll") : file;
  const std::string name = NarrowFromWide(path.native());
  // By its name alone the system's own is found, and no other.
  const DWORD where =
      standard ? LOAD_LIBRARY_SEARCH_SYSTEM32
               : LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | (path.is_absolute() ? LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR : 0);
  const HMODULE library = ::LoadLibraryExW(path.c_str(), nullptr, where);
  if (library == nullptr) {
    throw std::runtime_error("the Filter Manager's library " + name + " cannot be loaded: " + LastErrorText());
  }
  FilterFunctions functions;
  Find(library, name, "FilterConnectCommunicationPort", functions.connect);
  Find(library, name, "FilterGetMessage", functions.getMessage);
  Find(library, name, "FilterReplyMessage", functions.replyMessage);
  Find(library, name, "FilterSendMessage", functions.sendMessage);
  return functions;
}

}  // namespace fenlux::refhost
