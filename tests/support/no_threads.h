// Makes the system refuse new threads while an object exists.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>

#if defined(__GLIBC__)
#include <pthread.h>
#endif

namespace fenlux::testing {

// While an instance exists, no thread can be created: the default stack is larger than the address space.
class [[maybe_unused]] NoThreads {
 public:
#if defined(__GLIBC__)
  static constexpr bool Possible() { return true; }

  NoThreads() {
    EXPECT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_t attributes;
    EXPECT_EQ(pthread_attr_init(&attributes), 0);
    EXPECT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{1} << 60), 0);
    EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
    pthread_attr_destroy(&attributes);
  }
  ~NoThreads() {
    EXPECT_EQ(pthread_setattr_default_np(&usual), 0);
    pthread_attr_destroy(&usual);
  }
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;

 private:
  pthread_attr_t usual;
#else
  static constexpr bool Possible() { return false; }
#endif
};

}  // namespace fenlux::testing
