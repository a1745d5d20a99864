// The common ground of the scenarios: the two services on the simulated platform, a switch of 64
// chip ports, the two chip modes, timing in batches with SDK call counting, and the check that a
// scenario left nothing behind for the next one.
//
// The services are process-wide singletons that outlive every scenario. Each scenario therefore
// starts from sim::Reset() and its own configuration, and takes back what it added to the
// services' books (memberships, rules, LAGs) before it ends; CheckClean() fails the benchmark
// when it did not.
#ifndef HALBD_BENCH_SUPPORT_BENCH_PLATFORM_H
#define HALBD_BENCH_SUPPORT_BENCH_PLATFORM_H

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hal_bcm_bridge_domain.h"
#include "hal_bcm_bridge_port.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace bench {

// The modelling chip keeps the state of every table and checks every call. The null chip answers
// every call with success at once, so what a scenario costs on it is the library's own time (and
// that of the companion libraries it asks: identifier tables, LAG member lists).
enum class Chip { Model, Null };
const char* ChipName(Chip chip);

constexpr unsigned kSwitchPorts = 48;  // front-panel ports eth1/1 to eth1/48
constexpr unsigned kAllVlans = 4094;   // VLANs 1 to 4094

// eth1/<port> on chip port <port> (local-port gport), for every port of the chip.
limid_t Eth(unsigned port);
// eth1/<first> to eth1/<last>.
std::vector<limid_t> Ports(unsigned first, unsigned last);
limid_t Domain(unsigned vlan);

struct Services {
  std::shared_ptr<sim::LagOrchestratorSim> lags;
  HalBcmBridgeDomain* domain;
  HalBcmBridgePort* port;
};
// Built on first use with the LAG orchestrator, so that both services receive the LAG events.
Services& TheServices();

// A clean platform: every chip port in the common tables as eth1/<port>, VLANs 1 to vlans with
// their broadcast groups on the modelling chip, the trace off, the chip mode, the call count at 0.
void ResetPlatform(Chip chip, unsigned vlans);

// Adds every interface to every VLAN of [first, last] (first > last: none); false on a failure.
bool AddToVlans(const std::vector<limid_t>& intfs, unsigned first, unsigned last, bool tagged);
bool DelFromVlans(const std::vector<limid_t>& intfs, unsigned first, unsigned last);

// lag<number> on trunk <number>, created through the LAG orchestrator, and its members joined.
limid_t CreateLag(unsigned number, const std::vector<limid_t>& members);
// Raises the LAG's deletion: both services forget it and reset its members.
bool DeleteLag(limid_t lag);
// True when there were clients and each of them handled the event.
bool AllHandled(const std::vector<sim::LagOrchestratorSim::Answer>& answers);

// A rule that matches outer VLAN `match` (and inner VLAN `inner` unless 0) and replaces the outer
// VLAN with `to`: valid at both stages.
vlanxlate::VlanMapping ReplaceRule(uint16_t match, uint16_t inner, uint16_t to);

// Fails the benchmark when the library logged anything (a scenario must not fail) or when the
// books still hold memberships, rules or LAG settings that a later scenario would inherit.
void CheckClean(benchmark::State& state);

// Records the SDK calls and the time of the timed operations as the counters the summary reads:
// "calls/op" and, when there were calls, "ns/call".
void ReportCalls(benchmark::State& state, int64_t ops, uint64_t calls, double seconds);

// ---- Counting mode ---------------------------------------------------------------------------
// Instead of timing, every scenario runs a fixed number of operations under callgrind
// (./run-benchmarks.sh --instructions): collection is on only while an operation under test runs,
// and each run of a scenario ends with a dump of its own, named after the run as "<family>/<chip>/
// <sizeName>:<size>". Where the program carries the counting allocator, the operations'
// allocations are counted too.
void EnterCountingMode();
extern bool countingMode;
// Before the first operation under test of a run, around each, and after the last of `ops`.
void RunBegins();
void OpBegins();
void OpEnds();
void RunEnds(benchmark::State& state, int64_t ops);

// Blocks allocated with operator new so far, or -1 in a program without the counting allocator.
int64_t AllocationsSoFar();

// The benchmark loop for an operation that changes state: every iteration is one op(k), timed, for
// k = 0 to batch - 1; then undo(k) for each op of the batch, untimed, brings the state back, and
// the next batch begins. Timing a batch rather than each operation keeps the cost of reading the
// clock out of the figures. The benchmark must use manual time.
template <typename Op, typename Undo>
void TimeInBatches(benchmark::State& state, int batch, Op op, Undo undo) {
  using Clock = std::chrono::steady_clock;
  const benchmark::IterationCount total = state.max_iterations;
  benchmark::IterationCount done = 0;
  int inBatch = 0;
  uint64_t calls = 0;
  uint64_t callsBefore = 0;
  double seconds = 0;
  Clock::time_point start;
  bool ok = true;
  if (countingMode)
    RunBegins();
  for (auto _ : state) {
    if (inBatch == 0) {
      callsBefore = sim::chip().CallCount();
      start = Clock::now();
    }
    if (countingMode)
      OpBegins();
    ok = op(inBatch) && ok;
    if (countingMode)
      OpEnds();
    ++inBatch;
    ++done;
    if (inBatch < batch && done < total) {
      state.SetIterationTime(0);
      continue;
    }
    const Clock::time_point end = Clock::now();
    calls += sim::chip().CallCount() - callsBefore;
    const double batchSeconds = std::chrono::duration<double>(end - start).count();
    state.SetIterationTime(batchSeconds);
    seconds += batchSeconds;
    for (int k = 0; k < inBatch; ++k)
      ok = undo(k) && ok;
    inBatch = 0;
  }
  if (!ok)
    state.SkipWithError("an operation under test failed");
  ReportCalls(state, done, calls, seconds);
  if (countingMode)
    RunEnds(state, done);
}

// How the cost of one operation should grow with the size of its scenario: independent of it
// (up to the logarithm of an ordered map), or in proportion to it.
enum class Growth { Constant, Linear };

// A limit of the issue on one figure of the null chip: the operation at this size in under so many
// seconds of library time.
struct TimeTarget {
  int64_t size = 0;
  double seconds = 0;
};

// One scenario at several sizes, registered for each chip as "<name>/<chip>/<sizeName>:<size>".
struct Family {
  std::string name;
  std::string sizeName;
  std::vector<int64_t> sizes;
  Growth growth = Growth::Constant;
  benchmark::TimeUnit unit = benchmark::kNanosecond;
  std::vector<Chip> chips{Chip::Model, Chip::Null};
  // 0: the framework chooses the number of iterations.
  int64_t iterations = 0;
  TimeTarget target;
  // The operations of one run in counting mode: a multiple of the batch, enough that the first
  // operations' extra work (a map's first node, the allocator's first chunk) weighs little.
  int64_t countedOps = 64;
  // Whether the limit on the library's time per SDK call applies. It does not to an operation
  // whose single call answers with a list: its cost is per listed entry.
  bool perCallLimit = true;
};

using Scenario = std::function<void(benchmark::State&, Chip)>;
void Register(const Family& family, const Scenario& scenario);

// What Register learnt of each family, for the summary.
const Family* FindFamily(const std::string& name);

}  // namespace bench

#endif  // HALBD_BENCH_SUPPORT_BENCH_PLATFORM_H
