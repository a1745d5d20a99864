// Adding and removing members: the service's books, the shared VLAN member table, the chip and the
// VLAN clients kept in step. Then the LAG events, after which a port in a LAG is a member of
// exactly the LAG's VLANs on the chip.
#include <stdexcept>

#include "service_fixtures.h"

namespace {

using ::testing::Pair;
using BridgeDomainMembership = BridgeDomainTest;

// Clients hear of an addition after the chip changed, of a removal before; a removal is announced
// even for an unknown port. The record and the table's entry stay, empty. A port of another chip is
// kept in the books only; its removal from a VLAN never used leaves an empty entry behind.
TEST_F(BridgeDomainMembership, PortJoinsReplicationGroupThenVlanAndLeavesAfterClientsAreTold) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(3), false, 77), 0);
  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x2000) = 0",
                                   "bcm_multicast_l2_encap_get(0, 0x100000a, 0x4000003, 0) = 0",
                                   "bcm_multicast_egress_add(0, 0x100000a, 0x4000003, 0x8003) = 0",
                                   "bcm_vlan_gport_add(0, 10, 0x4000003, 0x1) = 0"));
  ASSERT_EQ(service->addMember(kVlan10, Eth(4), true, 0), 0);
  ASSERT_EQ(service->addMember(kVlan10, Eth(8), false, 0), 0);
  EXPECT_EQ(Trace().size(), 8u);
  EXPECT_EQ(OnChip(10), "vlan 3u 4t | group 3 4");
  EXPECT_FALSE(Books().intfInfo().at(Eth(3)).inLAG);
  EXPECT_EQ(Books().intfInfo().at(Eth(3)).bridgeDomains, (BookEntry{{kVlan10, false}}));
  EXPECT_EQ(Books().intfInfo().at(Eth(4)).bridgeDomains, (BookEntry{{kVlan10, true}}));
  EXPECT_EQ(Books().intfInfo().at(Eth(8)).bridgeDomains, (BookEntry{{kVlan10, false}}));
  EXPECT_EQ(table.at(10), (BookEntry{{Eth(3), false}, {Eth(4), true}, {Eth(8), false}}));
  ClearRecords();

  ASSERT_EQ(service->delMember(kVlan10, Eth(3)), 0);
  EXPECT_EQ(service->delMember(kVlan10, Eth(9)), -1);
  ASSERT_EQ(service->delMember(sim::BridgeDomain(30), Eth(8)), 0);
  EXPECT_THAT(Trace(),
              ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x2000) = 0",
                          "bcm_multicast_l2_encap_get(0, 0x100000a, 0x4000003, 0) = 0",
                          "bcm_multicast_egress_delete(0, 0x100000a, 0x4000003, 0x8003) = 0",
                          "bcm_vlan_gport_delete(0, 10, 0x4000003) = 0"));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): HAL ID not found: eth1/9."));
  EXPECT_THAT(notes, ElementsAre("add 10 eth1/3 untagged", "add 10 eth1/4 tagged",
                                 "add 10 eth1/8 untagged", "remove 10 eth1/3 after 0 chip removals",
                                 "remove 10 eth1/9 after 2 chip removals",
                                 "remove 30 eth1/8 after 2 chip removals"));
  EXPECT_EQ(OnChip(10), "vlan 4t | group 4");
  EXPECT_THAT(Books().intfInfo().at(Eth(3)).bridgeDomains, IsEmpty());
  EXPECT_THAT(table, ElementsAre(Pair(10, BookEntry{{Eth(4), true}, {Eth(8), false}}),
                                 Pair(30, IsEmpty())));
}

