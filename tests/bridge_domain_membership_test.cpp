// Adding and removing members: the service's books, the shared VLAN member table, the chip and
// the VLAN orchestrator's clients kept in step.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bridge_domain_inspector.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using BookEntry = std::map<limid_t, bool>;
using GroupSet = std::set<std::pair<bcm_gport_t, bcm_if_t>>;

limid_t Eth(unsigned port) {
  return sim::EthernetPort(1, port);
}
const limid_t kVlan10 = sim::BridgeDomain(10);
const limid_t kLag = sim::Lag(1);

GroupSet GroupOf(std::initializer_list<int> ports) {
  GroupSet members;
  for (int port : ports)
    members.emplace(sim::LocalGport(port), sim::Chip::EncapOf(port));
  return members;
}

class BridgeDomainMembershipTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    group10 = sim::chip().CreateVlan(10);
    for (unsigned port = 1; port <= 3; ++port)
      sim::common().AddPort(Eth(port), sim::LocalGport(port));
    sim::common().AddPort(Eth(40), sim::ModuleGport(3, 40));  // a port of another chip
    sim::common().AddLag(kLag, 1);
    sim::common().ListLagMember(kLag, Eth(1));
    sim::common().ListLagMember(kLag, Eth(2));
    // Records every notification, and for removals whether the chip was already changed.
    service->GetVlanOrchestrator()->RegisterClient(
        10, "observer",
        {[this](const unsigned short& vlan, const limid_t& intf, bool tagged) {
           notes.push_back("add " + std::to_string(vlan) + " " + sim::NameOf(intf) +
                           (tagged ? " tagged" : " untagged"));
           return true;
         },
         [this](const unsigned short& vlan, const limid_t& intf) {
           notes.push_back("remove " + std::to_string(vlan) + " " + sim::NameOf(intf) + " after " +
                           std::to_string(ChipRemovals()) + " chip removals");
           return true;
         }});
  }

  static size_t ChipRemovals() {
    return Trace("bcm_multicast_egress_delete").size() + Trace("bcm_vlan_gport_delete").size();
  }
  std::map<int, bool> ChipMembers(bcm_vlan_t vlan) { return sim::chip().Vlan(vlan).members; }

  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance();
  HalBcmBridgeDomainInspector books{*service};
  VlanMemberTable& table = sim::common().VlanMembers();
  bcm_multicast_t group10 = 0;
  std::vector<std::string> notes;
};

class AddPortTest : public BridgeDomainMembershipTest,
                    public ::testing::WithParamInterface<bool> {};

TEST_P(AddPortTest, JoinsReplicationGroupThenVlanAndIsRecordedEverywhere) {
  const bool tagged = GetParam();
  ASSERT_EQ(service->addMember(kVlan10, Eth(3), tagged, 77), 0);

  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x2000) = 0",
                                   "bcm_multicast_l2_encap_get(0, 0x100000a, 0x4000003, 0) = 0",
                                   "bcm_multicast_egress_add(0, 0x100000a, 0x4000003, 0x8003) = 0",
                                   std::string("bcm_vlan_gport_add(0, 10, 0x4000003, ") +
                                       (tagged ? "0x0" : "0x1") + ") = 0"));
  EXPECT_EQ(ChipMembers(10), (std::map<int, bool>{{3, !tagged}}));
  EXPECT_EQ(sim::chip().GroupMembers(group10), GroupOf({3}));
  EXPECT_FALSE(books.intfInfo().at(Eth(3)).inLAG);
  EXPECT_EQ(books.intfInfo().at(Eth(3)).bridgeDomains, (BookEntry{{kVlan10, tagged}}));
  EXPECT_EQ(table.at(10), (BookEntry{{Eth(3), tagged}}));
  EXPECT_THAT(notes, ElementsAre(tagged ? "add 10 eth1/3 tagged" : "add 10 eth1/3 untagged"));
}

INSTANTIATE_TEST_SUITE_P(TaggedAndUntagged, AddPortTest, ::testing::Bool());

TEST_F(BridgeDomainMembershipTest, AddLagProgramsEveryMemberAndRecordsTheLagOnly) {
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);

  EXPECT_EQ(ChipMembers(10), (std::map<int, bool>{{1, false}, {2, false}}));
  EXPECT_EQ(sim::chip().GroupMembers(group10), GroupOf({1, 2}));
  EXPECT_EQ(books.lagMembership().at(kLag), (BookEntry{{kVlan10, true}}));
  EXPECT_THAT(books.intfInfo(), IsEmpty());
  EXPECT_EQ(table.at(10), (BookEntry{{kLag, true}}));
  EXPECT_THAT(notes, ElementsAre("add 10 lag1 tagged"));
}

