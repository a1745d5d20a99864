// Several HAL modules may ask for the services at once while the process starts: the first
// getInstance of both services races on many threads, and so do the calls that follow it. Meant to
// run under ThreadSanitizer.
#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hal_bcm_bridge_port.h"
#include "hal_bridge_domain_itf.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace {

using ::testing::ElementsAre;
using Client = std::pair<unsigned int, std::string>;

// The layer-2 library takes registrations from any thread; the simulated orchestrator does not
// lock, so this one serialises them as the real one does.
class LockingLagOrchestrator : public sim::LagOrchestratorSim {
 public:
  bool RegisterClient(unsigned int priority, const std::string& name,
                      Callback&& callback) override {
    std::lock_guard<std::mutex> lock(mutex_);
    return LagOrchestratorSim::RegisterClient(priority, name, std::move(callback));
  }

 private:
  std::mutex mutex_;
};

TEST(SingletonRace, ConcurrentFirstCallsBuildOneInstanceOfEachServiceRegisteredOnce) {
  sim::Reset();
  const auto lags = std::make_shared<LockingLagOrchestrator>();
  constexpr int kThreads = 8;
  // What each thread got, apart from the others' so that the test itself does not race.
  std::vector<std::set<HalBridgePortItf*>> ports(kThreads);
  std::vector<std::set<HalBridgeDomainItf*>> domains(kThreads);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ++ready;
      while (ready.load() < kThreads) {
      }
      // Half of the threads start with the bridge domain, so both constructors run at once.
      // Later calls pass no orchestrator, as modules that only use the services do.
      std::shared_ptr<halswitchl2if::LagOrchestrator> orchestrator = lags;
      for (int call = 0; call < 100; ++call, orchestrator = nullptr) {
        if (t % 2 == 1)
          domains[t].insert(HalBridgeDomainItf::getInstance(orchestrator));
        ports[t].insert(HalBridgePortItf::getInstance(orchestrator));
        domains[t].insert(HalBridgeDomainItf::getInstance(orchestrator));
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  for (int t = 1; t < kThreads; ++t) {
    ports[0].insert(ports[t].begin(), ports[t].end());
    domains[0].insert(domains[t].begin(), domains[t].end());
  }
  ASSERT_NE(_halbp_global, nullptr);
  EXPECT_THAT(ports[0], ElementsAre(static_cast<HalBridgePortItf*>(_halbp_global)));
  EXPECT_THAT(domains[0], ElementsAre(::testing::NotNull()));
  EXPECT_THAT(lags->Clients(), ElementsAre(Client{1000, "hal-switch-bd-ll-bcm"},
                                           Client{1001, "hal-switch-bd-ll-bcm-bridgeport"}));
}

}  // namespace
