// The fuzzer's seed corpus and every input that once broke a check (fuzz/regressions) run clean
// in every build, sanitizers included, with or without a fuzzer.
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "universe.h"

namespace reliability {
namespace {

namespace fs = std::filesystem;

TEST(FuzzCorpus, SeedsAndFormerCrashInputsRunClean) {
  size_t inputs = 0;
  size_t ops = 0;
  for (const char* dir : {"corpus", "regressions"}) {
    for (const auto& entry : fs::directory_iterator(fs::path(HALBD_FUZZ_DIR) / dir)) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
      const std::vector<Op> decoded = DecodeOps(bytes.data(), bytes.size());
      EXPECT_THAT(RunOps(decoded).violations, ::testing::IsEmpty()) << entry.path();
      ++inputs;
      ops += decoded.size();
    }
  }
  std::printf("[ corpus   ] %zu inputs, %zu operations\n", inputs, ops);
  EXPECT_GT(inputs, 0u);
}

}  // namespace
}  // namespace reliability
