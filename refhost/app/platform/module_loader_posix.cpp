// dlopen and dlsym. The handle is never closed, on purpose. The build names the module's library, with the version of
// its interface, and the folder where it is installed.
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
    // Each thread has its own error text.
    throw ModuleLoadError("cannot load the module: " + std::string(::dlerror()));  // NOLINT(concurrency-mt-unsafe)
  }
  void* const symbol = ::dlsym(library, "init");
  if (symbol == nullptr) throw ModuleLoadError("the module " + path.string() + " has no init");
  init = reinterpret_cast<InitFunction>(symbol);
}

boost::filesystem::path DefaultModuleLibrary() {
  const boost::filesystem::path folder = OwnProgramPath().parent_path();
  boost::filesystem::path nextToProgram = folder / FENLUX_MODULE_NAME;
  for (const auto& candidate :
       {nextToProgram, folder / "libfenlux.so", folder.parent_path() / FENLUX_LIBRARY_FOLDER / FENLUX_MODULE_NAME}) {
    boost::system::error_code error;
    if (boost::filesystem::exists(candidate, error)) return candidate;
  }
  return nextToProgram;
}

}  // namespace fenlux::refhost