TEST_F(BridgeDomainMembershipTest, PortOfAnotherChipIsKeptInTheBooksOnly) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(40), false, 0), 0);
  ASSERT_EQ(service->delMember(sim::BridgeDomain(30), Eth(40)), 0);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(books.intfInfo().at(Eth(40)).bridgeDomains, (BookEntry{{kVlan10, false}}));
  // A removal from a VLAN never used leaves an empty entry behind.
  EXPECT_THAT(table, ElementsAre(Pair(10, BookEntry{{Eth(40), false}}), Pair(30, IsEmpty())));
  EXPECT_THAT(notes,
              ElementsAre("add 10 eth1/40 untagged", "remove 30 eth1/40 after 0 chip removals"));
}

TEST_F(BridgeDomainMembershipTest, RepeatedAddKeepsFirstFlagInBooksAndLastInSharedTable) {
  sim::chip().CreateVlan(20, false);  // no replication group, so the chip accepts a second add
  const limid_t vlan20 = sim::BridgeDomain(20);
  ASSERT_EQ(service->addMember(vlan20, Eth(1), false, 0), 0);
  ASSERT_EQ(service->addMember(vlan20, Eth(1), true, 0), 0);

  EXPECT_THAT(Trace("bcm_vlan_gport_add"),
              ElementsAre("bcm_vlan_gport_add(0, 20, 0x4000001, 0x1) = 0",
                          "bcm_vlan_gport_add(0, 20, 0x4000001, 0x0) = 0"));
  EXPECT_THAT(Trace("bcm_multicast_l2_encap_get"), IsEmpty());
  EXPECT_EQ(ChipMembers(20), (std::map<int, bool>{{1, false}}));
  EXPECT_EQ(books.intfInfo().at(Eth(1)).bridgeDomains, (BookEntry{{vlan20, false}}));
  EXPECT_EQ(table.at(20), (BookEntry{{Eth(1), true}}));
}

TEST_F(BridgeDomainMembershipTest, FailedPortAddLeavesBooksTableAndClientsUntouched) {
  EXPECT_EQ(service->addMember(kVlan10, Eth(9), true, 0), -1);
  sim::chip().FailNext("bcm_vlan_gport_add", 1, BCM_E_FULL);
  EXPECT_EQ(service->addMember(kVlan10, Eth(1), true, 0), -1);

  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): HAL ID not found: eth1/9.",
                          "log(3): Error adding gport 0x04000001 to VLAN 10: Table full."));
  // The record of the port that was found stays, without the VLAN; the chip is half-done.
  EXPECT_EQ(books.intfInfo().count(Eth(9)), 0u);
  EXPECT_THAT(books.intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());
  EXPECT_THAT(ChipMembers(10), IsEmpty());
  EXPECT_EQ(sim::chip().GroupMembers(group10), GroupOf({1}));
  EXPECT_THAT(table, IsEmpty());
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(BridgeDomainMembershipTest, LagAddWithUnknownMemberFailsButKeepsProgrammedMembers) {
  sim::common().ListLagMember(kLag, Eth(9));
  EXPECT_EQ(service->addMember(kVlan10, kLag, false, 0), -1);

  EXPECT_THAT(LogLines(), ElementsAre("log(3): HAL ID not found: eth1/9."));
  EXPECT_EQ(ChipMembers(10), (std::map<int, bool>{{1, true}, {2, true}}));
  EXPECT_THAT(books.lagMembership(), IsEmpty());
  EXPECT_THAT(table, IsEmpty());
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(BridgeDomainMembershipTest, LagAddGoesOnPastAChipFailure) {
  sim::chip().FailNth("bcm_vlan_gport_add", 1, BCM_E_INTERNAL);
  EXPECT_EQ(service->addMember(kVlan10, kLag, true, 0), -1);

  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error adding gport 0x04000001 to VLAN 10: Internal error."));
  EXPECT_EQ(ChipMembers(10), (std::map<int, bool>{{2, false}}));
  EXPECT_THAT(books.lagMembership(), IsEmpty());
}

TEST_F(BridgeDomainMembershipTest, RemovedPortLeavesChipAfterClientsAreTold) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(1), false, 0), 0);
  ClearRecords();
  ASSERT_EQ(service->delMember(kVlan10, Eth(1)), 0);

  EXPECT_THAT(notes.back(), "remove 10 eth1/1 after 0 chip removals");
  EXPECT_THAT(Trace(),
              ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x2000) = 0",
                          "bcm_multicast_l2_encap_get(0, 0x100000a, 0x4000001, 0) = 0",
                          "bcm_multicast_egress_delete(0, 0x100000a, 0x4000001, 0x8001) = 0",
                          "bcm_vlan_gport_delete(0, 10, 0x4000001) = 0"));
  EXPECT_THAT(ChipMembers(10), IsEmpty());
  EXPECT_THAT(sim::chip().GroupMembers(group10), IsEmpty());
  // The record stays, empty; so does the VLAN's entry in the shared table.
  EXPECT_THAT(books.intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());
  EXPECT_THAT(table.at(10), IsEmpty());
}

