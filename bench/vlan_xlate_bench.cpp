// VLAN translation rules on a port that already holds N of them: adding and deleting one rule at
// either stage, and switching the port's Q-in-Q mode, which re-programs every stored ingress rule.
#include "bench_platform.h"

namespace {

using bench::Chip;
using vlanxlate::Stage;

constexpr int kBatch = 8;
constexpr uint16_t kNewVlan = 100;
// The rules moved by the timed operations match a double tag, so their entries never meet the
// stored single-tag ones.
constexpr uint16_t kMovedInner = 4000;

enum class Timed { Add, Delete };

// The stored rules match outer VLANs 1 to N.
bool StoreRules(const limid_t& port, Stage stage, unsigned rules) {
  HalBcmBridgePort* service = bench::TheServices().port;
  bool ok = true;
  for (unsigned vlan = 1; vlan <= rules; ++vlan) {
    ok = service->AddVlanMappingRule(port, stage, bench::ReplaceRule(vlan, 0, kNewVlan)) == 0 && ok;
  }
  return ok;
}

bool DeleteRules(const limid_t& port, Stage stage, unsigned rules) {
  HalBcmBridgePort* service = bench::TheServices().port;
  bool ok = true;
  for (unsigned vlan = 1; vlan <= rules; ++vlan) {
    ok = service->DeleteVlanMappingRule(port, stage, bench::ReplaceRule(vlan, 0, kNewVlan)) == 0 &&
         ok;
  }
  return ok;
}

void Rule(benchmark::State& state, Chip chip, Stage stage, Timed timed) {
  const auto rules = static_cast<unsigned>(state.range(0));
  bench::ResetPlatform(chip, 0);
  HalBcmBridgePort* service = bench::TheServices().port;
  const limid_t port = bench::Eth(1);
  const auto moved = [](int k) {
    return bench::ReplaceRule(static_cast<uint16_t>(k + 1), kMovedInner, kNewVlan);
  };
  const auto add = [&](int k) { return service->AddVlanMappingRule(port, stage, moved(k)) == 0; };
  const auto del = [&](int k) {
    return service->DeleteVlanMappingRule(port, stage, moved(k)) == 0;
  };
  bool ready = StoreRules(port, stage, rules);
  if (timed == Timed::Add) {
    if (!ready)
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, kBatch, add, del);
  } else {
    for (int k = 0; k < kBatch; ++k)
      ready = add(k) && ready;
    if (!ready)
      state.SkipWithError("set-up failed");
    bench::TimeInBatches(state, kBatch, del, add);
    for (int k = 0; k < kBatch; ++k)
      del(k);
  }
  DeleteRules(port, stage, rules);
  bench::CheckClean(state);
}

// Each operation switches Q-in-Q on or off, in turn.
void QinqSwitch(benchmark::State& state, Chip chip) {
  const auto rules = static_cast<unsigned>(state.range(0));
  bench::ResetPlatform(chip, 0);
  HalBcmBridgePort* service = bench::TheServices().port;
  const limid_t port = bench::Eth(1);
  if (!StoreRules(port, Stage::Ingress, rules))
    state.SkipWithError("set-up failed");
  bool qinq = false;
  const auto toggle = [&](int) {
    qinq = !qinq;
    return service->SetVlanQinQ(port, qinq ? HAL_BP_QINQ_ENABLE : HAL_BP_QINQ_DISABLE) == 0;
  };
  bench::TimeInBatches(state, 2, toggle, [](int) { return true; });
  if (qinq)
    service->SetVlanQinQ(port, HAL_BP_QINQ_DISABLE);
  DeleteRules(port, Stage::Ingress, rules);
  bench::CheckClean(state);
}

bench::Family RuleFamily(const std::string& name, bench::Growth growth) {
  bench::Family family;
  family.name = name;
  family.sizeName = "rules";
  family.sizes = {16, 256, bench::kAllVlans};
  family.growth = growth;
  return family;
}

void RegisterRule(const std::string& name, Stage stage, Timed timed) {
  bench::Register(
      RuleFamily(name, bench::Growth::Constant),
      [stage, timed](benchmark::State& state, Chip chip) { Rule(state, chip, stage, timed); });
}

const bool registered = [] {
  RegisterRule("rule/add-ingress", Stage::Ingress, Timed::Add);
  RegisterRule("rule/delete-ingress", Stage::Ingress, Timed::Delete);
  RegisterRule("rule/add-egress", Stage::Egress, Timed::Add);
  RegisterRule("rule/delete-egress", Stage::Egress, Timed::Delete);
  bench::Family qinq = RuleFamily("rule/qinq-switch", bench::Growth::Linear);
  qinq.unit = benchmark::kMicrosecond;
  bench::Register(qinq, QinqSwitch);
  return true;
}();

}  // namespace
