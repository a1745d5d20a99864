// Translation rules on the chip: the ingress key layout with and without Q-in-Q, the action of
// each operation on chips with and without packet-priority actions, the egress entries keyed by
// class, the class IDs of LAG members, and the failures of these steps.
#include <functional>
#include <regex>

#include "service_fixtures.h"

namespace {

using vlanxlate::Operation;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;
using VlanXlateChip = BridgePortTest;

VlanMapping Matching(bool outer, bool inner) {
  VlanMapping rule = ReplaceOuter(100, 300);
  rule.match.hasOuterVlan = outer;
  rule.match.hasInnerVlan = inner;
  rule.match.innerVlanTag = VlanTag{200, 0x9100, 15};
  return rule;
}

// A chip without packet-priority actions gets the same action without its *_pkt_prio actions.
std::string WithoutPriorityActions(const std::string& action) {
  static const std::regex priorityAction("(ot|dt|it)_(outer|inner)_pkt_prio=\\d, ");
  return std::regex_replace(action, priorityAction, "");
}

// A Q-in-Q port matches the rule's outer tag as the chip's inner VLAN, and gives only single-tag
// matches a real key; key 0 is passed on and refused by the chip.
TEST_F(VlanXlateChip, IngressKeyFollowsQinqAndPresenceFlags) {
  const struct {
    bool qinq, outer, inner;
    std::string key;  // key type, outer VLAN, inner VLAN
  } cases[] = {{false, true, true, "7, 100, 200"}, {false, true, false, "8, 100, 0"},
               {false, false, true, "9, 0, 200"},  {false, false, false, "0, 0, 0"},
               {true, true, false, "9, 0, 100"},   {true, true, true, "0, 0, 100"},
               {true, false, true, "0, 0, 0"},     {true, false, false, "0, 0, 0"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.qinq << c.outer << c.inner);
    const VlanMapping rule = Matching(c.outer, c.inner);
    const bool accepted = c.key[0] != '0';
    EXPECT_EQ(service->InstallIngressVlanMappingRule(Eth(3), rule, c.qinq), accepted);
    EXPECT_EQ(sim::chip().IngressTable().size(), accepted ? 1u : 0u);
    EXPECT_EQ(service->RemoveIngressVlanMappingRule(Eth(3), rule, c.qinq, false), accepted);
    EXPECT_THAT(Trace("bcm_vlan_translate_action_delete"),
                ElementsAre("bcm_vlan_translate_action_delete(0, 0x4000003, " + c.key +
                            ") = " + (accepted ? "0" : "-4")));
    EXPECT_THAT(sim::chip().IngressTable(), IsEmpty());
    ClearRecords();
  }
}

// Used action tags: outer {200, 0x88a8 (34984), priority 5}, inner {300, 0x8100 (33024), 3}.
#define OUTER "{new_outer_vlan=200, priority=5, outer_tpid=34984, outer_tpid_action=1, "
#define BOTH                                                                                      \
  "{new_outer_vlan=200, new_inner_vlan=300, new_inner_pkt_prio=3, priority=5, outer_tpid=34984, " \
  "inner_tpid=33024, outer_tpid_action=1, inner_tpid_action=1, "
// Unused action tags: outer {200, TPID unused, priority unused}, inner all unused.
#define UNUSED "{new_outer_vlan=200, priority=-1, "

TEST_F(VlanXlateChip, IngressActionFollowsOperationQinqAndChipPriorityCapability) {
  const Operation add = Operation::Add, replace = Operation::Replace;
  const Operation addReplace = Operation::AddReplace, replaceReplace = Operation::ReplaceReplace;
  const struct {
    Operation operation;
    bool qinq, unused;
    const char* action;  // on a chip with packet-priority actions
  } cases[] = {
      // Add replaces the priority of single-tagged frames but adds it to double-tagged ones.
      {add, false, false,
       OUTER "dt_outer=1, dt_outer_pkt_prio=1, ot_outer=1, ot_outer_pkt_prio=2, "},
      {add, true, false, OUTER "it_outer=1, it_outer_pkt_prio=1, "},
      {replace, false, false,
       OUTER "dt_outer=2, dt_outer_pkt_prio=2, ot_outer=2, ot_outer_pkt_prio=2, "},
      {replace, true, false, OUTER "it_outer=1, it_outer_pkt_prio=1, it_inner=3, "},
      {addReplace, false, false, BOTH},
      {addReplace, true, false,
       BOTH "it_outer=1, it_outer_pkt_prio=1, it_inner=2, it_inner_pkt_prio=2, "},
      {replaceReplace, false, false,
       BOTH "dt_outer=2, dt_outer_pkt_prio=2, dt_inner=2, dt_inner_pkt_prio=2, ot_outer=2, "
            "ot_outer_pkt_prio=2, "},
      {replaceReplace, true, false, BOTH},
      {Operation::Invalid, false, false, "{"},
      {static_cast<Operation>(6), true, false, "{"},
      // Unused priorities: no priority action, or the customer's priority copied when pushing.
      {add, false, true, UNUSED "dt_outer=1, ot_outer=1, "},
      {add, true, true, UNUSED "it_outer=1, it_outer_pkt_prio=4, "},
      {replace, false, true, UNUSED "dt_outer=2, ot_outer=2, "},
      {replace, true, true, UNUSED "it_outer=1, it_outer_pkt_prio=4, it_inner=3, "},
      {addReplace, true, true, UNUSED "it_outer=1, it_outer_pkt_prio=4, "},
      {replaceReplace, false, true, UNUSED "dt_outer=2, ot_outer=2, "},
  };
  for (const auto& c : cases) {
    for (bool prio : {true, false}) {
      const std::string action = std::string(c.action) + "flags=0x4}";
      SCOPED_TRACE(testing::Message() << action << (prio ? "" : " without priority actions"));
      sim::chip().SetPacketPriorityCapable(prio);
      VlanMapping rule = Matching(true, false);
      rule.operation = c.operation;
      rule.action.outerVlanTag = c.unused ? VlanTag{200, 0, 15} : VlanTag{200, 0x88a8, 5};
      rule.action.innerVlanTag = c.unused ? VlanTag{0, 0, 15} : VlanTag{300, 0x8100, 3};

      EXPECT_TRUE(service->InstallIngressVlanMappingRule(Eth(3), rule, c.qinq));
      EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_translate_action_add(0, 0x4000003, " +
                                       std::string(c.qinq ? "9, 0, 100, " : "8, 100, 0, ") +
                                       (prio ? action : WithoutPriorityActions(action)) + ") = 0"));
      EXPECT_TRUE(service->RemoveIngressVlanMappingRule(Eth(3), rule, c.qinq, false));
      ClearRecords();
    }
  }
  EXPECT_THAT(LogLines(), IsEmpty());
}

