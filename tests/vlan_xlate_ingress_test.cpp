// Ingress translation rules: the key layout with and without Q-in-Q, the action per operation on
// chips with and without packet-priority actions, and the failure paths.
#include <string>
#include <tuple>
#include <vector>

#include "hal_bcm_bridge_port.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vlanxlate::Operation;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

constexpr int kPortNumber = 3;
constexpr int kTrunkId = 5;

// (trunk, port or trunk id, key type, outer VLAN, inner VLAN) of every ingress entry.
using Entry = std::tuple<bool, int, int, int, int>;

std::vector<Entry> IngressKeys() {
  std::vector<Entry> keys;
  for (const auto& [key, action] : sim::chip().IngressTable()) {
    keys.emplace_back(key.trunk, key.portOrTrunk, key.keyType, key.outerVlan, key.innerVlan);
  }
  return keys;
}

class IngressXlateTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::common().AddPort(port, sim::LocalGport(kPortNumber));
    sim::common().AddLag(lag, kTrunkId);
    ClearRecords();
  }

  HalBcmBridgePort& service = *HalBcmBridgePort::GetInstance(nullptr);
  const limid_t port = sim::EthernetPort(1, kPortNumber);
  const limid_t lag = sim::Lag(kTrunkId);
  const limid_t unknownPort = sim::EthernetPort(1, 9);
};

VlanMapping Matching(bool outer, bool inner) {
  VlanMapping rule;
  rule.match.hasOuterVlan = outer;
  rule.match.outerVlanTag = VlanTag{100, 0x8100, 15};
  rule.match.hasInnerVlan = inner;
  rule.match.innerVlanTag = VlanTag{200, 0x9100, 15};
  rule.operation = Operation::Replace;
  rule.action.outerVlanTag = VlanTag{300, 0, 15};
  return rule;
}

// A Q-in-Q port matches the rule's outer tag as the chip's inner VLAN, and gives only single-tag
// matches a real key; key 0 is passed on and refused by the chip.
TEST_F(IngressXlateTest, KeyAndVlansFollowQinqAndPresenceFlags) {
  const struct {
    bool qinq, outer, inner;
    int key, outerVlan, innerVlan;
  } cases[] = {
      {false, true, true, 7, 100, 200}, {false, true, false, 8, 100, 0},
      {false, false, true, 9, 0, 200},  {false, false, false, 0, 0, 0},
      {true, true, false, 9, 0, 100},   {true, true, true, 0, 0, 100},
      {true, false, true, 0, 0, 0},     {true, false, false, 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << "qinq " << c.qinq << " outer " << c.outer << " inner " << c.inner);
    const VlanMapping rule = Matching(c.outer, c.inner);
    const bool accepted = c.key != 0;
    const Entry entry{false, kPortNumber, c.key, c.outerVlan, c.innerVlan};

    EXPECT_EQ(service.InstallIngressVlanMappingRule(port, rule, c.qinq), accepted);
    EXPECT_EQ(IngressKeys(), accepted ? std::vector<Entry>{entry} : std::vector<Entry>{});
    ClearRecords();

    EXPECT_EQ(service.RemoveIngressVlanMappingRule(port, rule, c.qinq, false), accepted);
    const std::string call = "bcm_vlan_translate_action_delete(0, 0x4000003, " +
                             std::to_string(c.key) + ", " + std::to_string(c.outerVlan) + ", " +
                             std::to_string(c.innerVlan) + ") = " + (accepted ? "0" : "-4");
    EXPECT_THAT(Trace(), ElementsAre(call));
    EXPECT_THAT(IngressKeys(), IsEmpty());
    ClearRecords();
  }
}

struct ActionCase {
  const char* name;
  Operation operation;
  bool qinq;
  bool prio;    // the chip takes packet-priority actions
  bool unused;  // the action tags carry the sentinels and inner VLAN 0
  const char* action;
};

void PrintTo(const ActionCase& c, std::ostream* os) {
  *os << c.name;
}

// Used action tags: outer {200, 0x88a8 (34984), priority 5}, inner {300, 0x8100 (33024), 3}.
#define OUTER "new_outer_vlan=200, priority=5, outer_tpid=34984, outer_tpid_action=1"
#define BOTH                                                                                     \
  "new_outer_vlan=200, new_inner_vlan=300, new_inner_pkt_prio=3, priority=5, outer_tpid=34984, " \
  "inner_tpid=33024, outer_tpid_action=1, inner_tpid_action=1"
