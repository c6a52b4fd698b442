// dlopen and dlsym. The handle is never closed, on purpose.
#include <dlfcn.h>

#include <boost/filesystem/operations.hpp>

#include "refhost/app/platform/module_loader.h"
#include "refhost/base/platform/own_process.h"

namespace fenlux::refhost {

ModuleLibrary::ModuleLibrary(const boost::filesystem::path& file) {
  // Absolute, because dlopen searches the system's library directories for a bare name.
  const boost::filesystem::path path = boost::filesystem::absolute(file);
  void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    // Its text belongs to this thread.
    throw ModuleLoadError("cannot load the module: " + std::string(::dlerror()));  // NOLINT(concurrency-mt-unsafe)
  }
  void* const symbol = ::dlsym(library, "init");
  if (symbol == nullptr) throw ModuleLoadError("the module " + path.string() + " has no init");
  init = reinterpret_cast<InitFunction>(symbol);
}

boost::filesystem::path DefaultModuleLibrary() {
  const boost::filesystem::path folder = OwnProgramPath().parent_path();
  const boost::filesystem::path local = folder / "libfenlux.so";
  const boost::filesystem::path installed = folder.parent_path() / "lib" / "libfenlux.so";
  boost::system::error_code error;
  const bool isInstalled = !boost::filesystem::exists(local, error) && boost::filesystem::exists(installed, error);
  return isInstalled ? installed : local;
}

}  // namespace fenlux::refhost