// The LAG member-added path takes the chip port from the port table, where a LAG has no entry.
TEST_F(VlanXlateChip, LagIngressRuleIsKeyedByItsTrunkGport) {
  const VlanMapping rule = Matching(true, false);
  EXPECT_TRUE(service->InstallIngressVlanMappingRule(kLag, rule, false));
  EXPECT_EQ(sim::chip().IngressTable().count({true, kTrunkId, 8, 100, 0}), 1u);
  EXPECT_FALSE(service->RemoveIngressVlanMappingRule(kLag, rule, false, true));
  EXPECT_TRUE(service->RemoveIngressVlanMappingRule(kLag, rule, false, false));

  EXPECT_THAT(Trace("bcm_vlan_translate_action_delete"),
              ElementsAre("bcm_vlan_translate_action_delete(0, 0xc000005, 8, 100, 0) = 0"));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): RemoveIngressVlanMappingRule() failed to retrieve "
                                      "BCM gport for lag1: HAL ID not found"));
}

TEST_F(VlanXlateChip, EgressActionRewritesTheOuterTagOnlyUnderThePortClass) {
  const struct {
    Operation operation;
    bool prio, unused;
    const char* action;
  } cases[] = {
      {Operation::Replace, true, false,
       OUTER "dt_outer=2, dt_outer_pkt_prio=2, ot_outer=2, ot_outer_pkt_prio=2, "},
      {Operation::Replace, false, false, OUTER "dt_outer=2, ot_outer=2, "},
      // An unused priority is 0 (not printed) on a chip with priority actions, else -1.
      {Operation::Replace, true, true, "{new_outer_vlan=200, dt_outer=2, ot_outer=2, "},
      {Operation::Replace, false, true, UNUSED "dt_outer=2, ot_outer=2, "},
      {Operation::Invalid, true, false, "{"},
      {static_cast<Operation>(6), false, false, "{"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.action);
    sim::chip().SetPacketPriorityCapable(c.prio);
    VlanMapping rule = ReplaceOuter(100, 0);
    rule.operation = c.operation;
    rule.action.outerVlanTag = c.unused ? VlanTag{200, 0, 15} : VlanTag{200, 0x88a8, 5};
    rule.action.innerVlanTag = VlanTag{300, 0x8100, 3};

    EXPECT_TRUE(service->InstallEgressVlanMappingRule(Eth(3), rule));
    // The SDK does not overwrite: the entry of the same class and VLANs is deleted first.
    EXPECT_THAT(Trace(), ElementsAre("bcm_port_class_get(0, 0x4000003, 3) = 0",
                                     "bcm_vlan_translate_egress_action_delete(0, 3, 100, 0) = -7",
                                     "bcm_vlan_translate_egress_action_add(0, 3, 100, 0, " +
                                         std::string(c.action) + "flags=0x8}) = 0"));
    EXPECT_TRUE(service->RemoveEgressVlanMappingRule(Eth(3), rule, false));
    ClearRecords();
  }
  EXPECT_THAT(LogLines(), IsEmpty());
}

