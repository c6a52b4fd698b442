// The module as its host sees it: the exported entry point and the operations that drive the module.
#pragma once

#include <cstdint>
#include <memory>

namespace fenlux {

class CGlobalContext;
class CKDIBase;

// Handed to CGlobalContext::RegisterModule by init. All operations: host threads, several at once unless said
// otherwise. The object lives as long as the library is loaded.
class CFenlux {
 public:
  // Shuts the current driver interface down, clearing its monitor objects, and then, if CCfgEx::IsEnabled says so,
  // starts the connection worker and the policy worker. Call it once. A second call adds another policy worker that
  // runs beside the first, and a connection worker that finds its place taken and ends. Throws what clearing or
  // shutting down threw, having started nothing, and std::system_error where a thread cannot be made.
  virtual void StartWork() = 0;
  // Shuts the current driver interface down; with `clear`, its monitor objects are cleared first, in the driver too.
  // The connection worker makes a new connection 5 seconds later. Throws what clearing or shutting down threw; the
  // interface is shut down all the same.
  virtual void StopWork(bool clear) = 0;
  // Has the policy applied again. A call while a policy is just being applied, or while no connection is ready, is
  // not remembered.
  virtual void NotifyPolicyChanged() = 0;
  // The port value of the ready driver interface; throws std::runtime_error while none is ready.
  virtual std::uint32_t GetDriverPortValue() = 0;
  // The ready driver interface, or an empty handle while none is ready. It may end at any time; a handle kept longer
  // stays valid and is no longer ready.
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

// The one export. Makes the module from the services of `*context` and registers it there; does nothing where the
// module exists already. Throws std::runtime_error with "[cl]Bad global class!" for a null pointer or an empty handle,
// with the service's own message ("bad log init!") where a required service is missing, and whatever the host's
// RegisterModule throws: the module exists then, unregistered, and a later init does nothing. Host thread.
extern "C" FENLUX_EXPORT void init(const std::shared_ptr<fenlux::CGlobalContext>* context);
