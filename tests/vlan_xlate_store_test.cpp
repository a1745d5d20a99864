// The per-interface rule store kept in step with the chip, and the re-programming of the stored
// ingress rules when the Q-in-Q state changes.
#include "service_fixtures.h"

namespace {

using vlanxlate::Stage;
using vlanxlate::VlanMapping;

// Equal as the store sees it: neither orders before the other.
MATCHER_P(SameRule, expected, "") {
  return !(arg < expected) && !(expected < arg);
}

class RuleStore : public BridgePortTest {
 protected:
  std::map<limid_t, std::set<VlanMapping>>& Store(Stage stage) {
    return stage == Stage::Ingress ? Books().ingressVlanMappings() : Books().egressVlanMappings();
  }
  std::set<VlanMapping>& Stored(Stage stage) { return Store(stage)[Eth(3)]; }
  int Add(Stage stage, const VlanMapping& r) {
    return service->AddVlanMappingRule(Eth(3), stage, r);
  }
  int Delete(Stage stage, const VlanMapping& r) {
    return service->DeleteVlanMappingRule(Eth(3), stage, r);
  }

  const VlanMapping rule = ReplaceOuter(100, 200);
};

const struct StageCase {
  Stage stage;
  const char *table, *addCall, *deleteCall;
  const char *addRefused, *deleteRefused;  // the chip-facing step's line after BCM_E_FAIL
  const char* ruleSuffix;                  // what the level-6 line adds after the rule
} kStages[] = {
    {Stage::Ingress, "ingress", "bcm_vlan_translate_action_add", "bcm_vlan_translate_action_delete",
     "error(-11): InstallIngressVlanMappingRule() failed to add ingress VLAN translate rule for "
     "eth1/3: Operation failed",
     "error(-11): RemoveIngressVlanMappingRule() failed to remove ingress VLAN translate for "
     "eth1/3: Operation failed",
     "\nQinQ: disable"},
    {Stage::Egress, "egress", "bcm_vlan_translate_egress_action_add",
     "bcm_vlan_translate_egress_action_delete",
     "error(-11): InstallEgressVlanMappingRule() failed to add egress VLAN translate rule for "
     "eth1/3: Operation failed",
     "error(-11): RemoveEgressVlanMappingRule() failed to remove egress VLAN translate for "
     "eth1/3: Operation failed",
     ""},
};

// A rule that is not stored, for want of an entry or in it, is not on the chip either: its
// deletion is skipped without a chip call.
TEST_F(RuleStore, RulesAreStoredAndDroppedOnlyAfterTheChipDidSo) {
  for (const StageCase& c : kStages) {
    SCOPED_TRACE(c.table);
    const std::string refused = "log(6): VLAN translate rule:\n" + Text(rule) + c.ruleSuffix;
    const std::string skipped = "log(6): Skipping deletion of already inexistent " +
                                std::string(c.table) + " VLAN translate rule:\n" + Text(rule);
    EXPECT_EQ(Delete(c.stage, rule), 0);  // nothing stored yet
    EXPECT_THAT(Trace(), IsEmpty());
    sim::chip().FailNext(c.addCall, 1, BCM_E_FAIL);
    EXPECT_EQ(Add(c.stage, rule), -1);
    EXPECT_THAT(TakeLog(), ElementsAre(skipped, c.addRefused, refused));
    EXPECT_EQ(Store(c.stage).count(Eth(3)), 0u);

    EXPECT_EQ(Add(c.stage, rule), 0);
    EXPECT_THAT(Stored(c.stage), ElementsAre(SameRule(rule)));
    sim::chip().FailNext(c.deleteCall, 1, BCM_E_FAIL);
    EXPECT_EQ(Delete(c.stage, rule), -1);
    EXPECT_THAT(TakeLog(), ElementsAre(c.deleteRefused, refused));
    EXPECT_THAT(Stored(c.stage), ElementsAre(SameRule(rule)));

    EXPECT_EQ(Delete(c.stage, rule), 0);
    EXPECT_THAT(Stored(c.stage), IsEmpty());  // the interface keeps its entry, empty
    ClearTrace();
    EXPECT_EQ(Delete(c.stage, rule), 0);  // stored no more
    EXPECT_THAT(Trace(), IsEmpty());
    EXPECT_THAT(TakeLog(), ElementsAre(skipped));
  }
  // A stage without a table of this service is neither programmed nor stored.
  EXPECT_EQ(Add(static_cast<Stage>(7), rule), 0);
  EXPECT_EQ(Delete(static_cast<Stage>(7), rule), 0);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(sim::chip().IngressTable(), IsEmpty());
  EXPECT_THAT(sim::chip().EgressTable(), IsEmpty());
}

// The chip is asked again for a stored rule: the ingress table refuses the duplicate, the egress
// install replaces its entry. Either way one copy stays stored.
TEST_F(RuleStore, AddingARuleTwiceKeepsOneCopy) {
  for (const StageCase& c : kStages)
    ASSERT_EQ(Add(c.stage, rule), 0);
  EXPECT_EQ(Add(Stage::Ingress, rule), -1);
  EXPECT_EQ(Add(Stage::Egress, rule), 0);

  EXPECT_EQ(LogLines(), (Lines{"error(-8): InstallIngressVlanMappingRule() failed to add ingress "
                               "VLAN translate rule for eth1/3: Entry exists",
                               "log(6): VLAN translate rule:\n" + Text(rule) + "\nQinQ: disable"}));
  EXPECT_THAT(Stored(Stage::Ingress), ElementsAre(SameRule(rule)));
  EXPECT_THAT(Stored(Stage::Egress), ElementsAre(SameRule(rule)));
}

// Each stored ingress rule is removed under the old key layout before it is installed under the
// new one; egress entries do not depend on Q-in-Q.
TEST_F(RuleStore, QinqChangeMovesEachStoredIngressRuleToTheNewLayoutInSetOrder) {
  const VlanMapping second = ReplaceOuter(101, 201);
  ASSERT_EQ(Add(Stage::Ingress, second), 0);
  ASSERT_EQ(Add(Stage::Ingress, rule), 0);
  ASSERT_EQ(Add(Stage::Egress, rule), 0);
  ClearRecords();

  ASSERT_EQ(service->SetVlanQinQ(Eth(3), HAL_BP_QINQ_ENABLE), 0);
  EXPECT_THAT(Trace(),
              ElementsAre("bcm_port_dtag_mode_set(0, 0x4000003, 2) = 0",
                          "bcm_vlan_control_port_set(0, 3, 14, 8) = 0",
                          "bcm_vlan_control_port_set(0, 3, 15, 9) = 0",
                          "bcm_vlan_translate_action_delete(0, 0x4000003, 8, 100, 0) = 0",
                          "bcm_vlan_translate_action_add(0, 0x4000003, 9, 0, 100, "
                          "{new_outer_vlan=200, priority=-1, it_outer=1, it_outer_pkt_prio=4, "
                          "it_inner=3, flags=0x4}) = 0",
                          "bcm_vlan_translate_action_delete(0, 0x4000003, 8, 101, 0) = 0",
                          "bcm_vlan_translate_action_add(0, 0x4000003, 9, 0, 101, "
                          "{new_outer_vlan=201, priority=-1, it_outer=1, it_outer_pkt_prio=4, "
                          "it_inner=3, flags=0x4}) = 0"));
  EXPECT_EQ(sim::chip().EgressTable().size(), 1u);

  // A refusal on a Q-in-Q port says so.
  sim::chip().FailNext("bcm_vlan_translate_action_delete", 1, BCM_E_FAIL);
  EXPECT_EQ(Delete(Stage::Ingress, second), -1);
  EXPECT_EQ(LogLines().back(), "log(6): VLAN translate rule:\n" + Text(second) + "\nQinQ: enable");

  // Back, then to the same state again: the rules are sought under the other layout, refused
  // where they are, and stay.
  ASSERT_EQ(service->SetVlanQinQ(Eth(3), HAL_BP_QINQ_DISABLE), 0);
  ClearRecords();
  ASSERT_EQ(service->SetVlanQinQ(Eth(3), HAL_BP_QINQ_DISABLE), 0);
  EXPECT_EQ(sim::chip().IngressTable().count({false, 3, 8, 100, 0}), 1u);
  EXPECT_EQ(sim::chip().IngressTable().count({false, 3, 8, 101, 0}), 1u);
  EXPECT_EQ(Stored(Stage::Ingress).size(), 2u);
  EXPECT_THAT(Trace("bcm_vlan_translate_action_delete"),
              ElementsAre("bcm_vlan_translate_action_delete(0, 0x4000003, 9, 0, 100) = -7",
                          "bcm_vlan_translate_action_delete(0, 0x4000003, 9, 0, 101) = -7"));
  const Lines refused = {
      "error(-7): RemoveIngressVlanMappingRule() failed to remove ingress VLAN "
      "translate for eth1/3: Entry not found",
      "error(-8): InstallIngressVlanMappingRule() failed to add ingress VLAN "
      "translate rule for eth1/3: Entry exists"};
  EXPECT_EQ(LogLines(), refused + refused);
}

}  // namespace