TEST_F(BridgeDomainMembershipTest, RemovalOfUnknownPortIsToldButFails) {
  EXPECT_EQ(service->delMember(kVlan10, Eth(9)), -1);

  EXPECT_THAT(notes, ElementsAre("remove 10 eth1/9 after 0 chip removals"));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): HAL ID not found: eth1/9."));
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(BridgeDomainMembershipTest, RemovedLagLeavesChipAndKeepsAnEmptyEntry) {
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  ASSERT_EQ(service->delMember(kVlan10, kLag), 0);

  EXPECT_THAT(ChipMembers(10), IsEmpty());
  EXPECT_THAT(sim::chip().GroupMembers(group10), IsEmpty());
  EXPECT_THAT(books.lagMembership(), ElementsAre(Pair(kLag, IsEmpty())));
  EXPECT_THAT(table.at(10), IsEmpty());
  EXPECT_EQ(notes.back(), "remove 10 lag1 after 0 chip removals");
}

TEST_F(BridgeDomainMembershipTest, RemovalOfLagWithoutMembersOnlyUpdatesTheBooks) {
  const limid_t emptyLag = sim::Lag(2);
  sim::common().AddLag(emptyLag, 2);
  EXPECT_EQ(service->delMember(kVlan10, emptyLag), 0);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(books.lagMembership(), ElementsAre(Pair(emptyLag, IsEmpty())));
}

TEST_F(BridgeDomainMembershipTest, RemovalOfForgottenLagFailsAfterTableAndClients) {
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  sim::common().ForgetLag(kLag);
  EXPECT_EQ(service->delMember(kVlan10, kLag), -1);

  EXPECT_THAT(LogLines(), ElementsAre("log(3): delMember Couldn't find members for LAG lag1. "
                                      "Likely already removed by Lag orchestrator"));
  EXPECT_THAT(table.at(10), IsEmpty());
  EXPECT_EQ(notes.back(), "remove 10 lag1 after 0 chip removals");
  EXPECT_EQ(books.lagMembership().at(kLag), (BookEntry{{kVlan10, true}}));
  EXPECT_EQ(ChipMembers(10).size(), 2u);
}

TEST_F(BridgeDomainMembershipTest, DirectChangesOfPortInLagAssertAndCarryOn) {
  books.intfInfo()[Eth(1)].inLAG = true;
  EXPECT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
  EXPECT_EQ(ChipMembers(10), (std::map<int, bool>{{1, false}}));
  EXPECT_EQ(service->delMember(kVlan10, Eth(1)), 0);

  ASSERT_EQ(sim::Assertions().size(), 2u);
  EXPECT_EQ(sim::Assertions()[0].expression, "!member_it.inLAG");
  EXPECT_EQ(sim::Assertions()[0].file, "src/hal_bcm_bridge_domain");
  EXPECT_EQ(sim::Assertions()[0].line, 359);
  EXPECT_EQ(sim::Assertions()[1].expression, "!it->second.inLAG");
  EXPECT_EQ(sim::Assertions()[1].file, "src/hal_bcm_bridge_domain");
  EXPECT_EQ(sim::Assertions()[1].line, 483);
  EXPECT_THAT(ChipMembers(10), IsEmpty());
}

TEST_F(BridgeDomainMembershipTest, ClientsHearAdditionsInOrderAndRemovalsInReverse) {
  auto vlans = service->GetVlanOrchestrator();
  for (auto client : {std::pair<unsigned, std::string>{5, "z"}, {20, "a"}}) {
    vlans->RegisterClient(client.first, client.second,
                          {[this, client](const unsigned short&, const limid_t&, bool) {
                             notes.push_back("add by " + client.second);
                             return true;
                           },
                           [this, client](const unsigned short&, const limid_t&) {
                             notes.push_back("remove by " + client.second);
                             return true;
                           }});
  }
  ASSERT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
  ASSERT_EQ(service->delMember(kVlan10, Eth(1)), 0);

  EXPECT_THAT(notes, ElementsAre("add by z", "add 10 eth1/1 tagged", "add by a", "remove by a",
                                 "remove 10 eth1/1 after 0 chip removals", "remove by z"));
}

}  // namespace
