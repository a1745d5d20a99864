// The heap in use through operator new, counted by the replacement operators of heap_counter.cpp
// (linked into the memory program only).
#ifndef HALBD_BENCH_SUPPORT_HEAP_COUNTER_H
#define HALBD_BENCH_SUPPORT_HEAP_COUNTER_H

#include <cstdint>

namespace bench {

struct HeapUse {
  // Bytes as the allocator hands them out (the request rounded up to its chunk size), without the
  // allocator's own chunk header.
  int64_t bytes = 0;
  int64_t blocks = 0;
};

// What is allocated with operator new and not yet deleted.
HeapUse LiveHeap();

// AllocationsSoFar() of bench_platform.h: every block operator new handed out, freed or not.

}  // namespace bench

#endif  // HALBD_BENCH_SUPPORT_HEAP_COUNTER_H
