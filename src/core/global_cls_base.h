// The base of the module's one object: its place in the process, and the translation of its messages.
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

// Makes Derived a process-wide singleton: one instance handle, which keeps the object alive. The handle is never
// destroyed when the process exits, because detached workers may still use the object; Release lets go of it on
// purpose.
template <class Derived>
class global_cls_base {
 public:
  // The instance, or an empty handle. Any thread.
  static std::shared_ptr<Derived> Instance() {
    Slot& slot = InstanceSlot();
    const MutexLock lock(slot.mutex);
    return slot.handle;
  }

  // Makes `instance` the instance unless there is one already; says whether it did. Any thread.
  static bool Publish(const std::shared_ptr<Derived>& instance) {
    Slot& slot = InstanceSlot();
    const MutexLock lock(slot.mutex);
    if (slot.handle) return false;
    slot.handle = instance;
    return true;
  }

  // Lets go of the instance; the object is destroyed where nobody else holds it. No worker may be using it. Any thread.
  static void Release() {
    Slot& slot = InstanceSlot();
    std::shared_ptr<Derived> released;  // destroyed after the lock is given up
    const MutexLock lock(slot.mutex);
    released.swap(slot.handle);
  }

  // The translation of a fixed message text; the text itself while the host has no locale service, which is asked for
  // again with the next message. Throws what the host throws. Any thread.
  std::string Translate(const char* text) {
    if (!localeReady && !FetchLocale()) return text;
    std::string translated;
    locale->TranslateText(translated, text, text, 0);
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

  std::shared_ptr<CGlobalContext> context;
  std::shared_ptr<CLocale> locale;  // written under the mutex until localeReady is set, only read from then on
  Mutex localeMutex;
  std::atomic<bool> localeReady{false};
};

}  // namespace fenlux
