// The per-interface rule store kept in step with the chip, the re-programming of ingress rules
// after a Q-in-Q change, and the ingress lookup keys.
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "bridge_port_inspector.h"
#include "hal_bcm_bridge_port.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vlanxlate::Operation;
using vlanxlate::Stage;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

std::string Text(const VlanMapping& rule) {
  std::ostringstream os;
  os << rule;
  return os.str();
}

VlanMapping ReplaceOuter(uint16_t vlan, uint16_t newVlan) {
  VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = VlanTag{vlan, 0x8100, 15};
  rule.operation = Operation::Replace;
  rule.action.outerVlanTag = VlanTag{newVlan, 0, 15};
  return rule;
}

// Equal as the store sees it: neither orders before the other.
MATCHER_P(SameRule, expected, "") {
  return !(arg < expected) && !(expected < arg);
}

// (key type, outer VLAN, inner VLAN) of every ingress entry.
std::vector<std::tuple<int, int, int>> IngressKeys() {
  std::vector<std::tuple<int, int, int>> keys;
  for (const auto& [key, action] : sim::chip().IngressTable()) {
    keys.emplace_back(key.keyType, key.outerVlan, key.innerVlan);
  }
  return keys;
}

size_t ChipEntries(Stage stage) {
  return stage == Stage::Ingress ? sim::chip().IngressTable().size()
                                 : sim::chip().EgressTable().size();
}

class RuleStoreTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::common().AddPort(port, sim::LocalGport(3));
    sim::common().AddPort(remotePort, sim::ModuleGport(1, 8));
    ClearRecords();
  }

  std::map<limid_t, std::set<VlanMapping>>& Store(Stage stage) {
    return stage == Stage::Ingress ? books.ingressVlanMappings() : books.egressVlanMappings();
  }

  HalBcmBridgePort& service = *HalBcmBridgePort::GetInstance(nullptr);
  HalBridgePortItf& itf = service;
  HalBcmBridgePortInspector books{service};
  const limid_t port = sim::EthernetPort(1, 3);
  const limid_t remotePort = sim::EthernetPort(1, 8);
  const limid_t unknownPort = sim::EthernetPort(1, 9);
  const VlanMapping rule = ReplaceOuter(100, 200);
};

struct StageCase {
  Stage stage;
  const char* addCall;
  const char* deleteCall;
  const char* ruleSuffix;  // what the level-6 line adds after the rule
};

const StageCase kStages[] = {
    {Stage::Ingress, "bcm_vlan_translate_action_add", "bcm_vlan_translate_action_delete",
     "\nQinQ: disable"},
    {Stage::Egress, "bcm_vlan_translate_egress_action_add",
     "bcm_vlan_translate_egress_action_delete", ""},
};

// The line of the chip-facing step when the SDK refuses with BCM_E_FAIL.
std::string Refusal(const StageCase& c, bool install) {
  const bool ingress = c.stage == Stage::Ingress;
  const std::string prefix = std::string("error(-11): ") + (install ? "Install" : "Remove") +
                             (ingress ? "Ingress" : "Egress") + "VlanMappingRule() failed to ";
  const std::string table = ingress ? "ingress" : "egress";
  return prefix +
         (install ? "add " + table + " VLAN translate rule"
                  : "remove " + table + " VLAN translate") +
         " for eth1/3: Operation failed";
}

TEST_F(RuleStoreTest, AddStoresTheRuleOnlyAfterTheChipTookIt) {
  for (const StageCase& c : kStages) {
    SCOPED_TRACE(c.addCall);
    sim::chip().FailNext(c.addCall, 1, BCM_E_FAIL);
    EXPECT_EQ(itf.AddVlanMappingRule(port, c.stage, rule), -1);
    EXPECT_THAT(LogLines(), ElementsAre(Refusal(c, true), "log(6): VLAN translate rule:\n" +
                                                              Text(rule) + c.ruleSuffix));
    EXPECT_EQ(Store(c.stage).count(port), 0u);
    EXPECT_EQ(ChipEntries(c.stage), 0u);

    EXPECT_EQ(itf.AddVlanMappingRule(port, c.stage, rule), 0);
    EXPECT_THAT(Store(c.stage)[port], ElementsAre(SameRule(rule)));
    EXPECT_EQ(ChipEntries(c.stage), 1u);
    ClearRecords();
  }
}

TEST_F(RuleStoreTest, DeleteDropsTheRuleOnlyAfterTheChipDid) {
  for (const StageCase& c : kStages) {
    SCOPED_TRACE(c.deleteCall);
    ASSERT_EQ(itf.AddVlanMappingRule(port, c.stage, rule), 0);
    ClearRecords();

    sim::chip().FailNext(c.deleteCall, 1, BCM_E_FAIL);
    EXPECT_EQ(itf.DeleteVlanMappingRule(port, c.stage, rule), -1);
    EXPECT_THAT(LogLines(), ElementsAre(Refusal(c, false), "log(6): VLAN translate rule:\n" +
                                                               Text(rule) + c.ruleSuffix));
    EXPECT_THAT(Store(c.stage)[port], ElementsAre(SameRule(rule)));
    EXPECT_EQ(ChipEntries(c.stage), 1u);

    EXPECT_EQ(itf.DeleteVlanMappingRule(port, c.stage, rule), 0);
    // The interface keeps its entry, now empty.
    ASSERT_EQ(Store(c.stage).count(port), 1u);
    EXPECT_THAT(Store(c.stage)[port], IsEmpty());
    EXPECT_EQ(ChipEntries(c.stage), 0u);
    ClearRecords();
  }
}

