// The bridge-port setters on a LAG of N members: each one is written to every member port, and
// kept for the LAG so that later members take it on.
#include "bench_platform.h"

namespace {

using bench::Chip;

constexpr int kBatch = 8;

// One setter on lag1; k picks one of two values, so that consecutive calls change the setting.
using Setter = bool (*)(HalBcmBridgePort& service, const limid_t& lag, int k);

bool NativeVlan(HalBcmBridgePort& service, const limid_t& lag, int k) {
  return service.SetNativeVlan(lag, k % 2 == 0 ? 10 : 20) == 0;
}

bool Prio4Untagged(HalBcmBridgePort& service, const limid_t& lag, int k) {
  return service.SetPrio4Untagged(lag, static_cast<unsigned char>(k % 2 == 0 ? 5 : 3)) == 0;
}

bool Tpid(HalBcmBridgePort& service, const limid_t& lag, int k) {
  return service.SetTpid(lag, k % 2 == 0 ? 0x88a8 : 0x9100) == 0;
}

bool QinQ(HalBcmBridgePort& service, const limid_t& lag, int k) {
  return service.SetVlanQinQ(lag, k % 2 == 0 ? HAL_BP_QINQ_ENABLE : HAL_BP_QINQ_DISABLE) == 0;
}

bool AcceptableFrameType(HalBcmBridgePort& service, const limid_t& lag, int k) {
  return service.SetAcceptableFrameType(
             lag, k % 2 == 0 ? HAL_BP_ADMIT_ONLY_TAGGED : HAL_BP_ADMIT_ALL_FRAMES) == 0;
}

// The LAG's members are chip ports 0 to N-1. The batch has an even length, so every batch ends on
// the second value; deleting the LAG forgets the settings and resets the members.
void LagSetter(benchmark::State& state, Chip chip, Setter setter) {
  const auto members = static_cast<unsigned>(state.range(0));
  bench::ResetPlatform(chip, 0);
  HalBcmBridgePort& service = *bench::TheServices().port;
  const limid_t lag = bench::CreateLag(1, bench::Ports(0, members - 1));
  const auto set = [&](int k) { return setter(service, lag, k); };
  bench::TimeInBatches(state, kBatch, set, [](int) { return true; });
  bench::DeleteLag(lag);
  bench::CheckClean(state);
}

void RegisterSetter(const std::string& name, Setter setter) {
  bench::Family family;
  family.name = "lagSetter/" + name;
  family.sizeName = "members";
  family.sizes = {1, 8, sim::Chip::kNumPorts};
  family.growth = bench::Growth::Linear;
  bench::Register(family,
                  [setter](benchmark::State& state, Chip chip) { LagSetter(state, chip, setter); });
}

const bool registered = [] {
  RegisterSetter("nativeVlan", NativeVlan);
  RegisterSetter("prio4Untagged", Prio4Untagged);
  RegisterSetter("tpid", Tpid);
  RegisterSetter("qinq", QinQ);
  RegisterSetter("acceptableFrameType", AcceptableFrameType);
  return true;
}();

}  // namespace
