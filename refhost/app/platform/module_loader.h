// Loading of the module's library: its init is looked up and called, and nothing else of it is known.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <stdexcept>
#include <string>

namespace fenlux {
class CGlobalContext;
}

namespace fenlux::refhost {

// The library could not be loaded, or has no init.
class ModuleLoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A loaded module. The library stays loaded when the object goes: the module's threads are never joined, so its code
// must stay until the process ends.
class ModuleLibrary {
 public:
  // Throws ModuleLoadError.
  explicit ModuleLibrary(const boost::filesystem::path& file);

  // Calls the module's init; lets through what it throws.
  void Init(const std::shared_ptr<CGlobalContext>& context) const { init(&context); }

 private:
  using InitFunction = void (*)(const std::shared_ptr<CGlobalContext>*);

  InitFunction init = nullptr;
};

// The module's library beside this program, or where an installation puts it.
boost::filesystem::path DefaultModuleLibrary();

}  // namespace fenlux::refhost
