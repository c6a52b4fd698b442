// The module's interface to its host: the exported entry point and the operations that drive the module.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CGlobalContext;
class CKDIBase;

// Passed to CGlobalContext::RegisterModule by init. Lives as long as the library is loaded. Host threads, concurrently
// unless stated otherwise.
class CFenlux {
 public:
  // Clears the monitor objects of the current driver interface and shuts it down. Then, if CCfgEx::IsEnabled says so,
  // starts the connection worker and the policy worker. Call it once: a second call adds another policy worker, which
  // runs concurrently with the first, and a connection worker that ends at once. Throws what clearing or shutting down
  // threw and starts nothing; throws std::system_error if a thread cannot be made.
  virtual void StartWork() = 0;
  // Shuts the current driver interface down; with `clear`, clears its monitor objects first, in the driver too. The
  // connection worker makes a new connection 5 seconds later. Throws what clearing or shutting down threw, after the
  // interface has been shut down.
  virtual void StopWork(bool clear) = 0;
  // Makes the policy worker apply the policy again. A call while a policy is being applied, or while no connection is
  // ready, has no effect later on. Any thread.
  virtual void NotifyPolicyChanged() = 0;
  // Returns the port value of the ready driver interface; throws std::runtime_error if none is ready.
  virtual std::uint32_t GetDriverPortValue() = 0;
  // Returns the ready driver interface, or an empty handle. The connection may end at any time; a kept handle stays
  // valid, but its interface is no longer ready.
  virtual std::shared_ptr<CKDIBase> GetDriverInteract() = 0;

 protected:
  ~CFenlux() = default;
};

}  // namespace fenlux

#if defined(FENLUX_BUILDING_MODULE) && !defined(_WIN32)
#define FENLUX_EXPORT __attribute__((visibility("default")))
#else
#define FENLUX_EXPORT  // Windows: the module's .def file exports init
#endif

// The only export. Makes the module from the services of `*context` and registers it there; does nothing if the module
// already exists. Throws std::runtime_error with "[cl]Bad global class!" for a null pointer or an empty handle, and
// with a message such as "bad log init!" if a required service is missing. Also throws what the host's RegisterModule
// throws; the module then exists unregistered, and a later init does nothing. Host thread.
extern "C" FENLUX_EXPORT void init(const std::shared_ptr<fenlux::CGlobalContext>* context);
