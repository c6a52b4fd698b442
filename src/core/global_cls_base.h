// Base of the module object: its process-wide instance handle and the translation of its messages.
#pragma once

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/mutex.h"
#include "host/global_context.h"
#include "host/locale.h"

namespace fenlux {

// Makes Derived a process-wide singleton: one instance handle keeps the object alive. The handle is not destroyed when
// the process exits, because detached workers may still use the object; only Release drops it.
template <class Derived>
class global_cls_base {
 public:
  // Returns the instance, or an empty handle. Any thread.
  static std::shared_ptr<Derived> Instance() {
    Slot& slot = InstanceSlot();
    const MutexLock lock(slot.mutex);
    return slot.handle;
  }

  // Makes `instance` the instance and returns true, or returns false if there is one already. Any thread.
  static bool Publish(const std::shared_ptr<Derived>& instance) {
    Slot& slot = InstanceSlot();
    const MutexLock lock(slot.mutex);
    if (slot.handle) return false;
    slot.handle = instance;
    return true;
  }

  // Drops the instance handle, and with it the object unless another handle exists. No worker may be using the object.
  // Any thread.
  static void Release() {
    Slot& slot = InstanceSlot();
    std::shared_ptr<Derived> released;  // destroyed after the mutex is released
    const MutexLock lock(slot.mutex);
    released.swap(slot.handle);
  }

  // Returns the translation of a fixed message text. While the host has no locale service, returns the text itself and
  // asks for the service again next time. Throws what the host throws. Any thread.
  std::string Translate(const char* text) {
    if (!localeReady && !FetchLocale()) return text;
    std::string translated;
    ReadyLocale().TranslateText(translated, text, text, 0);
    return translated;
  }

 protected:
  // Throws std::runtime_error ("[cl]Bad global class!") for an empty handle.
  explicit global_cls_base(std::shared_ptr<CGlobalContext> globalContext) : context(std::move(globalContext)) {
    if (!context) throw std::runtime_error("[cl]Bad global class!");
  }
  ~global_cls_base() = default;

 private:
  struct Slot {
    Mutex mutex;
    std::shared_ptr<Derived> handle FENLUX_GUARDED_BY(mutex);
  };

  static Slot& InstanceSlot() {
    static Slot& slot = *new Slot;
    return slot;
  }

  bool FetchLocale() {
    const MutexLock lock(localeMutex);
    if (!locale) locale = context->GetLocale();
    if (!locale) return false;
    localeReady = true;
    return true;
  }

  // Not analyzed, because it needs no lock: `locale` never changes once `localeReady` is set.
  CLocale& ReadyLocale() const FENLUX_NO_THREAD_SAFETY_ANALYSIS { return *locale; }

  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CLocale> locale FENLUX_GUARDED_BY(localeMutex);
  Mutex localeMutex;
  std::atomic<bool> localeReady{false};
};

}  // namespace fenlux
