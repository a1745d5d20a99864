// Egress translation rules and the egress class IDs of LAG members: one entry per class, so one
// entry serves every member of a LAG.
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

constexpr int kTrunkId = 5;
constexpr int kLagClassOnPrioChip = 127 - kTrunkId;

// (class, outer VLAN, inner VLAN) of every egress entry.
using Entry = std::tuple<int, int, int>;

std::vector<Entry> EgressKeys() {
  std::vector<Entry> keys;
  for (const auto& [key, action] : sim::chip().EgressTable()) {
    keys.emplace_back(key.portClass, key.outerVlan, key.innerVlan);
  }
  return keys;
}

VlanMapping ReplaceOuter(uint16_t vlan, uint16_t newVlan) {
  VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = VlanTag{vlan, 0x8100, 15};
  rule.operation = Operation::Replace;
  rule.action.outerVlanTag = VlanTag{newVlan, 0, 15};
  return rule;
}

class EgressXlateTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::common().AddPort(port, sim::LocalGport(3));
    sim::common().AddLag(lag, kTrunkId);
    sim::common().AddPort(member4, sim::LocalGport(4));
    sim::common().AddPort(member5, sim::LocalGport(5));
    sim::common().AddPort(remotePort, sim::ModuleGport(1, 8));
    ClearRecords();
  }

  HalBcmBridgePort& service = *HalBcmBridgePort::GetInstance(nullptr);
  const limid_t port = sim::EthernetPort(1, 3);
  const limid_t lag = sim::Lag(kTrunkId);
  const limid_t member4 = sim::EthernetPort(1, 4);
  const limid_t member5 = sim::EthernetPort(1, 5);
  const limid_t remotePort = sim::EthernetPort(1, 8);
  const limid_t unknownPort = sim::EthernetPort(1, 9);
};

struct ActionCase {
  const char* name;
  Operation operation;
  bool prio;  // the chip takes packet-priority actions
  VlanTag outerAction;
  const char* action;
};

void PrintTo(const ActionCase& c, std::ostream* os) {
  *os << c.name;
}

#define REWRITE "new_outer_vlan=200, priority=5, outer_tpid=34984, outer_tpid_action=1"

// The inner action tag of every case is {300, 0x8100, 3}: egress never writes it.
const ActionCase kActionCases[] = {
    {"ReplacePrio",
     Operation::Replace,
     true,
     {200, 0x88a8, 5},
     "{" REWRITE ", dt_outer=2, dt_outer_pkt_prio=2, ot_outer=2, ot_outer_pkt_prio=2, flags=0x8}"},
    {"Replace",
     Operation::Replace,
     false,
     {200, 0x88a8, 5},
     "{" REWRITE ", dt_outer=2, ot_outer=2, flags=0x8}"},
    // An unused priority is 0 (not printed) on a chip with priority actions, else -1.
    {"ReplacePrioUnused",
     Operation::Replace,
     true,
     {200, 0, 15},
     "{new_outer_vlan=200, dt_outer=2, ot_outer=2, flags=0x8}"},
    {"ReplaceUnused",
     Operation::Replace,
     false,
     {200, 0, 15},
     "{new_outer_vlan=200, priority=-1, dt_outer=2, ot_outer=2, flags=0x8}"},
    {"InvalidPrio", Operation::Invalid, true, {200, 0x88a8, 5}, "{flags=0x8}"},
    {"Value6", static_cast<Operation>(6), false, {200, 0x88a8, 5}, "{flags=0x8}"},
};

#undef REWRITE

class EgressActionTest : public EgressXlateTest,
                         public ::testing::WithParamInterface<ActionCase> {};