TEST_F(RuleStoreTest, DeletingWhatIsNotStoredIsSkippedWithoutChipCall) {
  const VlanMapping other = ReplaceOuter(101, 201);
  for (const StageCase& c : kStages) {
    const std::string skip = std::string("log(6): Skipping deletion of already inexistent ") +
                             (c.stage == Stage::Ingress ? "ingress" : "egress") +
                             " VLAN translate rule:\n" + Text(rule);
    // First with nothing stored for the port, then with another rule stored.
    EXPECT_EQ(itf.DeleteVlanMappingRule(port, c.stage, rule), 0);
    ASSERT_EQ(itf.AddVlanMappingRule(port, c.stage, other), 0);
    ClearRecords();
    EXPECT_EQ(itf.DeleteVlanMappingRule(port, c.stage, rule), 0);
    EXPECT_THAT(LogLines(), ElementsAre(skip));
    EXPECT_THAT(Trace(), IsEmpty());
    EXPECT_THAT(Store(c.stage)[port], ElementsAre(SameRule(other)));
  }
}

// The chip is asked again for a stored rule: the ingress table refuses the duplicate, the egress
// install replaces its entry. Either way one copy stays stored.
TEST_F(RuleStoreTest, AddingARuleTwiceKeepsOneCopy) {
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Ingress, rule), 0);
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Egress, rule), 0);
  ClearRecords();

  EXPECT_EQ(itf.AddVlanMappingRule(port, Stage::Ingress, rule), -1);
  EXPECT_EQ(itf.AddVlanMappingRule(port, Stage::Egress, rule), 0);

  EXPECT_THAT(LogLines(),
              ElementsAre("error(-8): InstallIngressVlanMappingRule() failed to add "
                          "ingress VLAN translate rule for eth1/3: Entry exists",
                          "log(6): VLAN translate rule:\n" + Text(rule) + "\nQinQ: disable"));
  EXPECT_THAT(books.ingressVlanMappings()[port], ElementsAre(SameRule(rule)));
  EXPECT_THAT(books.egressVlanMappings()[port], ElementsAre(SameRule(rule)));
}

TEST_F(RuleStoreTest, UnknownStageIsAcceptedAndIgnored) {
  const auto stage = static_cast<Stage>(2);
  EXPECT_EQ(itf.AddVlanMappingRule(port, stage, rule), 0);
  EXPECT_EQ(itf.DeleteVlanMappingRule(port, stage, rule), 0);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(LogLines(), IsEmpty());
  EXPECT_THAT(books.ingressVlanMappings(), IsEmpty());
  EXPECT_THAT(books.egressVlanMappings(), IsEmpty());
}

TEST_F(RuleStoreTest, QinqPortUsesTheQinqLayoutAndSaysSoWhenRefused) {
  books.qinqPorts().insert(port);
  EXPECT_EQ(itf.AddVlanMappingRule(port, Stage::Ingress, rule), 0);
  EXPECT_THAT(IngressKeys(), ElementsAre(std::make_tuple(9, 0, 100)));

  sim::chip().FailNext("bcm_vlan_translate_action_delete", 1, BCM_E_FAIL);
  EXPECT_EQ(itf.DeleteVlanMappingRule(port, Stage::Ingress, rule), -1);
  EXPECT_EQ(LogLines().back(), "log(6): VLAN translate rule:\n" + Text(rule) + "\nQinQ: enable");
  EXPECT_EQ(itf.DeleteVlanMappingRule(port, Stage::Ingress, rule), 0);
  EXPECT_THAT(IngressKeys(), IsEmpty());
}

TEST_F(RuleStoreTest, QinqChangeMovesEachStoredRuleToTheNewLayoutInSetOrder) {
  const VlanMapping second = ReplaceOuter(101, 201);
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Ingress, second), 0);
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Ingress, rule), 0);
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Egress, rule), 0);
  ClearRecords();

  books.qinqPorts().insert(port);
  service.UpdateVlanMappingRules(port);
  EXPECT_THAT(Trace(),
              ElementsAre("bcm_vlan_translate_action_delete(0, 0x4000003, 8, 100, 0) = 0",
                          "bcm_vlan_translate_action_add(0, 0x4000003, 9, 0, 100, "
                          "{new_outer_vlan=200, priority=-1, it_outer=1, it_outer_pkt_prio=4, "
                          "it_inner=3, flags=0x4}) = 0",
                          "bcm_vlan_translate_action_delete(0, 0x4000003, 8, 101, 0) = 0",
                          "bcm_vlan_translate_action_add(0, 0x4000003, 9, 0, 101, "
                          "{new_outer_vlan=201, priority=-1, it_outer=1, it_outer_pkt_prio=4, "
                          "it_inner=3, flags=0x4}) = 0"));
  EXPECT_THAT(IngressKeys(), ElementsAre(std::make_tuple(9, 0, 100), std::make_tuple(9, 0, 101)));
  EXPECT_EQ(sim::chip().EgressTable().size(), 1u);

  books.qinqPorts().erase(port);
  service.UpdateVlanMappingRules(port);
  EXPECT_THAT(IngressKeys(), ElementsAre(std::make_tuple(8, 100, 0), std::make_tuple(8, 101, 0)));
  EXPECT_THAT(LogLines(), IsEmpty());
  EXPECT_EQ(books.ingressVlanMappings()[port].size(), 2u);
}

