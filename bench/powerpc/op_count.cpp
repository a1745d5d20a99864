// Instruction counts on the switch's processor: two operations of the counting mode, run by the
// PowerPC build under qemu-ppc with the counting plugin of qemu_insn_count.c, which counts the
// instructions executed between a begin and an end mark (./run-benchmarks.sh --powerpc).
//
// The same scenarios as bench/ (null chip, 64 operations in batches of 8, the operations that undo
// a batch left out): an ingress rule added on a port that holds 4094 rules, and a port added to a
// VLAN on a switch of 48 ports in 4094 VLANs. What lies between the marks is the library's call
// with its SDK calls answered by the null chip; an empty window, measured first, is subtracted.
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "hal_bcm_bridge_domain.h"
#include "hal_bcm_bridge_port.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace {

// The marks are write() calls on no file with these lengths: the plugin watches for them, the
// kernel refuses them.
constexpr long kBegin = 0x4841;
constexpr long kEnd = 0x4842;
constexpr long kReport = 0x4843;

void Mark(long what) {
  syscall(SYS_write, -1, nullptr, what);
}

constexpr int kOps = 64;
constexpr int kBatch = 8;
constexpr unsigned kSize = 4094;
constexpr unsigned kSlot = 1;
constexpr uint16_t kNewVlan = 100;
constexpr uint16_t kMovedInner = 4000;

struct Services {
  HalBcmBridgeDomain* domain;
  HalBcmBridgePort* port;
};

Services TheServices() {
  static const auto lags = std::make_shared<sim::LagOrchestratorSim>();
  return {HalBcmBridgeDomain::getInstance(lags), HalBcmBridgePort::GetInstance(lags)};
}

void NullChip() {
  TheServices();
  sim::Reset();
  sim::chip().SetTracing(false);
  for (int port = 0; port < sim::Chip::kNumPorts; ++port)
    sim::common().AddPort(sim::EthernetPort(kSlot, static_cast<unsigned>(port)),
                          sim::LocalGport(port));
  sim::chip().SetNullChip(true);
}

vlanxlate::VlanMapping ReplaceRule(uint16_t match, uint16_t inner) {
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = {match, 0x8100, 15};
  if (inner != 0) {
    rule.match.hasInnerVlan = true;
    rule.match.innerVlanTag = {inner, 0x8100, 15};
  }
  rule.operation = vlanxlate::Operation::Replace;
  rule.action.outerVlanTag = {kNewVlan, 0, 15};
  return rule;
}

// Runs kOps operations in batches, each between the marks, then undoes the batch unmarked.
template <typename Op, typename Undo>
void Count(const char* name, Op op, Undo undo) {
  bool ok = true;
  for (int done = 0; done < kOps; done += kBatch) {
    for (int k = 0; k < kBatch; ++k) {
      Mark(kBegin);
      ok = op(k) && ok;
      Mark(kEnd);
    }
    for (int k = 0; k < kBatch; ++k)
      ok = undo(k) && ok;
  }
  std::fprintf(stderr, "%s%s: ", name, ok ? "" : " (an operation FAILED)");
  Mark(kReport);
}

void RuleAddIngress() {
  NullChip();
  HalBcmBridgePort* service = TheServices().port;
  const limid_t port = sim::EthernetPort(kSlot, 1);
  for (unsigned vlan = 1; vlan <= kSize; ++vlan)
    service->AddVlanMappingRule(port, vlanxlate::Stage::Ingress,
                                ReplaceRule(static_cast<uint16_t>(vlan), 0));
  std::vector<vlanxlate::VlanMapping> moved;
  for (int k = 0; k < kBatch; ++k)
    moved.push_back(ReplaceRule(static_cast<uint16_t>(k + 1), kMovedInner));
  Count(
      "rule/add-ingress/rules:4094",
      [&](int k) {
        return service->AddVlanMappingRule(port, vlanxlate::Stage::Ingress, moved[k]) == 0;
      },
      [&](int k) {
        return service->DeleteVlanMappingRule(port, vlanxlate::Stage::Ingress, moved[k]) == 0;
      });
}

void AddMemberPort() {
  NullChip();
  HalBcmBridgeDomain* domain = TheServices().domain;
  const limid_t subject = sim::EthernetPort(kSlot, 1);
  std::vector<limid_t> domains;
  for (unsigned vlan = 0; vlan <= kSize; ++vlan)
    domains.push_back(sim::BridgeDomain(vlan));
  for (unsigned vlan = 1; vlan <= kSize; ++vlan) {
    for (unsigned port = 2; port <= 48; ++port)
      domain->addMember(domains[vlan], sim::EthernetPort(kSlot, port), true, 0);
    if (vlan <= kSize - kBatch)
      domain->addMember(domains[vlan], subject, true, 0);
  }
  const unsigned first = kSize - kBatch + 1;
  Count(
      "addMember/port-tagged/vlans:4094",
      [&](int k) { return domain->addMember(domains[first + k], subject, true, 0) == 0; },
      [&](int k) { return domain->delMember(domains[first + k], subject) == 0; });
}

}  // namespace

int main() {
  // The marks' own cost: a window with nothing in it.
  Count(
      "empty", [](int) { return true; }, [](int) { return true; });
  RuleAddIngress();
  AddMemberPort();
  return 0;
}
