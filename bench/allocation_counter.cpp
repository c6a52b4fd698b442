// Replaces the global operator new with one that counts per thread.
#include "bench/allocation_counter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace fenlux::bench {

std::uint64_t AllocationsOfThisThread() { return allocations; }

}  // namespace fenlux::bench
