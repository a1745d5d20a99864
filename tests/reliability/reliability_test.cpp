// The library under chip faults and concurrent first use.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <thread>

#include "hal_bcm_bridge_port.h"
#include "hal_bridge_domain_itf.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"
#include "universe.h"

namespace reliability {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

std::vector<Op> Read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return DecodeOps({std::istreambuf_iterator<char>(in), {}});
}

// The seed corpus holds realistic configurations of a switch, each operation succeeding on a chip
// without faults. Each runs again for every SDK call it makes, with that call failing, for each of
// a few codes: the failing operation reports it, nothing but the documented exceptions escapes,
// and the books and the chip still agree wherever the library promises it.
TEST(FaultSweep, EveryFailingChipCallIsReportedAndBooksAndChipStayInStep) {
  std::vector<std::string> failures;
  size_t scenarios = 0, points = 0, checks = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(HALBD_FUZZ_DIR) / "corpus")) {
    const std::string name = entry.path().filename().string();
    const std::vector<Op> ops = Read(entry.path());
    const RunResult clean = RunOps(ops);
    ASSERT_TRUE(clean.allSucceeded) << name;
    ASSERT_THAT(clean.violations, IsEmpty()) << name;
    for (const sim::LogRecord& record : sim::halLog().Records())  // nothing above information
      ASSERT_FALSE(record.isError || record.levelOrCode < 6) << name << ": " << record.text;
    const std::vector<sim::SdkCall> calls = sim::chip().Trace();
    std::map<std::string, int> seen;
    for (size_t index = 0; index < calls.size(); ++index) {
      const int nth = ++seen[calls[index].function];
      for (const int rc : kFaultCodes) {
        const RunResult run = RunOps(ops, Injection{index, calls[index].function, nth, rc});
        for (const std::string& violation : run.violations)
          failures.emplace_back(name)
              .append(", call " + std::to_string(index) + ": ")
              .append(violation);
        checks += run.checks;
      }
    }
    ++scenarios;
    points += calls.size();
    checks += clean.checks;
  }
  std::printf(
      "[ sweep    ] %zu scenarios, %zu injection points x %zu codes = %zu faulty runs, "
      "%zu checks\n",
      scenarios, points, std::size(kFaultCodes), points * std::size(kFaultCodes), checks);
  EXPECT_GT(scenarios, 0u);
  failures.resize(std::min<size_t>(failures.size(), 25));
  EXPECT_THAT(failures, IsEmpty());
}

// The corpus, every input that once broke a check (regressions/) and the inputs that take the
// fuzzer to deep states (seeds/) run clean as they are.
TEST(FuzzCorpus, SeedsAndFormerCrashInputsRunClean) {
  size_t inputs = 0, ops = 0;
  for (const char* dir : {"corpus", "regressions", "seeds"}) {
    for (const auto& entry : fs::directory_iterator(fs::path(HALBD_FUZZ_DIR) / dir)) {
      const std::vector<Op> decoded = Read(entry.path());
      EXPECT_THAT(RunOps(decoded).violations, IsEmpty()) << entry.path();
      ++inputs;
      ops += decoded.size();
    }
  }
  std::printf("[ corpus   ] %zu inputs, %zu operations\n", inputs, ops);
  EXPECT_GT(inputs, 0u);
}

// Several HAL modules may ask for the services at once while the process starts: meant to run
// under ThreadSanitizer. The simulated orchestrator does not lock; this one serialises
// registrations as the real one does.
struct LockingLagOrchestrator : sim::LagOrchestratorSim {
  bool RegisterClient(unsigned int priority, const std::string& name, Callback&& cb) override {
    const std::lock_guard<std::mutex> lock(mutex);
    return LagOrchestratorSim::RegisterClient(priority, name, std::move(cb));
  }
  std::mutex mutex;
};

TEST(SingletonRace, ConcurrentFirstCallsBuildOneInstanceOfEachServiceRegisteredOnce) {
  sim::Reset();
  const auto lags = std::make_shared<LockingLagOrchestrator>();
  std::vector<std::set<void*>> seen(8);  // one set per thread, so that the test does not race
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int t = 0; t < 8; ++t) {
    // Half of the threads start with the bridge domain, so that both constructors run at once;
    // later calls pass no orchestrator, as modules that only use the services do.
    threads.emplace_back(
        [&, t, orchestrator = std::shared_ptr<sim::LagOrchestratorSim>(lags)]() mutable {
          for (++ready; ready.load() < 8;) {
          }
          for (int call = 0; call < 100; ++call, orchestrator = nullptr) {
            if (t % 2 == 1)
              seen[t].insert(HalBridgeDomainItf::getInstance(orchestrator));
            seen[t].insert(HalBridgePortItf::getInstance(orchestrator));
            seen[t].insert(HalBridgeDomainItf::getInstance(orchestrator));
          }
        });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (int t = 1; t < 8; ++t)
    seen[0].insert(seen[t].begin(), seen[t].end());
  EXPECT_EQ(seen[0].size(), 2u);  // one bridge port, one bridge domain
  EXPECT_EQ(seen[0].count(static_cast<HalBridgePortItf*>(_halbp_global)), 1u);
  using Client = std::pair<unsigned int, std::string>;
  EXPECT_THAT(lags->Clients(), ElementsAre(Client{1000, "hal-switch-bd-ll-bcm"},
                                           Client{1001, "hal-switch-bd-ll-bcm-bridgeport"}));
}

}  // namespace
}  // namespace reliability
