// The bridge domain's chip-level steps: one port joining and leaving a VLAN (replication group
// first, no roll-back), the VLAN properties, the membership queries and the bulk removal.
#include <cstdio>

#include "service_fixtures.h"

namespace {

class BridgeDomainChip : public BridgeDomainTest {
 protected:
  int ChangeProperty(bool add, int property, unsigned int value) {
    const auto p = static_cast<en_HalVlanProperty>(property);
    const auto v = static_cast<en_HalVlanPropValue>(value);
    return add ? service->AddPropertyValue(kVlan10, p, v)
               : service->RemovePropertyValue(kVlan10, p, v);
  }
};

const int kGport = sim::LocalGport(3);

// The chip answers on unit 0 only, so success shows that the unit argument was not used.
TEST_F(BridgeDomainChip, VlanWithoutGroupSkipsReplicationAndTheUnitArgumentIsIgnored) {
  sim::chip().CreateVlan(30, false);
  EXPECT_EQ(service->addPhysicalPort(5, kGport, 30, false), 0);
  EXPECT_EQ(Members(30), (std::map<int, bool>{{3, true}}));
  EXPECT_EQ(service->delPhysicalPort(5, kGport, 30), 0);
  EXPECT_EQ(service->delAllMembers(sim::BridgeDomain(30)), 0);

  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 30, 0x2000) = 0",
                                   "bcm_vlan_gport_add(0, 30, 0x4000003, 0x1) = 0",
                                   "bcm_vlan_control_vlan_selective_get(0, 30, 0x2000) = 0",
                                   "bcm_vlan_gport_delete(0, 30, 0x4000003) = 0",
                                   "bcm_vlan_control_vlan_selective_get(0, 30, 0x2000) = 0",
                                   "bcm_vlan_gport_delete_all(0, 30) = 0"));
}

TEST_F(BridgeDomainChip, FailingStepLeavesThePortWhereItGotTo) {
  const std::string add = "log(3): Error adding ", remove = "log(3): Error removing ";
  const std::string gport = "gport 0x04000003", why = ": No resources for operation.";
  const std::string group = "multicast group 0100000A", encap = "encap ID 0x00008003 of " + gport;
  const std::string groupRead = "log(3): Error getting VLAN properties from VLAN 10" + why;
  const std::string encapRead = "log(3): Error getting encap ID from " + gport + " for " + group;
  const std::string encapAdd = add + encap + " to " + group + why;
  const std::string encapRemove = remove + encap + " from " + group + why;
  const std::string addGroup = add + gport + " to VLAN 10 Replication Group.";
  const std::string delGroup = remove + gport + " from VLAN 10 Replication Group.";
  const struct {
    bool remove, inGroup, inVlan;  // removing rather than adding; where the port is left
    const char* function;
    Lines log;
  } cases[] = {
      {false, false, false, "bcm_vlan_control_vlan_selective_get", {groupRead, addGroup}},
      {false, false, false, "bcm_multicast_l2_encap_get", {encapRead + why, addGroup}},
      {false, false, false, "bcm_multicast_egress_add", {encapAdd, addGroup}},
      {false, true, false, "bcm_vlan_gport_add", {add + gport + " to VLAN 10" + why}},
      {true, true, true, "bcm_vlan_control_vlan_selective_get", {groupRead, delGroup}},
      {true, true, true, "bcm_multicast_l2_encap_get", {encapRead + why, delGroup}},
      {true, true, true, "bcm_multicast_egress_delete", {encapRemove, delGroup}},
      {true, false, true, "bcm_vlan_gport_delete", {remove + gport + " from VLAN 10" + why}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.remove ? "removing, " : "adding, ") << c.function);
    if (c.remove) {
      ASSERT_EQ(service->bcmAddMember(kGport, kVlan10, true), 0);
    }
    sim::chip().FailNext(c.function, 1, BCM_E_RESOURCE);
    EXPECT_EQ(c.remove ? service->bcmDelMember(kGport, kVlan10)
                       : service->bcmAddMember(kGport, kVlan10, true),
              -1);
    EXPECT_EQ(LogLines(), c.log);
    EXPECT_EQ(sim::chip().GroupMembers(group10).size(), c.inGroup ? 1u : 0u);
    EXPECT_EQ(Members(10).count(3), c.inVlan ? 1u : 0u);
    bcm_multicast_egress_delete_all(0, group10);
    bcm_vlan_gport_delete_all(0, 10);
    ClearRecords();
  }
}

