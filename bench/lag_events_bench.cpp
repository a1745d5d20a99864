// A port joining and leaving a LAG that is a member of N VLANs, through the LAG orchestrator: the
// bridge-domain service moves the port into (out of) the LAG's N VLANs, the bridge-port service
// copies the LAG's attributes onto it (resets them).
#include "bench_platform.h"

namespace {

using bench::Chip;

constexpr int kBatch = 8;
// lag1 holds eth1/49; eth1/50 to eth1/57 join and leave it.
constexpr unsigned kFirstMember = 49;
constexpr unsigned kFirstJoining = 50;

enum class Timed { Join, Leave };

void LagMembership(benchmark::State& state, Chip chip, Timed timed) {
  const auto vlans = static_cast<unsigned>(state.range(0));
  bench::ResetPlatform(chip, vlans);
  sim::LagOrchestratorSim& lags = *bench::TheServices().lags;
  const limid_t lag = bench::CreateLag(1, {bench::Eth(kFirstMember)});
  bool ready = bench::AddToVlans({lag}, 1, vlans, true);
  const auto joining = [](int k) { return bench::Eth(kFirstJoining + static_cast<unsigned>(k)); };
  const auto join = [&](int k) { return bench::AllHandled(lags.AddMember(lag, joining(k))); };
  const auto leave = [&](int k) { return bench::AllHandled(lags.DeleteMember(lag, joining(k))); };
  if (timed == Timed::Join) {
    if (!ready)
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, kBatch, join, leave);
  } else {
    for (int k = 0; k < kBatch; ++k)
      ready = join(k) && ready;
    if (!ready)
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, kBatch, leave, join);
    for (int k = 0; k < kBatch; ++k)
      leave(k);
  }
  bench::DelFromVlans({lag}, 1, vlans);
  bench::DeleteLag(lag);
  bench::CheckClean(state);
}

void RegisterLagMembership(const std::string& name, Timed timed) {
  bench::Family family;
  family.name = name;
  family.sizeName = "vlans";
  family.sizes = {16, 256, bench::kAllVlans};
  family.growth = bench::Growth::Linear;
  family.unit = benchmark::kMicrosecond;
  // The limit: a port joins a LAG of 4094 VLANs in under 2 ms of library time.
  if (timed == Timed::Join)
    family.target = {bench::kAllVlans, 2e-3};
  bench::Register(
      family, [timed](benchmark::State& state, Chip chip) { LagMembership(state, chip, timed); });
}

const bool registered = [] {
  RegisterLagMembership("lagEvents/join", Timed::Join);
  RegisterLagMembership("lagEvents/leave", Timed::Leave);
  return true;
}();

}  // namespace
