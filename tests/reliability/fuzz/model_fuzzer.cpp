// libFuzzer entry point of the model-based fuzzer: a broken check is a crash, reported with the
// operations that led to it.
#include <cstdio>
#include <cstdlib>

#include "universe.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<reliability::Op> ops = reliability::DecodeOps({data, data + size});
  const std::vector<std::string> violations = reliability::RunOps(ops).violations;
  for (const reliability::Op& op : violations.empty() ? decltype(ops){} : ops)
    std::fprintf(stderr, "  %s\n", reliability::Describe(op).c_str());
  for (const std::string& violation : violations)
    std::fprintf(stderr, "violation: %s\n", violation.c_str());
  if (!violations.empty())
    std::abort();
  return 0;
}
