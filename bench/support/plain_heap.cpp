// The timing program keeps the plain allocator: it has no allocation count.
#include "bench_platform.h"

namespace bench {

int64_t AllocationsSoFar() {
  return -1;
}

}  // namespace bench
