// The owner of the module that operations run on.
#pragma once

#include <memory>

namespace fenlux {
class CFenlux;
}

namespace fenlux::refhost {

class ModuleOwner {
 public:
  // Null before the module is registered. Any thread.
  virtual std::shared_ptr<CFenlux> Module() const = 0;

 protected:
  ~ModuleOwner() = default;
};

}  // namespace fenlux::refhost