TEST_P(EgressActionTest, ChipReceivesDeleteThenAddUnderThePortClass) {
  const ActionCase& c = GetParam();
  sim::chip().SetPacketPriorityCapable(c.prio);
  VlanMapping rule = ReplaceOuter(100, 0);
  rule.operation = c.operation;
  rule.action.outerVlanTag = c.outerAction;
  rule.action.innerVlanTag = VlanTag{300, 0x8100, 3};

  EXPECT_TRUE(service.InstallEgressVlanMappingRule(port, rule));

  EXPECT_THAT(Trace(),
              ElementsAre("bcm_port_class_get(0, 0x4000003, 3) = 0",
                          "bcm_vlan_translate_egress_action_delete(0, 3, 100, 0) = -7",
                          std::string("bcm_vlan_translate_egress_action_add(0, 3, 100, 0, ") +
                              c.action + ") = 0"));
  EXPECT_THAT(EgressKeys(), ElementsAre(Entry{3, 100, 0}));
  EXPECT_THAT(LogLines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(PerOperation, EgressActionTest, ::testing::ValuesIn(kActionCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(EgressXlateTest, OnlyReplaceIsAcceptedOnEgress) {
  for (Operation operation :
       {Operation::Unknown, Operation::Add, Operation::AddReplace, Operation::ReplaceReplace}) {
    const std::string name = vlanxlate::OperationName(operation);
    VlanMapping rule = ReplaceOuter(100, 200);
    rule.operation = operation;
    EXPECT_FALSE(service.InstallEgressVlanMappingRule(port, rule)) << name;
    EXPECT_THAT(LogLines(),
                ElementsAre("log(3): GetEgressVlanXlateAction() invalid egress VLAN translate "
                            "action: " +
                                name,
                            "log(3): InstallEgressVlanMappingRule() failed to get BCM VLAN "
                            "translate action for eth1/3"));
    EXPECT_THAT(Trace(), IsEmpty());
    ClearRecords();
  }
}

TEST_F(EgressXlateTest, AbsentMatchTagsArePassedAsVlanZero) {
  const struct {
    bool outer, inner;
    Entry entry;
  } cases[] = {{true, true, {3, 100, 200}},
               {true, false, {3, 100, 0}},
               {false, true, {3, 0, 200}},
               {false, false, {3, 0, 0}}};
  for (const auto& c : cases) {
    VlanMapping rule = ReplaceOuter(100, 300);
    rule.match.hasOuterVlan = c.outer;
    rule.match.hasInnerVlan = c.inner;
    rule.match.innerVlanTag.vlanId = 200;
    EXPECT_TRUE(service.InstallEgressVlanMappingRule(port, rule));
    EXPECT_THAT(EgressKeys(), ElementsAre(c.entry));
    EXPECT_TRUE(service.RemoveEgressVlanMappingRule(port, rule, false));
    EXPECT_THAT(EgressKeys(), IsEmpty());
  }
}

TEST_F(EgressXlateTest, InstallReplacesTheEntryOfTheSameVlans) {
  ASSERT_TRUE(service.InstallEgressVlanMappingRule(port, ReplaceOuter(100, 200)));
  ClearRecords();
  EXPECT_TRUE(service.InstallEgressVlanMappingRule(port, ReplaceOuter(100, 201)));
  EXPECT_THAT(Trace("bcm_vlan_translate_egress_action_delete"),
              ElementsAre("bcm_vlan_translate_egress_action_delete(0, 3, 100, 0) = 0"));
  ASSERT_EQ(sim::chip().EgressTable().size(), 1u);
  EXPECT_EQ(sim::chip().EgressTable().begin()->second.new_outer_vlan, 201);
}

TEST_F(EgressXlateTest, OneLagEntryServesEveryMember) {
  ASSERT_TRUE(service.SetEgressVlanXlateClassIdForLag(lag, member4));
  ASSERT_TRUE(service.SetEgressVlanXlateClassIdForLag(lag, member5));
  EXPECT_EQ(sim::chip().Port(4).egressClass, uint32_t{kLagClassOnPrioChip});
  EXPECT_EQ(sim::chip().Port(5).egressClass, uint32_t{kLagClassOnPrioChip});
  ClearRecords();

  EXPECT_TRUE(service.InstallEgressVlanMappingRule(lag, ReplaceOuter(100, 200)));
  EXPECT_THAT(EgressKeys(), ElementsAre(Entry{kLagClassOnPrioChip, 100, 0}));
  EXPECT_TRUE(service.RemoveEgressVlanMappingRule(lag, ReplaceOuter(100, 200), false));
  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_translate_egress_action_delete(0, 122, 100, 0) = -7",
                                   "bcm_vlan_translate_egress_action_add(0, 122, 100, 0, "
                                   "{new_outer_vlan=200, dt_outer=2, ot_outer=2, flags=0x8}) = 0",
                                   "bcm_vlan_translate_egress_action_delete(0, 122, 100, 0) = 0"));
  EXPECT_THAT(EgressKeys(), IsEmpty());
}

// The chip takes packet-priority actions when it says so, or when it is neither of the family
// flagged 0x20000020 nor of chip type 47. A gport that is not a trunk subtracts -1.
TEST_F(EgressXlateTest, LagClassIsCountedDownFromTheTopOfTheChipsRange) {
  sim::common().AddLag(sim::Lag(10), 0);
  sim::common().AddGportOnly(sim::Lag(11), sim::ModuleGport(1, 11));
  const struct {
    limid_t lag;
    uint32_t chipType, xlatePktPrio, familyFlags;
    int classId;
  } cases[] = {
      {lag, 0, 1, 0, 122},          {lag, 47, 1, 0x20000020, 122}, {lag, 0, 0, 0, 122},
      {lag, 46, 0, 0x1000, 122},    {lag, 47, 0, 0, 58},           {lag, 0, 0, 0x20, 58},
      {lag, 0, 0, 0x20000000, 58},  {sim::Lag(10), 0, 1, 0, 127},  {sim::Lag(10), 47, 0, 0, 63},
      {sim::Lag(11), 0, 1, 0, 128}, {sim::Lag(11), 47, 0, 0, 64}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << sim::NameOf(c.lag) << " " << c.chipType << "/"
                                    << c.xlatePktPrio << "/" << c.familyFlags);
    sim::chip().SetControlWords(c.chipType, c.xlatePktPrio, c.familyFlags);
    EXPECT_TRUE(service.SetEgressVlanXlateClassIdForLag(c.lag, member4));
    EXPECT_THAT(Trace(),
                ElementsAre("bcm_port_class_set(0, 4, 3, " + std::to_string(c.classId) + ") = 0"));
    EXPECT_EQ(sim::chip().Port(4).egressClass, static_cast<uint32_t>(c.classId));
    ClearRecords();
  }
}

TEST_F(EgressXlateTest, ResetGivesThePortItsOwnNumberBack) {
  ASSERT_TRUE(service.SetEgressVlanXlateClassIdForLag(lag, member4));
  ClearRecords();
  EXPECT_TRUE(service.ResetEgressVlanXlateClassId(member4));
  EXPECT_THAT(Trace(), ElementsAre("bcm_port_class_set(0, 4, 3, 4) = 0"));
  EXPECT_EQ(sim::chip().Port(4).egressClass, 4u);
}

// A gport that names no local port becomes port -1, which the chip refuses.
TEST_F(EgressXlateTest, NonLocalPortIsPassedAsMinusOne) {
  EXPECT_FALSE(service.ResetEgressVlanXlateClassId(remotePort));
  EXPECT_FALSE(service.SetEgressVlanXlateClassIdForLag(lag, remotePort));
  EXPECT_THAT(Trace(), ElementsAre("bcm_port_class_set(0, -1, 3, -1) = -18",
                                   "bcm_port_class_set(0, -1, 3, 122) = -18"));
  EXPECT_THAT(LogLines(), ElementsAre("error(-18): ResetEgressVlanXlateClassId() failed to set BCM "
                                      "Class ID for eth1/8 (0xffffffff): Invalid port",
                                      "error(-18): SetEgressVlanXlateClassIdForLag() failed to set "
                                      "BCM Class ID for eth1/8 (0xffffffff): Invalid port"));
}

TEST_F(EgressXlateTest, ClassLookupFailuresAreReported) {
  sim::chip().FailNext("bcm_port_class_set", 1, BCM_E_FAIL);
  EXPECT_FALSE(service.SetEgressVlanXlateClassIdForLag(lag, member4));
  EXPECT_FALSE(service.SetEgressVlanXlateClassIdForLag(sim::Lag(9), member4));
  EXPECT_FALSE(service.SetEgressVlanXlateClassIdForLag(lag, unknownPort));
  EXPECT_FALSE(service.ResetEgressVlanXlateClassId(unknownPort));
  EXPECT_THAT(LogLines(),
              ElementsAre("error(-11): SetEgressVlanXlateClassIdForLag() failed to set BCM Class "
                          "ID for eth1/4 (0x4): Operation failed",
                          "log(3): SetEgressVlanXlateClassIdForLag() failed to retrieve BCM gport "
                          "for lag9: HAL ID not found",
                          "log(3): SetEgressVlanXlateClassIdForLag() failed to retrieve BCM port "
                          "for eth1/9: HAL ID not found",
                          "log(3): ResetEgressVlanXlateClassId() failed to retrieve BCM port for "
                          "eth1/9: HAL ID not found"));
  EXPECT_EQ(sim::chip().Port(4).egressClass, 4u);
}

TEST_F(EgressXlateTest, UnknownPortIsReportedWithoutChipCall) {
  EXPECT_FALSE(service.InstallEgressVlanMappingRule(unknownPort, ReplaceOuter(100, 200)));
  EXPECT_FALSE(service.RemoveEgressVlanMappingRule(unknownPort, ReplaceOuter(100, 200), false));
  // The LAG member-added path reads the port table, where a LAG has no entry.
  EXPECT_FALSE(service.RemoveEgressVlanMappingRule(lag, ReplaceOuter(100, 200), true));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): InstallEgressVlanMappingRule() failed to get BCM "
                                      "gport for eth1/9: HAL ID not found",
                                      "log(3): RemoveEgressVlanMappingRule() failed to retrieve "
                                      "BCM gport for eth1/9: HAL ID not found",
                                      "log(3): RemoveEgressVlanMappingRule() failed to retrieve "
                                      "BCM gport for lag5: HAL ID not found"));
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(EgressXlateTest, PortClassReadFailureStopsInstallAndRemove) {
  sim::chip().FailNext("bcm_port_class_get", 2, BCM_E_FAIL);
  EXPECT_FALSE(service.InstallEgressVlanMappingRule(port, ReplaceOuter(100, 200)));
  EXPECT_FALSE(service.RemoveEgressVlanMappingRule(port, ReplaceOuter(100, 200), false));
  EXPECT_THAT(LogLines(), ElementsAre("error(-11): InstallEgressVlanMappingRule() failed to get "
                                      "BCM Class ID for eth1/3 (0x4000003): Operation failed",
                                      "error(-11): RemoveEgressVlanMappingRule() failed to get "
                                      "BCM Class ID for eth1/3 (0x4000003): Operation failed"));
  EXPECT_EQ(Trace().size(), 2u);
}

