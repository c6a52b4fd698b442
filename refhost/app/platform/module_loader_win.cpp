// LoadLibraryEx and GetProcAddress. The library is never freed, on purpose.
#include "refhost/app/platform/module_loader.h"

#include <windows.h>

#include <boost/filesystem/operations.hpp>

#include "refhost/base/platform/error_text.h"
#include "refhost/base/platform/own_process.h"
#include "refhost/base/text/utf_text.h"

namespace fenlux::refhost {

ModuleLibrary::ModuleLibrary(const boost::filesystem::path& file) {
  // Absolute, because a bare name is searched for in directories that others may write to. The module's own
  // dependencies are searched for next to it, next to this program and in the system directory.
  const boost::filesystem::path path = boost::filesystem::absolute(file).make_preferred();
  const HMODULE library =
      ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
  const std::string name = NarrowFromWide(path.native());
  if (library == nullptr) throw ModuleLoadError("cannot load the module " + name + ": " + LastErrorText());
  const FARPROC symbol = ::GetProcAddress(library, "init");
  if (symbol == nullptr) throw ModuleLoadError("the module " + name + " has no init");
  init = reinterpret_cast<InitFunction>(reinterpret_cast<void*>(symbol));
}

boost::filesystem::path DefaultModuleLibrary() { return OwnProgramPath().parent_path() / "fenlux.dll"; }

}  // namespace fenlux::refhost