// Re-programming without a change of state removes with the wrong layout and re-adds a present
// entry: both refusals are logged, nothing else changes.
TEST_F(RuleStoreTest, UpdateWithoutStateChangeOnlyLogsTheRefusals) {
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Ingress, rule), 0);
  ClearRecords();
  service.UpdateVlanMappingRules(port);
  EXPECT_THAT(LogLines(),
              ElementsAre("error(-7): RemoveIngressVlanMappingRule() failed to remove ingress VLAN "
                          "translate for eth1/3: Entry not found",
                          "error(-8): InstallIngressVlanMappingRule() failed to add ingress VLAN "
                          "translate rule for eth1/3: Entry exists"));
  EXPECT_THAT(IngressKeys(), ElementsAre(std::make_tuple(8, 100, 0)));
  EXPECT_THAT(books.ingressVlanMappings()[port], ElementsAre(SameRule(rule)));
}

TEST_F(RuleStoreTest, UpdateOfInterfaceWithoutIngressRulesTouchesNothing) {
  ASSERT_EQ(itf.AddVlanMappingRule(port, Stage::Egress, rule), 0);
  ClearRecords();
  books.qinqPorts().insert(port);
  service.UpdateVlanMappingRules(port);
  books.ingressVlanMappings()[port];  // an entry left empty by deletions
  service.UpdateVlanMappingRules(port);
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(RuleStoreTest, LookupKeysFollowTheQinqState) {
  const struct {
    bool qinq;
    int first, second;
  } cases[] = {{true, 8, 9}, {false, 7, 8}};
  for (const auto& c : cases) {
    service.UpdateVlanXlateLookupKeys(port, c.qinq);
    EXPECT_THAT(
        Trace(),
        ElementsAre("bcm_vlan_control_port_set(0, 3, 14, " + std::to_string(c.first) + ") = 0",
                    "bcm_vlan_control_port_set(0, 3, 15, " + std::to_string(c.second) + ") = 0"));
    EXPECT_EQ(sim::chip().Port(3).keyFirst, c.first);
    EXPECT_EQ(sim::chip().Port(3).keySecond, c.second);
    ClearRecords();
  }
}

TEST_F(RuleStoreTest, LookupKeysOtherThanTwoAreRefused) {
  for (size_t count : {0, 1, 3}) {
    const std::vector<bcm_vlan_translate_key_e> keys(count, bcmVlanTranslateKeyPortOuter);
    service.SetVlanXlateLookupKeys(port, keys);
    EXPECT_THAT(LogLines(), ElementsAre("log(3): SetVlanXlateLookupKeys() invalid number of VLAN "
                                        "Xlate lookup keys for eth1/3: " +
                                        std::to_string(count)));
    ClearRecords();
  }
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(RuleStoreTest, LookupKeyFailuresAreReported) {
  service.UpdateVlanXlateLookupKeys(unknownPort, false);
  sim::chip().FailNext("bcm_vlan_control_port_set", 1, BCM_E_FAIL);
  service.UpdateVlanXlateLookupKeys(port, false);  // the second key is not attempted
  sim::chip().FailNth("bcm_vlan_control_port_set", 2, BCM_E_FAIL);
  service.UpdateVlanXlateLookupKeys(port, true);
  service.UpdateVlanXlateLookupKeys(remotePort, true);  // no local port: -1
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): SetVlanXlateLookupKeys() failed to retrieve BCM port for "
                          "eth1/9: HAL ID not found",
                          "error(-11): SetVlanXlateLookupKeys() error setting first lookup key at "
                          "port 0x3: Operation failed",
                          "error(-11): SetVlanXlateLookupKeys() error setting second lookup key at "
                          "port 0x3: Operation failed",
                          "error(-18): SetVlanXlateLookupKeys() error setting first lookup key at "
                          "port 0xffffffff: Invalid port"));
  EXPECT_EQ(Trace().size(), 4u);
  EXPECT_EQ(sim::chip().Port(3).keyFirst, bcmVlanTranslateKeyPortOuter);
  EXPECT_EQ(sim::chip().Port(3).keySecond, bcmVlanTranslateKeyPortOuter);  // still the boot value
}

}  // namespace