// The second round starts from removals, whose erased entries leave nodes for the adds to reuse.
TEST_F(BridgeDomainMembership, RepeatedAddKeepsFirstFlagInBooksAndLastInSharedTable) {
  sim::chip().CreateVlan(30, false);  // no replication group, so the chip accepts a second add
  for (const bool afterRemoval : {false, true}) {
    SCOPED_TRACE(afterRemoval ? "after a removal" : "fresh");
    if (afterRemoval) {  // four erased entries: the second add still finds a node kept
      ASSERT_EQ(service->addMember(sim::BridgeDomain(30), Eth(2), false, 0), 0);
      ASSERT_EQ(service->delMember(sim::BridgeDomain(30), Eth(2)), 0);
      ASSERT_EQ(service->delMember(sim::BridgeDomain(30), Eth(1)), 0);
    }
    ClearRecords();
    ASSERT_EQ(service->addMember(sim::BridgeDomain(30), Eth(1), false, 0), 0);
    ASSERT_EQ(service->addMember(sim::BridgeDomain(30), Eth(1), true, 0), 0);

    EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 30, 0x2000) = 0",
                                     "bcm_vlan_gport_add(0, 30, 0x4000001, 0x1) = 0",
                                     "bcm_vlan_control_vlan_selective_get(0, 30, 0x2000) = 0",
                                     "bcm_vlan_gport_add(0, 30, 0x4000001, 0x0) = 0"));
    EXPECT_EQ(Books().intfInfo().at(Eth(1)).bridgeDomains,
              (BookEntry{{sim::BridgeDomain(30), false}}));
    EXPECT_EQ(table.at(30), (BookEntry{{Eth(1), true}}));
  }
}

// A port moved out of twenty VLANs and back: the removals past the sixteen nodes that the service
// keeps erase as the others do, and the adds take the kept nodes first.
TEST_F(BridgeDomainMembership, ManyRemovalsInARowAllEraseAndTheAddsAfterThemAllRecord) {
  const int kVlans = 20;
  for (int vlan = 100; vlan < 100 + kVlans; ++vlan) {
    sim::chip().CreateVlan(static_cast<uint16_t>(vlan), false);
    ASSERT_EQ(service->addMember(sim::BridgeDomain(vlan), Eth(1), true, 0), 0);
  }
  for (int vlan = 100; vlan < 100 + kVlans; ++vlan)
    ASSERT_EQ(service->delMember(sim::BridgeDomain(vlan), Eth(1)), 0);
  EXPECT_THAT(Books().intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());
  for (int vlan = 100; vlan < 100 + kVlans; ++vlan) {
    EXPECT_THAT(table.at(static_cast<uint16_t>(vlan)), IsEmpty()) << vlan;
    EXPECT_THAT(sim::chip().Vlan(static_cast<uint16_t>(vlan)).members, IsEmpty()) << vlan;
  }

  for (int vlan = 100; vlan < 100 + kVlans; ++vlan)
    ASSERT_EQ(service->addMember(sim::BridgeDomain(vlan), Eth(1), false, 0), 0);
  EXPECT_EQ(Books().intfInfo().at(Eth(1)).bridgeDomains.size(), size_t{kVlans});
  for (int vlan = 100; vlan < 100 + kVlans; ++vlan)
    EXPECT_EQ(table.at(static_cast<uint16_t>(vlan)), (BookEntry{{Eth(1), false}})) << vlan;
}

// Nothing is rolled back: ports programmed before the failure stay on the chip. The books, the
// shared table and the clients learn of complete successes only.
TEST_F(BridgeDomainMembership, FailedAddIsRecordedNowhereButLeavesTheChipHalfDone) {
  EXPECT_EQ(service->addMember(kVlan10, Eth(9), true, 0), -1);
  sim::chip().FailNext("bcm_vlan_gport_add", 1, BCM_E_FULL);
  EXPECT_EQ(service->addMember(kVlan10, Eth(1), true, 0), -1);
  // A LAG goes on past a chip failure and an unknown member.
  ListMembers({2, 3, 9});
  sim::chip().FailNext("bcm_vlan_gport_add", 1, BCM_E_INTERNAL);
  EXPECT_EQ(service->addMember(kVlan20, kLag, false, 0), -1);

  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): HAL ID not found: eth1/9.",
                          "log(3): Error adding gport 0x04000001 to VLAN 10: Table full.",
                          "log(3): Error adding gport 0x04000002 to VLAN 20: Internal "
                          "error.",
                          "log(3): HAL ID not found: eth1/9."));
  EXPECT_EQ(OnChip(10), "vlan | group 1");
  EXPECT_EQ(OnChip(20), "vlan 3u | group 2 3");
  // The record of the port that was found stays, without the VLAN.
  EXPECT_EQ(Books().intfInfo().count(Eth(9)), 0u);
  EXPECT_THAT(Books().intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());
  EXPECT_THAT(Books().lagMembership(), IsEmpty());
  EXPECT_THAT(table, IsEmpty());
  EXPECT_THAT(notes, IsEmpty());
}

