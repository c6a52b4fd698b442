// Counts arrivals under a lock; threads wait until the turnstile is open.
#include "tests/support/turnstile.h"

#include "tests/support/test_timeout.h"

namespace fenlux::testing {

void Turnstile::Pass() {
  std::unique_lock lock(mutex);
  ++arrivals;
  changed.notify_all();
  changed.wait(lock, [this] { return open; });
}

bool Turnstile::AwaitArrivals(std::size_t count) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, kTestTimeout, [&] { return arrivals >= count; });
}

std::size_t Turnstile::Arrivals() {
  const std::lock_guard lock(mutex);
  return arrivals;
}

void Turnstile::Open() {
  const std::lock_guard lock(mutex);
  open = true;
  changed.notify_all();
}

}  // namespace fenlux::testing
