// LAG events raised by the LAG orchestrator: a port in a LAG is a member of exactly the LAG's
// VLANs on the chip.
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "bridge_domain_inspector.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using BookEntry = std::map<limid_t, bool>;
using ChipMembers = std::map<int, bool>;  // port -> untagged
using GroupSet = std::set<std::pair<bcm_gport_t, bcm_if_t>>;

limid_t Eth(unsigned port) {
  return sim::EthernetPort(1, port);
}
const limid_t kLag = sim::Lag(1);
const limid_t kVlan10 = sim::BridgeDomain(10);
const limid_t kVlan20 = sim::BridgeDomain(20);

GroupSet GroupOf(std::initializer_list<int> ports) {
  GroupSet members;
  for (int port : ports)
    members.emplace(sim::LocalGport(port), sim::Chip::EncapOf(port));
  return members;
}

class BridgeDomainLagEventsTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    group10 = sim::chip().CreateVlan(10);
    group20 = sim::chip().CreateVlan(20);
    for (unsigned port = 1; port <= 3; ++port) {
      sim::common().AddPort(Eth(port), sim::LocalGport(port));
    }
    sim::common().AddLag(kLag, 1);
  }

  // The bridge domain's answer to an event (it is the only client).
  static bool Handled(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
    EXPECT_EQ(answers.size(), 1u);
    return !answers.empty() && answers[0].handled;
  }
  static ChipMembers Members(bcm_vlan_t vlan) { return sim::chip().Vlan(vlan).members; }

  std::shared_ptr<sim::LagOrchestratorSim> lags = std::make_shared<sim::LagOrchestratorSim>();
  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance(lags);
  HalBcmBridgeDomainInspector books{*service};
  VlanMemberTable& table = sim::common().VlanMembers();
  bcm_multicast_t group10 = 0;
  bcm_multicast_t group20 = 0;
};

TEST_F(BridgeDomainLagEventsTest, JoiningPortSwapsItsVlansForTheLagsAndLeavingDoesNotRestoreThem) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(1), false, 0), 0);
  ASSERT_EQ(service->addMember(kVlan20, kLag, true, 0), 0);

  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(1))));
  EXPECT_THAT(Members(10), IsEmpty());
  EXPECT_THAT(sim::chip().GroupMembers(group10), IsEmpty());
  EXPECT_EQ(Members(20), (ChipMembers{{1, false}}));
  EXPECT_EQ(sim::chip().GroupMembers(group20), GroupOf({1}));
  EXPECT_TRUE(books.intfInfo().at(Eth(1)).inLAG);
  EXPECT_THAT(books.intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());

  EXPECT_TRUE(Handled(lags->DeleteMember(kLag, Eth(1))));
  EXPECT_THAT(Members(20), IsEmpty());
  EXPECT_THAT(sim::chip().GroupMembers(group20), IsEmpty());
  EXPECT_THAT(Members(10), IsEmpty());
  EXPECT_FALSE(books.intfInfo().at(Eth(1)).inLAG);
  EXPECT_THAT(books.intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());

  // Events move the chip only: the shared table still holds what the callers asked for.
  EXPECT_THAT(table,
              ElementsAre(Pair(10, BookEntry{{Eth(1), false}}), Pair(20, BookEntry{{kLag, true}})));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(BridgeDomainLagEventsTest, JoiningLagWithoutVlansOnlyLeavesOwnVlans) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
  ClearRecords();

  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(1))));
  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(2))));
  EXPECT_THAT(Members(10), IsEmpty());
  EXPECT_THAT(Trace("bcm_vlan_gport_add"), IsEmpty());
  // A port never added directly gets no record.
  EXPECT_EQ(books.intfInfo().count(Eth(2)), 0u);
}

TEST_F(BridgeDomainLagEventsTest, PortWithoutEntryIsRefused) {
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  EXPECT_FALSE(Handled(lags->AddMember(kLag, Eth(9))));
  EXPECT_FALSE(Handled(lags->DeleteMember(kLag, Eth(9))));

  EXPECT_THAT(LogLines(), ElementsAre("log(3): HAL ID not found: eth1/9.",
                                      "log(3): HAL ID not found: eth1/9."));
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(books.intfInfo(), IsEmpty());
}

TEST_F(BridgeDomainLagEventsTest, FailureOnOneVlanDoesNotStopTheOthers) {
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  ASSERT_EQ(service->addMember(kVlan20, kLag, false, 0), 0);
  sim::chip().FailNext("bcm_vlan_gport_add", 1, BCM_E_FULL);

  EXPECT_FALSE(Handled(lags->AddMember(kLag, Eth(1))));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error adding gport 0x04000001 to VLAN 10: Table full."));
  EXPECT_THAT(Members(10), IsEmpty());
  EXPECT_EQ(sim::chip().GroupMembers(group10), GroupOf({1}));  // half-done, not rolled back
  EXPECT_EQ(Members(20), (ChipMembers{{1, true}}));

  ClearLog();
  sim::chip().FailNext("bcm_multicast_egress_delete", 1, BCM_E_FAIL);
  EXPECT_FALSE(Handled(lags->DeleteMember(kLag, Eth(1))));
  EXPECT_THAT(
      LogLines(),
      ElementsAre("log(3): Error removing encap ID 0x00008001 of gport 0x04000001 from "
                  "multicast group 0100000A: Operation failed.",
                  "log(3): Error removing gport 0x04000001 from VLAN 10 Replication Group."));
  EXPECT_EQ(sim::chip().GroupMembers(group10), GroupOf({1}));
  EXPECT_THAT(Members(20), IsEmpty());
}

TEST_F(BridgeDomainLagEventsTest, DeletedLagTakesEveryMemberOutAndIsForgottenByTheBooksOnly) {
  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(1))));
  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(2))));
  ASSERT_EQ(service->addMember(kVlan10, kLag, false, 0), 0);
  ASSERT_EQ(Members(10), (ChipMembers{{1, true}, {2, true}}));

  EXPECT_TRUE(Handled(lags->DeleteLag(kLag)));
  EXPECT_THAT(Members(10), IsEmpty());
  EXPECT_THAT(sim::chip().GroupMembers(group10), IsEmpty());
  EXPECT_THAT(books.lagMembership(), IsEmpty());
  EXPECT_EQ(table.at(10), (BookEntry{{kLag, false}}));
}

TEST_F(BridgeDomainLagEventsTest, DeletedLagGoesOnPastAFailingMember) {
  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(1))));
  EXPECT_TRUE(Handled(lags->AddMember(kLag, Eth(2))));
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  sim::chip().FailNext("bcm_vlan_gport_delete", 1, BCM_E_INTERNAL);

  EXPECT_FALSE(Handled(lags->DeleteLag(kLag)));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error removing gport 0x04000001 from VLAN 10: Internal error."));
  EXPECT_EQ(Members(10), (ChipMembers{{1, false}}));
  EXPECT_THAT(sim::chip().GroupMembers(group10), IsEmpty());
  EXPECT_THAT(books.lagMembership(), IsEmpty());
}

}  // namespace
