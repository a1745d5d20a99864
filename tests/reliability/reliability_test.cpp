// The library under chip faults, bad input and concurrent first use.
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

// The corpus and every input that once broke a check (regressions/) run clean as they are.
TEST(FuzzCorpus, SeedsAndFormerCrashInputsRunClean) {
  size_t inputs = 0, ops = 0;
  for (const char* dir : {"corpus", "regressions"}) {
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

// Values no caller should send, as indices into the tables of universe.cpp: native VLAN 4096, PCP
// 8, Q-in-Q mode 2, rules without an operation (5) and with operation 7 (6), stage 2, property 2,
// a DHCP value without a known bit (3), a client name with a trailing blank (1). Each is refused
// with its reason in the log, or applied safely where the value has a meaning; the chip changes
// only as the row says.
struct BadInput {
  Op op;
  std::vector<std::string> log;  // the start of each line, in order; a refusal logs its reason
  std::vector<std::string> writes = {};
};
void PrintTo(const BadInput& input, std::ostream* os) {
  *os << Describe(input.op);
}
const BadInput kBadInputs[] = {
    {{kSetNativeVlan, P1, 4}, {"log(3): Error setting eth1/1 native VLAN id(4096): Invalid"}},
    {{kSetPrio, P1, 3}, {"log(3): Error setting eth1/1 default priority(8): Invalid PCP"}},
    {{kSetQinQ, P1, 2}, {"log(3): SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode"}},
    {{kSetNativeVlan, kUnknownLag, 0}, {"log(3): Error setting lag9 native VLAN id(10): LAG"}},
    {{kSetPrio, kUnknownLag, 0}, {"log(3): Error setting lag9 default priority(3): LAG not"}},
    {{kSetQinQ, kUnknownLag, 0}, {"log(3): Error setting lag9 VLAN Q-in-Q mode: LAG not"}},
    {{kAddRule, P1, 0, 5},
     {"log(3): GetIngressVlanXlateAction() invalid", "log(3): Install", "log(6)"}},
    {{kAddRule, P1, 0, 6},
     {},
     {"bcm_vlan_translate_action_add(0, 0x4000001, 8, 106, 0, {flags=0x4}) = 0"}},
    {{kAddRule, P1, 2, 0}, {}},
    {{kAddRule, kUnknownPort, 0, 0}, {"log(3): InstallIngressVlanMappingRule() failed", "log(6)"}},
    {{kAddProperty, 0, 2, 0}, {"log(3): Unsupported property 2"}},
    {{kAddProperty, 0, 0, 3},
     {},
     {"bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, {flags=0x0, "
      "broadcast_group=0x0, dhcp_action=0x0}) = 0"}},
    {{kBlock, L1, 1, 0}, {"log(3): [HAL-BP] Only ethernet type port block is allowed."}},
    {{kBlock, P1, 1, 1}, {"log(3): [HAL-BP] Discard port of interface (eth1/1) not allowed"}},
};
class BadInputTest : public ::testing::TestWithParam<BadInput> {};
TEST_P(BadInputTest, IsRefusedWithItsReasonAndChangesOnlyWhatItNames) {
  const RunResult run = RunOps({GetParam().op});
  std::vector<::testing::Matcher<std::string>> log;
  for (const std::string& start : GetParam().log)
    log.push_back(::testing::StartsWith(start));
  EXPECT_THAT(sim::halLog().Lines(), ::testing::ElementsAreArray(log));
  EXPECT_EQ(run.lastRefused, !GetParam().log.empty());
  EXPECT_EQ(run.lastWrites, GetParam().writes);
  EXPECT_THAT(run.violations, IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(EveryOperation, BadInputTest, ::testing::ValuesIn(kBadInputs));

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
