// The exported entry point: makes the module once and registers it with the host.
#include "common/required.h"
#include "core/fenlux.h"
#include "core/fenlux_impl.h"

void init(const std::shared_ptr<fenlux::CGlobalContext>* context) {
  using fenlux::CFenluxImpl;
  if (CFenluxImpl::Instance()) return;
  const auto globalContext = context != nullptr ? *context : nullptr;
  const auto module = std::make_shared<CFenluxImpl>(globalContext);
  if (!CFenluxImpl::Publish(module)) return;  // another thread was faster and registers its module
  globalContext->RegisterModule(module);
}