// A member on another chip is left alone. A forgotten LAG fails only after the table and the
// clients have been told.
TEST_F(BridgeDomainMembership, LagIsProgrammedPerMemberButRecordedAsTheLagOnly) {
  ListMembers({1, 2, 8});
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  ASSERT_EQ(service->addMember(kVlan20, kLag, true, 0), 0);
  EXPECT_EQ(OnChip(10), "vlan 1t 2t | group 1 2");
  EXPECT_EQ(Books().lagMembership().at(kLag), (BookEntry{{kVlan10, true}, {kVlan20, true}}));
  EXPECT_THAT(Books().intfInfo(), IsEmpty());
  EXPECT_EQ(table.at(10), (BookEntry{{kLag, true}}));
  EXPECT_THAT(notes, ElementsAre("add 10 lag1 tagged", "add 20 lag1 tagged"));

  // The removal walks on past a member missing from the port table and a refused chip removal.
  ListMembers({9});
  sim::chip().FailNext("bcm_vlan_gport_delete", 1, BCM_E_INTERNAL);
  EXPECT_EQ(service->delMember(kVlan10, kLag), -1);
  EXPECT_EQ(OnChip(10), "vlan 1t | group");
  EXPECT_EQ(Books().lagMembership().at(kLag), (BookEntry{{kVlan20, true}}));

  sim::common().ForgetLag(kLag);
  EXPECT_EQ(service->delMember(kVlan20, kLag), -1);

  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error removing gport 0x04000001 from VLAN 10: Internal error.",
                          "log(3): HAL ID not found: eth1/9.",
                          "log(3): delMember Couldn't find members for LAG lag1. "
                          "Likely already removed by Lag orchestrator"));
  EXPECT_THAT(table, ElementsAre(Pair(10, IsEmpty()), Pair(20, IsEmpty())));
  EXPECT_EQ(notes.back(), "remove 20 lag1 after 4 chip removals");
  EXPECT_EQ(Books().lagMembership().at(kLag), (BookEntry{{kVlan20, true}}));
  EXPECT_EQ(OnChip(20), "vlan 1t 2t | group 1 2");
}

// A client's exception reaches the caller: an addition has changed the chip, the books and the
// table by then, a removal only the table.
TEST_F(BridgeDomainMembership, ClientThrowingLeavesWhatWasDoneBeforeIt) {
  bool throwing = false;
  const auto maybeThrow = [&throwing] {
    if (throwing)
      throw std::runtime_error("client failed");
    return true;
  };
  service->GetVlanOrchestrator()->RegisterClient(
      20, "thrower",
      {[&](const unsigned short&, const limid_t&, bool) { return maybeThrow(); },
       [&](const unsigned short&, const limid_t&) { return maybeThrow(); }});
  for (bool adding : {true, false}) {
    SCOPED_TRACE(adding ? "adding" : "removing");
    throwing = false;
    if (!adding) {
      ASSERT_EQ(service->addMember(kVlan10, Eth(3), false, 0), 0);
    }
    throwing = true;
    EXPECT_THROW(adding ? service->addMember(kVlan10, Eth(3), false, 0)
                        : service->delMember(kVlan10, Eth(3)),
                 std::runtime_error);
    EXPECT_EQ(OnChip(10), "vlan 3u | group 3");
    EXPECT_EQ(Books().intfInfo().at(Eth(3)).bridgeDomains, (BookEntry{{kVlan10, false}}));
    EXPECT_EQ(table.at(10), (adding ? BookEntry{{Eth(3), false}} : BookEntry{}));
    EXPECT_EQ(notes, Lines{"add 10 eth1/3 untagged"});  // the observer comes first only when adding
    bcm_multicast_egress_delete_all(0, group10);
    bcm_vlan_gport_delete_all(0, 10);
    Books().intfInfo().clear();
    notes.clear();
  }
}

TEST_F(BridgeDomainMembership, DirectChangesOfPortInLagAssertAndCarryOn) {
  Books().intfInfo()[Eth(1)].inLAG = true;
  EXPECT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
  EXPECT_EQ(OnChip(10), "vlan 1t | group 1");
  EXPECT_EQ(service->delMember(kVlan10, Eth(1)), 0);

  Lines asserted;
  for (const sim::AssertRecord& a : sim::Assertions())
    asserted.push_back(a.expression + " at " + a.file + ":" + std::to_string(a.line));
  EXPECT_THAT(asserted, ElementsAre("!member_it.inLAG at src/hal_bcm_bridge_domain:359",
                                    "!it->second.inLAG at src/hal_bcm_bridge_domain:483"));
  EXPECT_EQ(OnChip(10), "vlan | group");
}

