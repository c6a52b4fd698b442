// A module whose StartWork fails.
#define FENLUX_BUILDING_MODULE
#include <stdexcept>

#include "core/fenlux.h"
#include "host/global_context.h"

namespace {

class Module final : public fenlux::CFenlux {
 public:
  void StartWork() override { throw std::runtime_error("no thread today"); }
  void StopWork(bool) override {}
  void NotifyPolicyChanged() override {}
  std::uint32_t GetDriverPortValue() override { return 0; }
  std::shared_ptr<fenlux::CKDIBase> GetDriverInteract() override { return nullptr; }
};

}  // namespace

void init(const std::shared_ptr<fenlux::CGlobalContext>* context) {
  (*context)->RegisterModule(std::make_shared<Module>());
}