// ---- VLAN properties ---------------------------------------------------------------------------

// DHCP is read and written selectively, snooping as the whole record; both are written back even
// when nothing changed.
TEST_F(BridgeDomainChip, PropertiesChangeOnlyTheirOwnBits) {
  // DHCP takes the bits 0x1 and 0x4 of the value; snooping is on while flag 0x800 is clear.
  const struct {
    bool add;
    int property;
    unsigned int value;
    uint32_t flagsBefore, dhcpBefore, flagsAfter, dhcpAfter;
  } cases[] = {{true, 0, 0x5, 0x1, 0x0, 0x1, 0x5},     {true, 0, 0x2, 0x0, 0x10, 0x0, 0x10},
               {true, 0, 0xff, 0x0, 0x0, 0x0, 0x5},    {false, 0, 0x1, 0x0, 0x15, 0x0, 0x14},
               {false, 0, 0xfe, 0x0, 0x15, 0x0, 0x11}, {true, 1, 0x5, 0x801, 0x5, 0x1, 0x5},
               {true, 1, 0x0, 0x0, 0x0, 0x0, 0x0},     {false, 1, 0x1, 0x1, 0x4, 0x801, 0x4}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.add << " " << c.property << " " << c.value);
    ASSERT_EQ(bcm_vlan_control_vlan_set(0, 10, {c.flagsBefore, group10, {c.dhcpBefore}}), 0);
    ClearRecords();
    EXPECT_EQ(ChangeProperty(c.add, c.property, c.value), 0);
    const bcm_vlan_control_vlan_t& control = sim::chip().Vlan(10).control;
    EXPECT_EQ(
        std::make_tuple(control.flags, control.protocol_pkt.dhcp_action, control.broadcast_group),
        std::make_tuple(c.flagsAfter, c.dhcpAfter, group10));
    char record[80];
    std::snprintf(record, sizeof record,
                  "{flags=0x%x, broadcast_group=0x100000a, dhcp_action=0x%x}", c.flagsAfter,
                  c.dhcpAfter);
    char dhcpOnly[80];  // the selective record carries the DHCP action alone
    std::snprintf(dhcpOnly, sizeof dhcpOnly, "{flags=0x0, broadcast_group=0x0, dhcp_action=0x%x}",
                  c.dhcpAfter);
    const Lines dhcp = {
        "bcm_vlan_control_vlan_selective_get(0, 10, 0x80000) = 0",
        "bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, " + std::string(dhcpOnly) + ") = 0"};
    const Lines igmp = {"bcm_vlan_control_vlan_get(0, 10) = 0",
                        "bcm_vlan_control_vlan_set(0, 10, " + std::string(record) + ") = 0"};
    EXPECT_EQ(Trace(), c.property == 0 ? dhcp : igmp);
  }
}

TEST_F(BridgeDomainChip, FailedPropertyChangeLeavesTheRecordAsItWas) {
  ASSERT_EQ(bcm_vlan_control_vlan_set(0, 10, {0x1, group10, {0x10}}), 0);
  for (bool add : {true, false}) {
    for (int property : {HAL_VLAN_PROPERTY_DHCP, HAL_VLAN_PROPERTY_IGMP_SNOOPING}) {
      for (bool write : {false, true}) {
        const std::string function = std::string("bcm_vlan_control_vlan_") +
                                     (property == HAL_VLAN_PROPERTY_DHCP ? "selective_" : "") +
                                     (write ? "set" : "get");
        SCOPED_TRACE(testing::Message() << add << " " << function);
        sim::chip().FailNext(function, 1, BCM_E_TIMEOUT);
        EXPECT_EQ(ChangeProperty(add, property, 0x5), -1);
        EXPECT_EQ(TakeLog(), Lines{std::string("log(3): Error ") + (write ? "setting" : "getting") +
                                   " vlan control of 10: Operation timed out."});
        const bcm_vlan_control_vlan_t& control = sim::chip().Vlan(10).control;
        EXPECT_EQ(std::make_tuple(control.flags, control.protocol_pkt.dhcp_action),
                  std::make_tuple(0x1u, 0x10u));
      }
    }
  }
  EXPECT_EQ(ChangeProperty(true, 2, 0x5), -1);
  EXPECT_EQ(ChangeProperty(false, 7, 0x5), -1);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Unsupported property 2", "log(3): Unsupported property 7"));
}

// ---- Queries and bulk removal: they read and change the chip, never the books -------------

