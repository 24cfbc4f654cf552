#include "runtime/fakes/AllocationCounter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

constinit thread_local size_t allocationCount = 0;
constinit thread_local size_t byteCount = 0;

void* counted(void* memory) {
  if (!memory) throw std::bad_alloc();
  ++allocationCount;
  byteCount += malloc_usable_size(memory);
  return memory;
}

void release(void* memory) {
  if (memory) byteCount -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

namespace rt::fakes {

size_t allocations() { return allocationCount; }
size_t liveBytes() { return byteCount; }

}  // namespace rt::fakes

// All other forms of new and delete call one of these.
void* operator new(size_t size) { return counted(std::malloc(size ? size : 1)); }
// This one too: a sanitizer's own would not fit the delete below.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  void* const memory = std::malloc(size ? size : 1);
  return memory ? counted(memory) : nullptr;
}
void* operator new(size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<size_t>(alignment);
  return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { release(memory); }