// Sentinel action tags: outer {200, TPID unused, priority unused}, inner all unused.
#define UNUSED "new_outer_vlan=200, priority=-1"

const ActionCase kActionCases[] = {
    {"AddPlainPrio", Operation::Add, false, true, false,
     "{" OUTER ", dt_outer=1, dt_outer_pkt_prio=1, ot_outer=1, ot_outer_pkt_prio=2, flags=0x4}"},
    {"AddPlain", Operation::Add, false, false, false,
     "{" OUTER ", dt_outer=1, ot_outer=1, flags=0x4}"},
    {"AddQinqPrio", Operation::Add, true, true, false,
     "{" OUTER ", it_outer=1, it_outer_pkt_prio=1, flags=0x4}"},
    {"AddQinq", Operation::Add, true, false, false, "{" OUTER ", it_outer=1, flags=0x4}"},
    {"ReplacePlainPrio", Operation::Replace, false, true, false,
     "{" OUTER ", dt_outer=2, dt_outer_pkt_prio=2, ot_outer=2, ot_outer_pkt_prio=2, flags=0x4}"},
    {"ReplacePlain", Operation::Replace, false, false, false,
     "{" OUTER ", dt_outer=2, ot_outer=2, flags=0x4}"},
    {"ReplaceQinqPrio", Operation::Replace, true, true, false,
     "{" OUTER ", it_outer=1, it_outer_pkt_prio=1, it_inner=3, flags=0x4}"},
    {"ReplaceQinq", Operation::Replace, true, false, false,
     "{" OUTER ", it_outer=1, it_inner=3, flags=0x4}"},
    {"AddReplacePlainPrio", Operation::AddReplace, false, true, false, "{" BOTH ", flags=0x4}"},
    {"AddReplacePlain", Operation::AddReplace, false, false, false, "{" BOTH ", flags=0x4}"},
    {"AddReplaceQinqPrio", Operation::AddReplace, true, true, false,
     "{" BOTH ", it_outer=1, it_outer_pkt_prio=1, it_inner=2, it_inner_pkt_prio=2, flags=0x4}"},
    {"AddReplaceQinq", Operation::AddReplace, true, false, false,
     "{" BOTH ", it_outer=1, it_inner=2, flags=0x4}"},
    {"ReplaceReplacePlainPrio", Operation::ReplaceReplace, false, true, false,
     "{" BOTH ", dt_outer=2, dt_outer_pkt_prio=2, dt_inner=2, dt_inner_pkt_prio=2, ot_outer=2, "
     "ot_outer_pkt_prio=2, flags=0x4}"},
    {"ReplaceReplacePlain", Operation::ReplaceReplace, false, false, false,
     "{" BOTH ", dt_outer=2, dt_inner=2, ot_outer=2, flags=0x4}"},
    {"ReplaceReplaceQinqPrio", Operation::ReplaceReplace, true, true, false,
     "{" BOTH ", flags=0x4}"},
    {"ReplaceReplaceQinq", Operation::ReplaceReplace, true, false, false, "{" BOTH ", flags=0x4}"},
    {"InvalidPlainPrio", Operation::Invalid, false, true, false, "{flags=0x4}"},
    {"Value6Qinq", static_cast<Operation>(6), true, false, false, "{flags=0x4}"},
    // Unused priorities: no priority action, or the customer's priority copied when pushing.
    {"AddPlainPrioUnused", Operation::Add, false, true, true,
     "{" UNUSED ", dt_outer=1, ot_outer=1, flags=0x4}"},
    {"AddQinqPrioUnused", Operation::Add, true, true, true,
     "{" UNUSED ", it_outer=1, it_outer_pkt_prio=4, flags=0x4}"},
    {"ReplacePlainPrioUnused", Operation::Replace, false, true, true,
     "{" UNUSED ", dt_outer=2, ot_outer=2, flags=0x4}"},
    {"ReplaceQinqPrioUnused", Operation::Replace, true, true, true,
     "{" UNUSED ", it_outer=1, it_outer_pkt_prio=4, it_inner=3, flags=0x4}"},
    {"AddReplaceQinqPrioUnused", Operation::AddReplace, true, true, true,
     "{" UNUSED ", it_outer=1, it_outer_pkt_prio=4, flags=0x4}"},
    {"ReplaceReplacePlainPrioUnused", Operation::ReplaceReplace, false, true, true,
     "{" UNUSED ", dt_outer=2, ot_outer=2, flags=0x4}"},
};

