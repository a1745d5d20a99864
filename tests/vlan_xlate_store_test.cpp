// The VLAN mapping rule as a value (its text form and its ordering), the per-interface rule store
// kept in step with the chip, and the re-programming of the stored ingress rules when the Q-in-Q
// state changes.
#include <cstddef>
#include <functional>
#include <iterator>
#include <set>

#include "service_fixtures.h"

namespace {

using vlanxlate::Operation;
using vlanxlate::Stage;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

// Eleven lines without a final newline; large values fit their fields, every operation has its
// name, and the flags are printed as words and leave the stream printing bools as numbers.
TEST(VlanMappingText, RendersEveryFieldOnElevenLines) {
  VlanMapping rule = ReplaceOuter(100, 200);
  rule.match.hasInnerVlan = true;
  rule.match.innerVlanTag = VlanTag{7, 0x0001, 7};
  rule.action.innerVlanTag = VlanTag{65535, 0x88A8, 255};
  EXPECT_EQ(Text(rule),
            "Match: {\n"
            "  Outer VLAN: true\n"
            "  Outer VLAN Tag: { VLAN Id: 100 / TPID: 0x8100 / Priority: Unused }\n"
            "  Inner VLAN: true\n"
            "  Inner VLAN Tag: { VLAN Id: 7 / TPID: 0x0001 / Priority: 7 }\n"
            "}\n"
            "Operation: Replace\n"
            "Action: {\n"
            "  Outer VLAN Tag: { VLAN Id: 200 / TPID: Unused / Priority: Unused }\n"
            "  Inner VLAN Tag: { VLAN Id: 65535 / TPID: 0x88a8 / Priority: 255 }\n"
            "}");
  const std::pair<uint32_t, const char*> operations[] = {
      {0, "Unknown"},        {1, "Add"},     {2, "Replace"}, {3, "AddReplace"},
      {4, "ReplaceReplace"}, {5, "Invalid"}, {7, "Invalid"}, {0xffffffff, "Invalid"}};
  for (const auto& [value, name] : operations) {
    rule.operation = static_cast<Operation>(value);
    std::ostringstream os;
    os << std::boolalpha << rule << ' ' << true;
    EXPECT_NE(os.str().find(std::string("\nOperation: ") + name + "\n"), std::string::npos)
        << value;
    EXPECT_THAT(os.str(), testing::EndsWith("} 1"));
  }
}

// Each case differs from the one before it in exactly one field, in ascending order of weight:
// every field decides when all earlier ones are equal, absent tags included.
TEST(VlanMappingOrder, EveryFieldDecidesInDeclarationOrder) {
  using Change = std::function<void(VlanMapping&)>;
  const std::pair<const char*, Change> lessToGreater[] = {
      {"match.hasOuterVlan", [](VlanMapping& r) { r.match.hasOuterVlan = true; }},
      {"match.outerVlanTag.vlanId", [](VlanMapping& r) { r.match.outerVlanTag.vlanId = 0x0100; }},
      {"match.outerVlanTag.tpid", [](VlanMapping& r) { r.match.outerVlanTag.tpid = 0x8100; }},
      {"match.outerVlanTag.priority", [](VlanMapping& r) { r.match.outerVlanTag.priority = 16; }},
      {"match.hasInnerVlan", [](VlanMapping& r) { r.match.hasInnerVlan = true; }},
      {"match.innerVlanTag.vlanId", [](VlanMapping& r) { r.match.innerVlanTag.vlanId = 0x0100; }},
      {"match.innerVlanTag.tpid", [](VlanMapping& r) { r.match.innerVlanTag.tpid = 1; }},
      {"match.innerVlanTag.priority", [](VlanMapping& r) { r.match.innerVlanTag.priority = 255; }},
      {"operation", [](VlanMapping& r) { r.operation = Operation::Add; }},
      {"action.outerVlanTag.vlanId", [](VlanMapping& r) { r.action.outerVlanTag.vlanId = 1; }},
      {"action.outerVlanTag.tpid", [](VlanMapping& r) { r.action.outerVlanTag.tpid = 0x88a8; }},
      {"action.outerVlanTag.priority", [](VlanMapping& r) { r.action.outerVlanTag.priority = 16; }},
      {"action.innerVlanTag.vlanId", [](VlanMapping& r) { r.action.innerVlanTag.vlanId = 1; }},
      {"action.innerVlanTag.tpid", [](VlanMapping& r) { r.action.innerVlanTag.tpid = 0x0100; }},
      {"action.innerVlanTag.priority", [](VlanMapping& r) { r.action.innerVlanTag.priority = 16; }},
  };
  // The matched VLAN starts one below a carry into its upper byte: it compares as a number.
  VlanMapping base;
  base.match.outerVlanTag.vlanId = 0x00ff;
  for (size_t field = 0; field < std::size(lessToGreater); ++field) {
    VlanMapping lower = base;
    // The fields after the deciding one pull the other way and must not matter.
    for (size_t later = field + 1; later < std::size(lessToGreater); ++later)
      lessToGreater[later].second(lower);
    VlanMapping higher = base;
    lessToGreater[field].second(higher);
    EXPECT_TRUE(lower < higher) << lessToGreater[field].first;
    EXPECT_FALSE(higher < lower) << lessToGreater[field].first;
  }
}

// The padding between the fields (the byte after each flag, the sixth byte of each tag) is
// whatever a rule's construction left there: one bit off in it leaves a rule equivalent, one bit
// off anywhere else does not.
TEST(VlanMappingOrder, PaddingBytesAloneDoNotCount) {
  const std::set<size_t> padding{1, 7, 9, 15, 25, 31};
  VlanMapping rule = ReplaceOuter(0x00ff, 200);
  rule.match.hasInnerVlan = true;
  rule.match.innerVlanTag = VlanTag{0x0f0f, 0x8100, 3};
  for (size_t byte = 0; byte < sizeof(VlanMapping); ++byte) {
    // A flag's byte holds a bool, whose only other valid value is 1.
    const bool flag = byte == offsetof(VlanMapping, match.hasOuterVlan) ||
                      byte == offsetof(VlanMapping, match.hasInnerVlan);
    for (const unsigned char bit : {0x01, flag ? 0x01 : 0x80}) {
      VlanMapping off = rule;
      reinterpret_cast<unsigned char*>(&off)[byte] ^= bit;
      const bool equivalent = !(off < rule) && !(rule < off);
      EXPECT_EQ(equivalent, padding.count(byte) != 0) << "byte " << byte << " bit " << int{bit};
    }
  }
}

TEST(VlanMappingOrder, TagsCompareVlanThenTpidThenPriorityUnsigned) {
  const std::pair<VlanTag, VlanTag> lessToGreater[] = {{{1, 0xffff, 255}, {2, 0, 0}},
                                                       {{1, 0x8100, 255}, {1, 0x88a8, 0}},
                                                       {{1, 0x8100, 7}, {1, 0x8100, 200}},
                                                       {{0x7fff, 0, 0}, {0x8000, 0, 0}}};
  for (const auto& [lower, higher] : lessToGreater) {
    EXPECT_TRUE(lower < higher);
    EXPECT_FALSE(higher < lower);
  }
  EXPECT_FALSE((VlanTag{5, 6, 7} < VlanTag{5, 6, 7}));
}

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
  const char* duplicate;                   // the refusal of a rule already on the chip, if any
} kStages[] = {
    {Stage::Ingress, "ingress", "bcm_vlan_translate_action_add", "bcm_vlan_translate_action_delete",
     "error(-11): InstallIngressVlanMappingRule() failed to add ingress VLAN translate rule for "
     "eth1/3: Operation failed",
     "error(-11): RemoveIngressVlanMappingRule() failed to remove ingress VLAN translate for "
     "eth1/3: Operation failed",
     "\nQinQ: disable",
     "error(-8): InstallIngressVlanMappingRule() failed to add ingress VLAN translate rule for "
     "eth1/3: Entry exists"},
    {Stage::Egress, "egress", "bcm_vlan_translate_egress_action_add",
     "bcm_vlan_translate_egress_action_delete",
     "error(-11): InstallEgressVlanMappingRule() failed to add egress VLAN translate rule for "
     "eth1/3: Operation failed",
     "error(-11): RemoveEgressVlanMappingRule() failed to remove egress VLAN translate for "
     "eth1/3: Operation failed",
     "", nullptr},
};

