// Configuring a whole switch: the 48 front-panel ports made members of N VLANs, then removed, as a
// VLAN manager does at start-up and on a configuration reload.
#include "bench_platform.h"

namespace {

using bench::Chip;

enum class Timed { Configure, Remove };

// One operation is the whole switch; its cost per membership is the time divided by 48 x N.
void FullSwitch(benchmark::State& state, Chip chip, Timed timed) {
  const auto vlans = static_cast<unsigned>(state.range(0));
  bench::ResetPlatform(chip, vlans);
  const std::vector<limid_t> ports = bench::Ports(1, bench::kSwitchPorts);
  // The first VLAN carries the ports' untagged traffic, the others are trunked.
  const auto configure = [&](int) {
    return bench::AddToVlans(ports, 1, 1, false) && bench::AddToVlans(ports, 2, vlans, true);
  };
  const auto remove = [&](int) { return bench::DelFromVlans(ports, 1, vlans); };
  if (timed == Timed::Configure) {
    bench::TimeInBatches(state, 1, configure, remove);
  } else {
    if (!configure(0))
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, 1, remove, configure);
    remove(0);
  }
  state.counters["memberships"] = static_cast<double>(bench::kSwitchPorts * vlans);
  bench::CheckClean(state);
}

void RegisterFullSwitch(const std::string& name, Timed timed) {
  bench::Family family;
  family.name = name;
  family.sizeName = "vlans";
  family.sizes = {16, 256, bench::kAllVlans};
  family.growth = bench::Growth::Linear;
  family.unit = benchmark::kMillisecond;
  // One operation is a whole switch: two are plenty for a figure per operation.
  family.countedOps = 2;
  // The limit: the full switch configured in under half a second of library time.
  if (timed == Timed::Configure)
    family.target = {bench::kAllVlans, 0.5};
  bench::Register(family,
                  [timed](benchmark::State& state, Chip chip) { FullSwitch(state, chip, timed); });
}

const bool registered = [] {
  RegisterFullSwitch("fullSwitch/configure", Timed::Configure);
  RegisterFullSwitch("fullSwitch/remove", Timed::Remove);
  return true;
}();

}  // namespace
