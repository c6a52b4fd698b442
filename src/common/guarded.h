// Two ways to go on after a failure: forget it, or finish first and then let it go on.
#pragma once

#include <exception>
#include <utility>

namespace fenlux {

// Runs a step whose failure must not matter: nothing leaves it.
template <class Step>
void Quietly(Step&& step) noexcept {
  try {
    std::forward<Step>(step)();
  } catch (...) {  // by intent: the caller has nothing left to do about it
  }
}

// Runs steps that must all be tried, and remembers the first failure among them.
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

  // Lets the first failure go on, if there was one.
  void Finish() const {
    if (first) std::rethrow_exception(first);
  }

 private:
  std::exception_ptr first;
};

}  // namespace fenlux
