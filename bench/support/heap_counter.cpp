// Replacement global allocation functions that count the live heap. Every standard container of
// the library and of the simulated platform allocates through them. The memory program is single
// threaded, so plain counters do.
#include "heap_counter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

#include "bench_platform.h"

namespace {

bench::HeapUse live;
int64_t allocated = 0;

void* Allocate(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr)
    throw std::bad_alloc();
  live.bytes += static_cast<int64_t>(malloc_usable_size(block));
  ++live.blocks;
  ++allocated;
  return block;
}

void Release(void* block) noexcept {
  if (block == nullptr)
    return;
  live.bytes -= static_cast<int64_t>(malloc_usable_size(block));
  --live.blocks;
  std::free(block);
}

}  // namespace

namespace bench {

HeapUse LiveHeap() {
  return live;
}

int64_t AllocationsSoFar() {
  return allocated;
}

}  // namespace bench

void* operator new(std::size_t size) {
  return Allocate(size);
}
void* operator new[](std::size_t size) {
  return Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block) noexcept {
  Release(block);
}
void operator delete[](void* block) noexcept {
  Release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  Release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  Release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  Release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  Release(block);
}