// ---- LAG events --------------------------------------------------------------------------------

TEST_F(BridgeDomainMembership, JoiningPortSwapsItsVlansForTheLagsAndLeavingDoesNotRestoreThem) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(1), false, 0), 0);
  ASSERT_EQ(service->addMember(kVlan20, kLag, true, 0), 0);

  EXPECT_TRUE(Join(1));
  EXPECT_EQ(OnChip(10), "vlan | group");
  EXPECT_EQ(OnChip(20), "vlan 1t | group 1");
  EXPECT_TRUE(Books().intfInfo().at(Eth(1)).inLAG);
  EXPECT_THAT(Books().intfInfo().at(Eth(1)).bridgeDomains, IsEmpty());

  EXPECT_TRUE(Leave(1));
  EXPECT_EQ(OnChip(10), "vlan | group");
  EXPECT_EQ(OnChip(20), "vlan | group");
  EXPECT_FALSE(Books().intfInfo().at(Eth(1)).inLAG);

  // Events move the chip only: the shared table still holds what the callers asked for.
  EXPECT_THAT(table,
              ElementsAre(Pair(10, BookEntry{{Eth(1), false}}), Pair(20, BookEntry{{kLag, true}})));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(BridgeDomainMembership, JoiningLagWithoutVlansOnlyLeavesOwnVlans) {
  ASSERT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
  ClearRecords();

  EXPECT_TRUE(Join(1));
  EXPECT_TRUE(Join(2));
  EXPECT_TRUE(Leave(2));
  EXPECT_EQ(OnChip(10), "vlan | group");
  EXPECT_THAT(Trace("bcm_vlan_gport_add"), IsEmpty());
  EXPECT_EQ(Trace("bcm_vlan_gport_delete").size(), 1u);
  // A port never added directly gets no record; one missing from the port table is refused.
  EXPECT_EQ(Books().intfInfo().count(Eth(2)), 0u);
  EXPECT_FALSE(Join(9));
  EXPECT_FALSE(Leave(9));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): HAL ID not found: eth1/9.",
                                      "log(3): HAL ID not found: eth1/9."));
}

TEST_F(BridgeDomainMembership, FailureOnOneVlanDoesNotStopTheOthers) {
  ASSERT_EQ(service->addMember(kVlan10, kLag, true, 0), 0);
  ASSERT_EQ(service->addMember(kVlan20, kLag, false, 0), 0);
  sim::chip().FailNext("bcm_vlan_gport_add", 1, BCM_E_FULL);

  EXPECT_FALSE(Join(1));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error adding gport 0x04000001 to VLAN 10: Table full."));
  EXPECT_EQ(OnChip(10), "vlan | group 1");  // half-done, not rolled back
  EXPECT_EQ(OnChip(20), "vlan 1u | group 1");

  ClearLog();
  sim::chip().FailNext("bcm_multicast_egress_delete", 1, BCM_E_FAIL);
  EXPECT_FALSE(Leave(1));
  EXPECT_THAT(
      LogLines(),
      ElementsAre("log(3): Error removing encap ID 0x00008001 of gport 0x04000001 from "
                  "multicast group 0100000A: Operation failed.",
                  "log(3): Error removing gport 0x04000001 from VLAN 10 Replication Group."));
  EXPECT_EQ(OnChip(10), "vlan | group 1");
  EXPECT_EQ(OnChip(20), "vlan | group");
}

// Only the books forget a deleted LAG; the shared table keeps listing it.
TEST_F(BridgeDomainMembership, DeletedLagTakesEveryMemberOutEvenPastAFailure) {
  EXPECT_TRUE(Join(1));
  EXPECT_TRUE(Join(2));
  ASSERT_EQ(service->addMember(kVlan10, kLag, false, 0), 0);
  ASSERT_EQ(OnChip(10), "vlan 1u 2u | group 1 2");
  sim::chip().FailNext("bcm_vlan_gport_delete", 1, BCM_E_INTERNAL);

  EXPECT_FALSE(Handled(lags->DeleteLag(kLag)));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error removing gport 0x04000001 from VLAN 10: Internal error."));
  EXPECT_EQ(OnChip(10), "vlan 1u | group");
  EXPECT_THAT(Books().lagMembership(), IsEmpty());
  EXPECT_EQ(table.at(10), (BookEntry{{kLag, false}}));
}

}  // namespace
