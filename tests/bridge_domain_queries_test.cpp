// Membership queries and the bulk removal: they read and change the chip, never the books.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bridge_domain_inspector.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

limid_t Eth(unsigned port) {
  return sim::EthernetPort(1, port);
}
const limid_t kVlan10 = sim::BridgeDomain(10);

// VLAN 10 holds eth1/1 tagged and eth1/2 untagged.
class BridgeDomainQueriesTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    group10 = sim::chip().CreateVlan(10);
    for (unsigned port = 1; port <= 3; ++port) {
      sim::common().AddPort(Eth(port), sim::LocalGport(port));
    }
    ASSERT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
    ASSERT_EQ(service->addMember(kVlan10, Eth(2), false, 0), 0);
    ClearRecords();
  }

  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance();
  bcm_multicast_t group10 = 0;
};

TEST_F(BridgeDomainQueriesTest, IsMemberReportsTheTaggingOnTheChip) {
  for (bool tagged : {true, false}) {
    bool member = false;
    bool isTagged = !tagged;
    unsigned int attributes = 9;
    EXPECT_EQ(service->isMember(kVlan10, Eth(tagged ? 1 : 2), member, isTagged, attributes), 0);
    EXPECT_TRUE(member);
    EXPECT_EQ(isTagged, tagged);
    EXPECT_EQ(attributes, 0u);
  }
}

TEST_F(BridgeDomainQueriesTest, IsMemberOfNonMemberLeavesTheOtherOutputsAlone) {
  bool member = true;
  bool tagged = true;
  unsigned int attributes = 9;
  EXPECT_EQ(service->isMember(kVlan10, Eth(3), member, tagged, attributes), 0);

  EXPECT_FALSE(member);
  EXPECT_TRUE(tagged);
  EXPECT_EQ(attributes, 9u);
  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_gport_get(0, 10, 0x4000003) = -7"));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(BridgeDomainQueriesTest, IsMemberFailuresAreLogged) {
  bool member = true;
  bool tagged = false;
  unsigned int attributes = 0;
  EXPECT_EQ(service->isMember(kVlan10, Eth(9), member, tagged, attributes), -1);
  EXPECT_FALSE(member);
  sim::chip().FailNext("bcm_vlan_gport_get", 1, BCM_E_PARAM);
  EXPECT_EQ(service->isMember(kVlan10, Eth(1), member, tagged, attributes), -1);

  EXPECT_THAT(
      LogLines(),
      ElementsAre("log(3): Error looking for eth1/9 at vlan10: HAL ID not found.",
                  "log(3): Error looking for eth1/1 (0x4000001) at vlan10: Invalid parameter."));
}

TEST_F(BridgeDomainQueriesTest, GetMembersMapsLocalAndModuleGportsBackToPorts) {
  for (bool moduleGports : {false, true}) {
    sim::chip().SetReportModuleGports(moduleGports);
    std::set<limid_t> members{sim::Lag(7)};
    unsigned int count = 0;
    EXPECT_EQ(service->getMembers(kVlan10, members), 0);
    EXPECT_EQ(members, (std::set<limid_t>{Eth(1), Eth(2)}));
    EXPECT_EQ(service->getNumMembers(kVlan10, count), 0);
    EXPECT_EQ(count, 2u);
  }
  EXPECT_EQ(Trace().front(), "bcm_vlan_gport_get_all(0, 10, 1024) = 0");
}

TEST_F(BridgeDomainQueriesTest, VlanUnknownToChipHasNoMembers) {
  std::set<limid_t> members{Eth(1)};
  unsigned int count = 5;
  EXPECT_EQ(service->getMembers(sim::BridgeDomain(30), members), 0);
  EXPECT_THAT(members, IsEmpty());
  EXPECT_EQ(service->getNumMembers(sim::BridgeDomain(30), count), 0);
  EXPECT_EQ(count, 0u);
}

TEST_F(BridgeDomainQueriesTest, GetMembersFailuresAreLoggedAndKeepWhatWasFound) {
  sim::chip().FailNext("bcm_vlan_gport_get_all", 2, BCM_E_INTERNAL);
  std::set<limid_t> members{Eth(3)};
  unsigned int count = 5;
  EXPECT_EQ(service->getMembers(kVlan10, members), -1);
  EXPECT_THAT(members, IsEmpty());
  EXPECT_EQ(service->getNumMembers(kVlan10, count), -1);
  EXPECT_EQ(count, 0u);

  // A member that the reverse table does not know ends the listing.
  ASSERT_EQ(bcm_vlan_gport_add(0, 10, sim::LocalGport(5), 0), 0);
  EXPECT_EQ(service->getMembers(kVlan10, members), -1);
  EXPECT_EQ(members, (std::set<limid_t>{Eth(1), Eth(2)}));

  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error retrieving members of vlan10: Internal error.",
                          "log(3): Error retrieving members of vlan10: Internal error.",
                          "log(3): Error retrieving members of vlan10: device ID not found."));
}

TEST_F(BridgeDomainQueriesTest, DelAllMembersEmptiesTheChipButNotTheBooks) {
  EXPECT_EQ(service->delAllMembers(kVlan10), 0);

  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x2000) = 0",
                                   "bcm_multicast_egress_delete_all(0, 0x100000a) = 0",
                                   "bcm_vlan_gport_delete_all(0, 10) = 0"));
  EXPECT_THAT(sim::chip().Vlan(10).members, IsEmpty());
  EXPECT_THAT(sim::chip().GroupMembers(group10), IsEmpty());
  EXPECT_EQ(sim::common().VlanMembers().at(10).size(), 2u);
  HalBcmBridgeDomainInspector books(*service);
  EXPECT_EQ(books.intfInfo().at(Eth(1)).bridgeDomains.count(kVlan10), 1u);
}

TEST_F(BridgeDomainQueriesTest, DelAllMembersOfVlanWithoutGroupSkipsReplication) {
  sim::chip().CreateVlan(20, false);
  EXPECT_EQ(service->delAllMembers(sim::BridgeDomain(20)), 0);
  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 20, 0x2000) = 0",
                                   "bcm_vlan_gport_delete_all(0, 20) = 0"));
}

struct DelAllFault {
  const char* function;
  const char* log;
  size_t groupLeft;  // members left in the replication group
};

class DelAllMembersFaultTest : public BridgeDomainQueriesTest,
                               public ::testing::WithParamInterface<DelAllFault> {};

TEST_P(DelAllMembersFaultTest, StopsAtTheFailingStep) {
  sim::chip().FailNext(GetParam().function, 1, BCM_E_BUSY);
  EXPECT_EQ(service->delAllMembers(kVlan10), -1);

  EXPECT_THAT(LogLines(), ElementsAre(GetParam().log));
  EXPECT_EQ(sim::chip().GroupMembers(group10).size(), GetParam().groupLeft);
  EXPECT_EQ(sim::chip().Vlan(10).members.size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    EachChipCall, DelAllMembersFaultTest,
    ::testing::Values(
        DelAllFault{
            "bcm_vlan_control_vlan_selective_get",
            "log(3): Error getting VLAN properties from VLAN vlan10: Operation still running.", 2},
        DelAllFault{"bcm_multicast_egress_delete_all",
                    "log(3): Error removing all egress members from group 0x0100000a from vlan10: "
                    "Operation still running.",
                    2},
        DelAllFault{"bcm_vlan_gport_delete_all",
                    "log(3): Error removing all from vlan10: Operation still running.", 0}));

}  // namespace