#undef OUTER
#undef BOTH
#undef UNUSED

class IngressActionTest : public IngressXlateTest,
                          public ::testing::WithParamInterface<ActionCase> {};

TEST_P(IngressActionTest, ChipReceivesTheActionOfTheOperation) {
  const ActionCase& c = GetParam();
  sim::chip().SetPacketPriorityCapable(c.prio);
  VlanMapping rule = Matching(true, false);
  rule.operation = c.operation;
  rule.action.outerVlanTag = c.unused ? VlanTag{200, 0, 15} : VlanTag{200, 0x88a8, 5};
  rule.action.innerVlanTag = c.unused ? VlanTag{0, 0, 15} : VlanTag{300, 0x8100, 3};

  EXPECT_TRUE(service.InstallIngressVlanMappingRule(port, rule, c.qinq));

  const std::string key = c.qinq ? "9, 0, 100" : "8, 100, 0";
  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_translate_action_add(0, 0x4000003, " + key + ", " +
                                   c.action + ") = 0"));
  EXPECT_EQ(sim::chip().IngressTable().size(), 1u);
  EXPECT_THAT(LogLines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(PerOperation, IngressActionTest, ::testing::ValuesIn(kActionCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The LAG member-added path takes the chip port from the port table, where a LAG has no entry.
TEST_F(IngressXlateTest, LagRuleIsKeyedByItsTrunkGport) {
  const VlanMapping rule = Matching(true, false);
  EXPECT_TRUE(service.InstallIngressVlanMappingRule(lag, rule, false));
  EXPECT_THAT(IngressKeys(), ElementsAre(Entry{true, kTrunkId, 8, 100, 0}));
  EXPECT_FALSE(service.RemoveIngressVlanMappingRule(lag, rule, false, true));
  EXPECT_TRUE(service.RemoveIngressVlanMappingRule(lag, rule, false, false));

  EXPECT_THAT(Trace("bcm_vlan_translate_action_delete"),
              ElementsAre("bcm_vlan_translate_action_delete(0, 0xc000005, 8, 100, 0) = 0"));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): RemoveIngressVlanMappingRule() failed to retrieve "
                                      "BCM gport for lag5: HAL ID not found"));
  EXPECT_THAT(IngressKeys(), IsEmpty());
}

TEST_F(IngressXlateTest, RuleWithoutOperationIsRefusedBeforeTheChip) {
  VlanMapping rule = Matching(true, false);
  rule.operation = Operation::Unknown;
  EXPECT_FALSE(service.InstallIngressVlanMappingRule(port, rule, false));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): GetIngressVlanXlateAction() invalid ingress VLAN translate "
                          "action: Unknown",
                          "log(3): InstallIngressVlanMappingRule() failed to get BCM VLAN "
                          "translate action for eth1/3"));
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(IngressXlateTest, UnknownPortIsReportedWithoutChipCall) {
  EXPECT_FALSE(service.InstallIngressVlanMappingRule(unknownPort, Matching(true, false), false));
  EXPECT_FALSE(
      service.RemoveIngressVlanMappingRule(unknownPort, Matching(true, false), false, false));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): InstallIngressVlanMappingRule() failed to get BCM "
                                      "gport for eth1/9: HAL ID not found",
                                      "log(3): RemoveIngressVlanMappingRule() failed to retrieve "
                                      "BCM gport for eth1/9: HAL ID not found"));
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(IngressXlateTest, ChipRefusalsAreReportedWithTheSdkCode) {
  sim::chip().FailNext("bcm_vlan_translate_action_add", 1, BCM_E_FULL);
  EXPECT_FALSE(service.InstallIngressVlanMappingRule(port, Matching(true, false), false));
  EXPECT_FALSE(service.RemoveIngressVlanMappingRule(port, Matching(true, false), false, false));
  EXPECT_THAT(LogLines(),
              ElementsAre("error(-6): InstallIngressVlanMappingRule() failed to add ingress VLAN "
                          "translate rule for eth1/3: Table full",
                          "error(-7): RemoveIngressVlanMappingRule() failed to remove ingress VLAN "
                          "translate for eth1/3: Entry not found"));
  EXPECT_THAT(IngressKeys(), IsEmpty());
}

}  // namespace