class BridgeDomainQueries : public BridgeDomainTest {
 protected:
  // VLAN 10 holds eth1/1 tagged and eth1/2 untagged.
  void SetUp() override {
    BridgeDomainTest::SetUp();
    ASSERT_EQ(service->addMember(kVlan10, Eth(1), true, 0), 0);
    ASSERT_EQ(service->addMember(kVlan10, Eth(2), false, 0), 0);
    ClearRecords();
  }
};

// A non-member leaves the other outputs alone.
TEST_F(BridgeDomainQueries, IsMemberReadsTheTaggingFromTheChip) {
  const std::tuple<unsigned, int, bool, bool> cases[] = {
      {1, 0, true, true}, {2, 0, true, false}, {3, 0, false, true}, {9, -1, false, true}};
  for (const auto& [port, rc, member, tagged] : cases) {
    bool isMember = !member, isTagged = true;
    unsigned int attributes = 9;
    EXPECT_EQ(service->isMember(kVlan10, Eth(port), isMember, isTagged, attributes), rc);
    EXPECT_EQ(std::make_tuple(isMember, isTagged, attributes),
              std::make_tuple(member, tagged, member ? 0u : 9u))
        << port;
  }
  sim::chip().FailNext("bcm_vlan_gport_get", 1, BCM_E_PARAM);
  bool member = true, tagged = true;
  unsigned int attributes = 0;
  EXPECT_EQ(service->isMember(kVlan10, Eth(1), member, tagged, attributes), -1);
  EXPECT_THAT(
      LogLines(),
      ElementsAre("log(3): Error looking for eth1/9 at vlan10: HAL ID not found.",
                  "log(3): Error looking for eth1/1 (0x4000001) at vlan10: Invalid parameter."));
}

TEST_F(BridgeDomainQueries, GetMembersMapsGportsBackToPortsAndReportsFailures) {
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
  // A VLAN unknown to the chip has no members.
  std::set<limid_t> members{Eth(1)};
  EXPECT_EQ(service->getMembers(sim::BridgeDomain(30), members), 0);
  EXPECT_THAT(members, IsEmpty());

  sim::chip().FailNext("bcm_vlan_gport_get_all", 1, BCM_E_INTERNAL);
  unsigned int count = 5;
  EXPECT_EQ(service->getNumMembers(kVlan10, count), -1);
  EXPECT_EQ(count, 0u);
  // A member that the reverse table does not know ends the listing; what was found is kept.
  ASSERT_EQ(bcm_vlan_gport_add(0, 10, sim::LocalGport(5), 0), 0);
  EXPECT_EQ(service->getMembers(kVlan10, members), -1);
  EXPECT_EQ(members, (std::set<limid_t>{Eth(1), Eth(2)}));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error retrieving members of vlan10: Internal error.",
                          "log(3): Error retrieving members of vlan10: device ID not found."));
}

// A failing step stops the removal; a complete one empties the chip but not the books.
TEST_F(BridgeDomainQueries, DelAllMembersEmptiesTheChipUpToAFailingStep) {
  const struct {
    const char* function;
    const char* log;
    size_t groupLeft;  // members left in the replication group
  } cases[] = {
      {"bcm_vlan_control_vlan_selective_get",
       "log(3): Error getting VLAN properties from VLAN vlan10: Operation still running.", 2},
      {"bcm_multicast_egress_delete_all",
       "log(3): Error removing all egress members from group 0x0100000a from vlan10: Operation "
       "still running.",
       2},
      {"bcm_vlan_gport_delete_all",
       "log(3): Error removing all from vlan10: Operation still running.", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.function);
    sim::chip().FailNext(c.function, 1, BCM_E_BUSY);
    EXPECT_EQ(service->delAllMembers(kVlan10), -1);
    EXPECT_EQ(TakeLog(), Lines{c.log});
    EXPECT_EQ(sim::chip().GroupMembers(group10).size(), c.groupLeft);
    EXPECT_EQ(Members(10).size(), 2u);
  }
  EXPECT_EQ(service->delAllMembers(kVlan10), 0);
  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x2000) = 0",
                                   "bcm_multicast_egress_delete_all(0, 0x100000a) = 0",
                                   "bcm_vlan_gport_delete_all(0, 10) = 0"));
  EXPECT_THAT(Members(10), IsEmpty());
  EXPECT_EQ(table.at(10).size(), 2u);
  EXPECT_EQ(Books().intfInfo().at(Eth(1)).bridgeDomains.count(kVlan10), 1u);
}

}  // namespace
