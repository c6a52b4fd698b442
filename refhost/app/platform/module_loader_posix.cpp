// dlopen and dlsym; the handle is let go of on purpose and never closed.
#include <dlfcn.h>

#include <boost/filesystem/operations.hpp>

#include "refhost/app/platform/module_loader.h"
#include "refhost/base/platform/own_process.h"

namespace fenlux::refhost {

ModuleLibrary::ModuleLibrary(const boost::filesystem::path& file) {
  // An absolute path: a bare name would be searched in the system's library directories.
  const boost::filesystem::path path = boost::filesystem::absolute(file);
  void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw ModuleLoadError("the module cannot be loaded: " + std::string(::dlerror()));
  void* const symbol = ::dlsym(library, "init");
  if (symbol == nullptr) throw ModuleLoadError("the module " + path.string() + " has no init");
  init = reinterpret_cast<InitFunction>(symbol);
}

boost::filesystem::path DefaultModuleLibrary() {
  const boost::filesystem::path folder = OwnProgramPath().parent_path();
  const boost::filesystem::path beside = folder / "libfenlux.so";
  const boost::filesystem::path installed = folder.parent_path() / "lib" / "libfenlux.so";
  boost::system::error_code error;
  const bool isInstalled = !boost::filesystem::exists(beside, error) && boost::filesystem::exists(installed, error);
  return isInstalled ? installed : beside;
}

}  // namespace fenlux::refhost
