// Helpers for ignoring an exception, and for deferring one until all steps have run.
#pragma once

#include <exception>
#include <utility>

namespace fenlux {

// Runs a step and ignores its exceptions.
template <class Step>
void Quietly(Step&& step) noexcept {
  try {
    std::forward<Step>(step)();
  } catch (...) {  // Ignored: the caller cannot do anything about it.
  }
}

// Runs steps that must all be tried, and keeps the first exception.
class AllSteps {
 public:
  template <class Step>
  void Try(Step&& step) noexcept {
    try {
      std::forward<Step>(step)();
    } catch (...) {
      if (!first) first = std::current_exception();
    }
  }

  // Rethrows the first exception, if there was one.
  void Finish() const {
    if (first) std::rethrow_exception(first);
  }

 private:
  std::exception_ptr first;
};

}  // namespace fenlux
