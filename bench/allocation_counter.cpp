// Replaces the global operator new with one that counts per thread.
#include "bench/allocation_counter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;

void* OrThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  return OrThrow(std::malloc(size));
}

void* operator new(std::size_t size, std::align_val_t alignment) {
  ++allocations;
  const auto boundary = static_cast<std::size_t>(alignment);
  return OrThrow(std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary));
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace fenlux::bench {

std::uint64_t AllocationsOfThisThread() { return allocations; }

}  // namespace fenlux::bench
