// Replaces every form of the global operator new and delete, so that one allocator serves all of them.
#include "tests/support/failing_allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/allocation_exemption.h"

namespace {

using fenlux::testing::AllocatingThreads;

// Constant-initialized: the program allocates before main.
std::atomic<bool> active{false};
std::atomic<AllocatingThreads> chosen{AllocatingThreads::kAll};
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> failing{0};
thread_local bool isAsker = false;

bool Fails() noexcept {
  if (!active.load(std::memory_order_acquire) || fenlux::testing::allocationExemptions > 0) return false;
  const AllocatingThreads threads = chosen.load(std::memory_order_relaxed);
  if (threads != AllocatingThreads::kAll && (threads == AllocatingThreads::kThis) != isAsker) return false;
  return allocations.fetch_add(1, std::memory_order_relaxed) + 1 == failing.load(std::memory_order_relaxed);
}

void* Allocate(std::size_t size) noexcept { return Fails() ? nullptr : std::malloc(size != 0 ? size : 1); }

void* AllocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
  const auto boundary = static_cast<std::size_t>(alignment);
  return Fails() ? nullptr : std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary);
}

// Like the replaced operators, calls the program's handler, if it has one. Handlers here always throw.
void* OrThrow(void* memory) {
  if (memory != nullptr) return memory;
  if (const std::new_handler handler = std::get_new_handler(); handler != nullptr) handler();
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new[](std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) { return OrThrow(AllocateAligned(size, alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return OrThrow(AllocateAligned(size, alignment)); }
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateAligned(size, alignment);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }

namespace fenlux::testing {

FailingAllocations::FailingAllocations(AllocatingThreads threads, std::size_t failingOne) : n(failingOne) {
  isAsker = true;
  chosen = threads;
  allocations = 0;
  failing = n;
  active = true;
}

FailingAllocations::~FailingAllocations() {
  active = false;
  isAsker = false;
}

std::size_t FailingAllocations::Count() { return allocations; }

}  // namespace fenlux::testing
