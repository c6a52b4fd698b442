// Loads the module's library and calls its init, its only export.
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <stdexcept>
#include <string>

namespace fenlux {
class CGlobalContext;
}

namespace fenlux::refhost {

// The library cannot be loaded, or has no init.
class ModuleLoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A loaded module. The library stays loaded when the object is destroyed: the module's threads are never joined, so its
// code must stay until the process ends.
class ModuleLibrary {
 public:
  // Throws ModuleLoadError.
  explicit ModuleLibrary(const boost::filesystem::path& file);

  // Calls the module's init. Throws whatever init throws.
  void Init(const std::shared_ptr<CGlobalContext>& context) const { init(&context); }

 private:
  using InitFunction = void (*)(const std::shared_ptr<CGlobalContext>*);

  InitFunction init = nullptr;
};

// The module's library next to this program, or in its installed place.
boost::filesystem::path DefaultModuleLibrary();

}  // namespace fenlux::refhost
