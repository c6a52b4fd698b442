// Holds threads at a point of the test's choice.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace fenlux::testing {

// Blocks arriving threads until the test opens it. Used as a hook: gate.OnCall("...", [&] { turnstile.Pass(); }).
class Turnstile {
 public:
  void Pass();
  // Waits until `count` threads have arrived. False: timed out.
  bool AwaitArrivals(std::size_t count);
  std::size_t Arrivals();
  // Lets every thread pass, from now on.
  void Open();

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t arrivals = 0;
  bool open = false;
};

}  // namespace fenlux::testing