#undef OUTER
#undef BOTH
#undef UNUSED

// The members of a LAG share its class, so one entry serves them all.
TEST_F(VlanXlateChip, EgressEntryIsKeyedByTheClassAndTheMatchVlansWithAbsentTagsAsZero) {
  const std::tuple<limid_t, VlanMapping, sim::EgressKey> cases[] = {
      {Eth(3), Matching(true, true), {3, 100, 200}},
      {Eth(3), Matching(true, false), {3, 100, 0}},
      {Eth(3), Matching(false, true), {3, 0, 200}},
      {Eth(3), Matching(false, false), {3, 0, 0}},
      {kLag, Matching(true, false), {122, 100, 0}}};
  for (const auto& [id, rule, entry] : cases) {
    EXPECT_TRUE(service->InstallEgressVlanMappingRule(id, rule));
    EXPECT_EQ(sim::chip().EgressTable().count(entry), 1u);
    EXPECT_TRUE(service->RemoveEgressVlanMappingRule(id, rule, false));
    EXPECT_THAT(sim::chip().EgressTable(), IsEmpty());
  }
  EXPECT_EQ(Trace("bcm_vlan_translate_egress_action_delete").back(),
            "bcm_vlan_translate_egress_action_delete(0, 122, 100, 0) = 0");
}

// The chip takes packet-priority actions when it says so, or when it is neither of the family
// flagged 0x20000020 nor of chip type 47. A gport that is not a trunk subtracts -1.
TEST_F(VlanXlateChip, LagClassIsCountedDownFromTheTopOfTheChipsRange) {
  sim::common().AddLag(sim::Lag(10), 0);
  sim::common().AddGportOnly(sim::Lag(11), sim::ModuleGport(1, 11));
  const struct {
    limid_t lag;
    uint32_t chipType, xlatePktPrio, familyFlags;
    int classId;
  } cases[] = {
      {kLag, 0, 1, 0, 122},         {kLag, 47, 1, 0x20000020, 122}, {kLag, 0, 0, 0, 122},
      {kLag, 46, 0, 0x1000, 122},   {kLag, 47, 0, 0, 58},           {kLag, 0, 0, 0x20, 58},
      {kLag, 0, 0, 0x20000000, 58}, {sim::Lag(10), 0, 1, 0, 127},   {sim::Lag(10), 47, 0, 0, 63},
      {sim::Lag(11), 0, 1, 0, 128}, {sim::Lag(11), 47, 0, 0, 64}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << sim::NameOf(c.lag) << " " << c.chipType << "/"
                                    << c.xlatePktPrio << "/" << c.familyFlags);
    sim::chip().SetControlWords(c.chipType, c.xlatePktPrio, c.familyFlags);
    const bool inRange = c.classId <= 127;  // the chip refuses classes above its 127
    EXPECT_EQ(service->SetEgressVlanXlateClassIdForLag(c.lag, Eth(4)), inRange);
    EXPECT_THAT(Trace(), ElementsAre("bcm_port_class_set(0, 4, 3, " + std::to_string(c.classId) +
                                     ") = " + (inRange ? "0" : "-4")));
    ClearRecords();
  }
}