TEST_F(EgressXlateTest, ChipRefusalsOfTheEntryAreReported) {
  sim::chip().FailNext("bcm_vlan_translate_egress_action_delete", 1, BCM_E_BUSY);
  EXPECT_FALSE(service.InstallEgressVlanMappingRule(port, ReplaceOuter(100, 200)));
  EXPECT_THAT(Trace("bcm_vlan_translate_egress_action_add"), IsEmpty());

  sim::chip().FailNext("bcm_vlan_translate_egress_action_add", 1, BCM_E_FULL);
  EXPECT_FALSE(service.InstallEgressVlanMappingRule(port, ReplaceOuter(100, 200)));
  // Unlike install, remove counts "not found" as a failure.
  EXPECT_FALSE(service.RemoveEgressVlanMappingRule(port, ReplaceOuter(100, 200), false));

  EXPECT_THAT(LogLines(),
              ElementsAre("error(-10): InstallEgressVlanMappingRule() failed to delete previous "
                          "egress VLAN translate rule for eth1/3: Operation still running",
                          "error(-6): InstallEgressVlanMappingRule() failed to add egress VLAN "
                          "translate rule for eth1/3: Table full",
                          "error(-7): RemoveEgressVlanMappingRule() failed to remove egress VLAN "
                          "translate for eth1/3: Entry not found"));
  EXPECT_THAT(EgressKeys(), IsEmpty());
}

}  // namespace