// A rule that is not stored, for want of an entry or in it, is not on the chip either: its
// deletion is skipped without a chip call. A stored rule is sent again: the ingress table refuses
// the duplicate, the egress install replaces its entry; either way one copy stays stored.
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
    EXPECT_EQ(Add(c.stage, rule), c.stage == Stage::Ingress ? -1 : 0);
    EXPECT_EQ(TakeLog(), (c.duplicate ? Lines{c.duplicate, refused} : Lines{}));
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

// Twenty rules deleted in a row and added again: the deletions past the sixteen nodes that the
// service keeps erase as the others do, and the adds take the kept nodes first.
TEST_F(RuleStore, ManyDeletionsInARowAllEraseAndTheAddsAfterThemAllStore) {
  const int kRules = 20;
  for (const StageCase& c : kStages) {
    SCOPED_TRACE(c.table);
    for (int k = 0; k < kRules; ++k)
      ASSERT_EQ(Add(c.stage, ReplaceOuter(static_cast<uint16_t>(100 + k), 200)), 0);
    for (int k = 0; k < kRules; ++k)
      ASSERT_EQ(Delete(c.stage, ReplaceOuter(static_cast<uint16_t>(100 + k), 200)), 0);
    EXPECT_THAT(Stored(c.stage), IsEmpty());
    for (int k = 0; k < kRules; ++k)
      ASSERT_EQ(Add(c.stage, ReplaceOuter(static_cast<uint16_t>(300 + k), 400)), 0);
    EXPECT_EQ(Stored(c.stage).size(), size_t{kRules});
    EXPECT_EQ(Stored(c.stage).count(ReplaceOuter(319, 400)), 1u);
  }
  EXPECT_EQ(sim::chip().IngressTable().size(), size_t{kRules});
  EXPECT_EQ(sim::chip().EgressTable().size(), size_t{kRules});
}

// A deletion tells rules apart as the rule order does: a rule one bit off in any byte of the
// stored one, either of the two being the one stored, is found (and goes to the chip) exactly when
// the order holds them equivalent, the bit being padding.
TEST_F(RuleStore, DeletionTellsRulesApartAsTheirOrderDoes) {
  for (const StageCase& c : kStages) {
    for (size_t byte = 0; byte < sizeof(VlanMapping); ++byte) {
      VlanMapping off = rule;
      reinterpret_cast<unsigned char*>(&off)[byte] ^= 1;
      const bool same = !(off < rule) && !(rule < off);
      for (const auto& [stored, sought] : {std::pair{rule, off}, std::pair{off, rule}}) {
        Stored(c.stage) = {stored};
        ClearRecords();
        EXPECT_EQ(Delete(c.stage, sought) == 0 && Trace().empty(), !same)
            << c.table << " byte " << byte;
      }
    }
  }
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
