// VLAN membership of one interface on a loaded switch: addMember and delMember of a port, tagged
// and untagged, and of a LAG of 8 members, while the other 47 ports are members of N VLANs; and
// getMembers of a VLAN of many members.
#include <set>
#include <utility>
#include <vector>

#include "bench_platform.h"
#include "canned_members.h"

namespace {

using bench::Chip;

// Operations timed together between two readings of the clock.
constexpr int kBatch = 8;
// The LAG's members are ports beyond the front panel.
constexpr unsigned kFirstLagPort = 49;
constexpr unsigned kLagMembers = 8;

enum class Subject { TaggedPort, UntaggedPort, Lag };
enum class Timed { Add, Delete };

// The switch: eth1/2 to eth1/48 in VLANs 1 to N; the subject (eth1/1, or lag1 of 8 members) in
// VLANs 1 to N-8. The operations move the subject in and out of the last 8 VLANs.
void Membership(benchmark::State& state, Chip chip, Subject subject, Timed timed) {
  const auto vlans = static_cast<unsigned>(state.range(0));
  bench::ResetPlatform(chip, vlans);
  HalBcmBridgeDomain* domain = bench::TheServices().domain;
  const std::vector<limid_t> others = bench::Ports(2, bench::kSwitchPorts);
  const limid_t intf =
      subject == Subject::Lag
          ? bench::CreateLag(1, bench::Ports(kFirstLagPort, kFirstLagPort + kLagMembers - 1))
          : bench::Eth(1);
  const bool tagged = subject != Subject::UntaggedPort;
  const unsigned firstMoved = vlans - kBatch + 1;

  bool ready = bench::AddToVlans(others, 1, vlans, true) &&
               bench::AddToVlans({intf}, 1, firstMoved - 1, tagged);
  const auto add = [&](int k) {
    return domain->addMember(bench::Domain(firstMoved + k), intf, tagged, 0) == 0;
  };
  const auto del = [&](int k) {
    return domain->delMember(bench::Domain(firstMoved + k), intf) == 0;
  };
  if (timed == Timed::Add) {
    if (!ready)
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, kBatch, add, del);
  } else {
    ready = bench::AddToVlans({intf}, firstMoved, vlans, tagged) && ready;
    if (!ready)
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, kBatch, del, add);
  }

  const unsigned lastHeld = timed == Timed::Add ? firstMoved - 1 : vlans;
  bench::DelFromVlans({intf}, 1, lastHeld);
  bench::DelFromVlans(others, 1, vlans);
  if (subject == Subject::Lag)
    bench::DeleteLag(intf);
  bench::CheckClean(state);
}

// getMembers of VLAN 10. On the modelling chip its members are chip ports 0 to N-1; the null chip
// answers with a canned list of N gports beyond the chip's ports, each known to the reverse table.
void GetMembers(benchmark::State& state, Chip chip) {
  const auto members = static_cast<unsigned>(state.range(0));
  constexpr unsigned kVlan = 10;
  constexpr unsigned kCannedSlot = 2;
  constexpr int kFirstCannedPort = 64;
  bench::ResetPlatform(chip, kVlan);
  HalBcmBridgeDomain* domain = bench::TheServices().domain;
  bool ready = true;
  if (chip == Chip::Model) {
    ready = bench::AddToVlans(bench::Ports(0, members - 1), kVlan, kVlan, true);
  } else {
    std::vector<bcm_gport_t> canned;
    for (unsigned k = 0; k < members; ++k) {
      const int gport = sim::LocalGport(kFirstCannedPort + static_cast<int>(k));
      sim::common().AddGportOnly(sim::EthernetPort(kCannedSlot, k), gport);
      canned.push_back(gport);
    }
    bench::SetCannedMembers(std::move(canned));
  }
  if (!ready)
    state.SkipWithError("set-up failed");

  std::set<limid_t> found;
  const auto list = [&](int) {
    return domain->getMembers(bench::Domain(kVlan), found) == 0 && found.size() == members;
  };
  bench::TimeInBatches(state, kBatch, list, [](int) { return true; });

  bench::SetCannedMembers({});
  if (chip == Chip::Model)
    bench::DelFromVlans(bench::Ports(0, members - 1), kVlan, kVlan);
  bench::CheckClean(state);
}

void RegisterMembership(const std::string& name, Subject subject, Timed timed) {
  bench::Family family;
  family.name = name;
  family.sizeName = "vlans";
  family.sizes = {16, 256, bench::kAllVlans};
  family.growth = bench::Growth::Constant;
  // The set-up of the largest switch is costly: a fixed count spares the framework's trial runs.
  family.iterations = 50000;
  bench::Register(family, [subject, timed](benchmark::State& state, Chip chip) {
    Membership(state, chip, subject, timed);
  });
}

const bool registered = [] {
  RegisterMembership("addMember/port-tagged", Subject::TaggedPort, Timed::Add);
  RegisterMembership("addMember/port-untagged", Subject::UntaggedPort, Timed::Add);
  RegisterMembership("addMember/lag8-tagged", Subject::Lag, Timed::Add);
  RegisterMembership("delMember/port-tagged", Subject::TaggedPort, Timed::Delete);
  RegisterMembership("delMember/port-untagged", Subject::UntaggedPort, Timed::Delete);
  RegisterMembership("delMember/lag8-tagged", Subject::Lag, Timed::Delete);

  bench::Family members;
  members.name = "getMembers";
  members.sizeName = "members";
  members.growth = bench::Growth::Linear;
  members.unit = benchmark::kMicrosecond;
  members.perCallLimit = false;
  members.sizes = {16, 64};  // the modelling chip has 64 ports
  members.chips = {Chip::Model};
  bench::Register(members, GetMembers);
  members.sizes = {16, 64, 256, 1024};
  members.chips = {Chip::Null};
  bench::Register(members, GetMembers);
  return true;
}();

}  // namespace
