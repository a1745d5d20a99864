// The VLAN orchestrator telling 1, 8 and 64 clients of a membership change: the notification walk
// alone, and addMember (of eth1/1 to VLANs 10 to 17, in turn) with the clients registered.
#include <memory>
#include <string>

#include "bench_platform.h"
#include "vlan_orchestrator_impl.h"

namespace {

using bench::Chip;

constexpr int kBatch = 8;
constexpr unsigned kVlan = 10;

enum class Walk { Added, Removed, AddMember };

std::string ClientName(int k) {
  return "client" + std::to_string(k);
}

// Clients that accept every change, at priorities 0 to N-1.
void RegisterClients(halswitchbd::VlanOrchestrator& orchestrator, int clients) {
  for (int k = 0; k < clients; ++k) {
    orchestrator.RegisterClient(static_cast<unsigned>(k), ClientName(k),
                                {[](const unsigned short& vlan, const limid_t& intf, bool tagged) {
                                   benchmark::DoNotOptimize(vlan);
                                   benchmark::DoNotOptimize(intf);
                                   benchmark::DoNotOptimize(tagged);
                                   return true;
                                 },
                                 [](const unsigned short& vlan, const limid_t& intf) {
                                   benchmark::DoNotOptimize(vlan);
                                   benchmark::DoNotOptimize(intf);
                                   return true;
                                 }});
  }
}

void DeregisterClients(halswitchbd::VlanOrchestrator& orchestrator, int clients) {
  for (int k = 0; k < clients; ++k)
    orchestrator.DeregisterClient(static_cast<unsigned>(k), ClientName(k));
}

void Notify(benchmark::State& state, Chip chip, Walk walk) {
  const auto clients = static_cast<int>(state.range(0));
  bench::ResetPlatform(chip, kVlan + kBatch);
  HalBcmBridgeDomain& domain = *bench::TheServices().domain;
  const std::shared_ptr<halswitchbd::VlanOrchestrator> orchestrator = domain.GetVlanOrchestrator();
  // Only the bridge-domain service notifies; its orchestrator is the implementation.
  auto& impl = static_cast<halswitchbd::VlanOrchestratorImpl&>(*orchestrator);
  RegisterClients(impl, clients);
  const limid_t port = bench::Eth(1);
  const auto none = [](int) { return true; };
  switch (walk) {
    case Walk::Added:
      bench::TimeInBatches(
          state, kBatch,
          [&](int) {
            impl.NotifyMemberAddedToVlan(kVlan, port, true);
            return true;
          },
          none);
      break;
    case Walk::Removed:
      bench::TimeInBatches(
          state, kBatch,
          [&](int) {
            impl.NotifyMemberRemovedFromVlan(kVlan, port);
            return true;
          },
          none);
      break;
    case Walk::AddMember:
      bench::TimeInBatches(
          state, kBatch,
          [&](int k) { return domain.addMember(bench::Domain(kVlan + k), port, true, 0) == 0; },
          [&](int k) { return domain.delMember(bench::Domain(kVlan + k), port) == 0; });
      break;
  }
  DeregisterClients(impl, clients);
  bench::CheckClean(state);
}

void RegisterNotify(const std::string& name, Walk walk, std::vector<Chip> chips) {
  bench::Family family;
  family.name = name;
  family.sizeName = "clients";
  family.sizes = {1, 8, 64};
  family.growth = bench::Growth::Linear;
  family.chips = std::move(chips);
  bench::Register(family,
                  [walk](benchmark::State& state, Chip chip) { Notify(state, chip, walk); });
}

const bool registered = [] {
  // The walks make no SDK call: the chip does not matter.
  RegisterNotify("vlanNotify/added", Walk::Added, {Chip::Null});
  RegisterNotify("vlanNotify/removed", Walk::Removed, {Chip::Null});
  RegisterNotify("vlanNotify/addMember", Walk::AddMember, {Chip::Model, Chip::Null});
  return true;
}();

}  // namespace