// Each failing step is reported with its cause and stops the step: the SDK calls made before the
// failure (the failing one included) are the only ones. A fault makes the nth call of an SDK
// function fail with BCM_E_FAIL.
TEST_F(VlanXlateChip, FailuresAreReportedWithTheirCause) {
  const VlanMapping rule = ReplaceOuter(100, 200);
  VlanMapping addRule = rule;
  addRule.operation = Operation::Add;
  VlanMapping unknownRule = rule;
  unknownRule.operation = Operation::Unknown;
  const auto fail = [](const char* function, int nth = 1) {
    sim::chip().FailNth(function, nth, BCM_E_FAIL);
  };
  const auto keys = [this](limid_t id, size_t count) {
    if (count == 2)
      service->UpdateVlanXlateLookupKeys(id, false);
    else
      service->SetVlanXlateLookupKeys(id, {count, bcmVlanTranslateKeyPortOuter});
    return false;
  };
  const struct {
    size_t calls;  // SDK calls made, the failing one included
    Lines log;
    std::function<bool()> step;
  } cases[] = {
      // A rule without an operation, and at egress anything but Replace (Add here), is refused
      // before the chip is asked.
      {0,
       {"log(3): GetIngressVlanXlateAction() invalid ingress VLAN translate action: Unknown",
        "log(3): InstallIngressVlanMappingRule() failed to get BCM VLAN translate action for "
        "eth1/3"},
       [&] { return service->InstallIngressVlanMappingRule(Eth(3), unknownRule, false); }},
      {0,
       {"log(3): InstallIngressVlanMappingRule() failed to get BCM gport for eth1/9: HAL ID not "
        "found"},
       [&] { return service->InstallIngressVlanMappingRule(Eth(9), rule, true); }},
      {0,
       {"log(3): GetEgressVlanXlateAction() invalid egress VLAN translate action: Add",
        "log(3): InstallEgressVlanMappingRule() failed to get BCM VLAN translate action for "
        "eth1/3"},
       [&] { return service->InstallEgressVlanMappingRule(Eth(3), addRule); }},
      {0,
       {"log(3): RemoveEgressVlanMappingRule() failed to retrieve BCM gport for lag1: HAL ID not "
        "found"},
       [&] { return service->RemoveEgressVlanMappingRule(kLag, rule, true); }},
      {0,
       {"log(3): InstallEgressVlanMappingRule() failed to get BCM gport for eth1/9: HAL ID not "
        "found"},
       [&] { return service->InstallEgressVlanMappingRule(Eth(9), rule); }},
      {1,
       {"error(-11): InstallEgressVlanMappingRule() failed to get BCM Class ID for eth1/3 "
        "(0x4000003): Operation failed"},
       [&] {
         return fail("bcm_port_class_get"), service->InstallEgressVlanMappingRule(Eth(3), rule);
       }},
      {1,
       {"error(-11): RemoveEgressVlanMappingRule() failed to get BCM Class ID for eth1/3 "
        "(0x4000003): Operation failed"},
       [&] {
         return fail("bcm_port_class_get"),
                service->RemoveEgressVlanMappingRule(Eth(3), rule, false);
       }},
      {2,
       {"error(-11): InstallEgressVlanMappingRule() failed to delete previous egress VLAN "
        "translate rule for eth1/3: Operation failed"},
       [&] {
         return fail("bcm_vlan_translate_egress_action_delete"),
                service->InstallEgressVlanMappingRule(Eth(3), rule);
       }},
      {0,
       {"log(3): SetEgressVlanXlateClassIdForLag() failed to retrieve BCM gport for lag9: HAL ID "
        "not found"},
       [&] { return service->SetEgressVlanXlateClassIdForLag(kUnknownLag, Eth(4)); }},
      // A gport that names no local port becomes port -1, and class -1 on reset.
      {1,
       {"error(-18): ResetEgressVlanXlateClassId() failed to set BCM Class ID for eth1/8 "
        "(0xffffffff): Invalid port"},
       [&] { return service->ResetEgressVlanXlateClassId(Eth(8)); }},
      {1,
       {"error(-18): SetEgressVlanXlateClassIdForLag() failed to set BCM Class ID for eth1/8 "
        "(0xffffffff): Invalid port"},
       [&] { return service->SetEgressVlanXlateClassIdForLag(kLag, Eth(8)); }},
      {1,
       {"error(-11): SetVlanXlateLookupKeys() error setting first lookup key at port 0x3: "
        "Operation failed"},
       [&] { return fail("bcm_vlan_control_port_set"), keys(Eth(3), 2); }},
      {2,
       {"error(-11): SetVlanXlateLookupKeys() error setting second lookup key at port 0x3: "
        "Operation failed"},
       [&] { return fail("bcm_vlan_control_port_set", 2), keys(Eth(3), 2); }},
      // The chip has exactly two lookup-key controls per port.
      {0,
       {"log(3): SetVlanXlateLookupKeys() invalid number of VLAN Xlate lookup keys for eth1/3: 3"},
       [&] { return keys(Eth(3), 3); }},
      {0,
       {"log(3): SetVlanXlateLookupKeys() failed to retrieve BCM port for eth1/9: HAL ID not "
        "found"},
       [&] { return keys(Eth(9), 2); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log.back());
    EXPECT_FALSE(c.step());
    EXPECT_EQ(Trace().size(), c.calls);
    EXPECT_EQ(TakeLog(), c.log);
  }
  EXPECT_THAT(sim::chip().EgressTable(), IsEmpty());
}

}  // namespace
