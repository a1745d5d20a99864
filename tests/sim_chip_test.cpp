// The simulated chip's own semantics: as strict as the chip, with its codes, fault plan and trace.
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class SimChipTest : public SimTest {};

TEST_F(SimChipTest, ResetLeavesADefaultChipAndEmptyRecords) {
  bcm_port_tpid_set(0, 3, 0x88a8);
  sim::chip().CreateVlan(10);
  sim::chip().FailNext("bcm_port_tpid_set", 1, BCM_E_FAIL);
  _sal_assert("x", "f", 1);
  sim::Reset();

  const sim::PortState& port = sim::chip().Port(3);
  EXPECT_EQ(port.outerTpid, 0x8100);
  EXPECT_EQ(port.innerTpid, 0x9100);
  EXPECT_EQ(port.untaggedVlan, 1);
  EXPECT_EQ(port.egressClass, 3u);
  EXPECT_THAT(sim::chip().Vlans(), IsEmpty());
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(sim::Assertions(), IsEmpty());
  EXPECT_EQ(bcm_port_tpid_set(0, 3, 0x9100), BCM_E_NONE);  // the fault plan is gone too
  ASSERT_NE(soc_control[0], nullptr);
  EXPECT_NE(soc_control[0]->xlate_pkt_prio, 0u);
}

TEST_F(SimChipTest, PortArgumentsAcceptNumbersAndGportsOfThisChipOnly) {
  const struct {
    int port;
    int rc;
  } cases[] = {{5, BCM_E_NONE},
               {sim::LocalGport(5), BCM_E_NONE},
               {sim::ModuleGport(0, 5), BCM_E_NONE},
               {sim::ModuleGport(1, 5), BCM_E_PORT},
               {sim::TrunkGport(5), BCM_E_PORT},
               {sim::LocalGport(5) | 0x200000, BCM_E_PORT},
               {sim::Chip::kNumPorts, BCM_E_PORT},
               {-1, BCM_E_PORT}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.port);
    EXPECT_EQ(bcm_port_untagged_vlan_set(0, c.port, 20), c.rc);
  }
  EXPECT_EQ(sim::chip().Port(5).untaggedVlan, 20);
}

TEST_F(SimChipTest, PortSettersRefuseValuesOutsideTheirRange) {
  EXPECT_EQ(bcm_port_untagged_vlan_set(0, 1, 4096), BCM_E_PARAM);
  EXPECT_EQ(bcm_port_untagged_vlan_set(0, 1, 4095), BCM_E_NONE);
  EXPECT_EQ(bcm_port_untagged_priority_set(0, 1, 8), BCM_E_PARAM);
  EXPECT_EQ(bcm_port_untagged_priority_set(0, 1, -1), BCM_E_PARAM);
  EXPECT_EQ(bcm_port_dtag_mode_set(0, 1, 3), BCM_E_PARAM);
  EXPECT_EQ(bcm_port_discard_set(0, 1, 4), BCM_E_PARAM);
  EXPECT_EQ(bcm_port_class_set(0, 1, static_cast<bcm_port_class_t>(1), 5), BCM_E_PARAM);
  EXPECT_EQ(bcm_vlan_control_port_set(0, 1, bcmVlanPortTranslateKeyFirst, 3), BCM_E_PARAM);
  EXPECT_EQ(bcm_vlan_control_port_set(0, 1, static_cast<bcm_vlan_control_port_t>(13), 8),
            BCM_E_PARAM);
  const sim::PortState& port = sim::chip().Port(1);
  EXPECT_EQ(port.untaggedVlan, 4095);
  EXPECT_EQ(port.untaggedPriority, 0);
  EXPECT_EQ(port.dtagMode, 0);
  EXPECT_EQ(port.discardMode, 0);
  EXPECT_EQ(port.keyFirst, bcmVlanTranslateKeyPortDouble);
}

TEST_F(SimChipTest, PortStateHoldsWhatWasWritten) {
  ASSERT_EQ(bcm_port_tpid_set(0, 2, 0x88a8), 0);
  ASSERT_EQ(bcm_port_inner_tpid_set(0, 2, 0x8100), 0);
  ASSERT_EQ(bcm_port_dtag_mode_set(0, 2, BCM_PORT_DTAG_MODE_EXTERNAL), 0);
  ASSERT_EQ(bcm_port_discard_set(0, 2, BCM_PORT_DISCARD_UNTAG), 0);
  ASSERT_EQ(bcm_port_class_set(0, 2, bcmPortClassVlanTranslateEgress, 122), 0);
  ASSERT_EQ(bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeySecond, 9), 0);
  uint32_t portClass = 0;
  ASSERT_EQ(bcm_port_class_get(0, sim::LocalGport(2), bcmPortClassVlanTranslateEgress, &portClass),
            0);
  EXPECT_EQ(portClass, 122u);
  const sim::PortState& port = sim::chip().Port(2);
  EXPECT_EQ(port.outerTpid, 0x88a8);
  EXPECT_EQ(port.innerTpid, 0x8100);
  EXPECT_EQ(port.dtagMode, BCM_PORT_DTAG_MODE_EXTERNAL);
  EXPECT_EQ(port.discardMode, BCM_PORT_DISCARD_UNTAG);
  EXPECT_EQ(port.keySecond, bcmVlanTranslateKeyPortInner);
}

TEST_F(SimChipTest, VlanMembershipNeedsAnExistingVlanAndKnowsItsMembers) {
  EXPECT_EQ(bcm_vlan_gport_add(0, 10, sim::LocalGport(3), 0), BCM_E_NOT_FOUND);
  sim::chip().CreateVlan(10);
  EXPECT_EQ(bcm_vlan_gport_add(0, 10, sim::LocalGport(3), BCM_VLAN_GPORT_ADD_UNTAGGED), 0);
  EXPECT_EQ(bcm_vlan_gport_add(0, 10, sim::LocalGport(1), 0), 0);
  EXPECT_THAT(sim::chip().Vlan(10).members, ElementsAre(Pair(1, false), Pair(3, true)));

  // Adding again only changes the untagged flag.
  EXPECT_EQ(bcm_vlan_gport_add(0, 10, sim::ModuleGport(0, 3), 0), 0);
  int flags = -1;
  EXPECT_EQ(bcm_vlan_gport_get(0, 10, sim::LocalGport(3), &flags), 0);
  EXPECT_EQ(flags, 0);
  EXPECT_EQ(bcm_vlan_gport_get(0, 10, sim::LocalGport(4), &flags), BCM_E_NOT_FOUND);
  EXPECT_EQ(bcm_vlan_gport_delete(0, 10, sim::LocalGport(4)), BCM_E_NOT_FOUND);
  EXPECT_EQ(bcm_vlan_gport_delete(0, 10, sim::LocalGport(1)), 0);
  EXPECT_THAT(sim::chip().Vlan(10).members, ElementsAre(Pair(3, false)));
  EXPECT_EQ(bcm_vlan_gport_delete_all(0, 10), 0);
  EXPECT_THAT(sim::chip().Vlan(10).members, IsEmpty());
  EXPECT_EQ(bcm_vlan_gport_delete_all(0, 11), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, GetAllReportsLocalOrModuleGportsUpToTheArraySize) {
  sim::chip().CreateVlan(10);
  for (int port : {7, 2, 5}) bcm_vlan_gport_add(0, 10, sim::LocalGport(port), port == 5);
  bcm_gport_t gports[4] = {};
  int flags[4] = {};
  int count = 0;
  ASSERT_EQ(bcm_vlan_gport_get_all(0, 10, 4, gports, flags, &count), 0);
  ASSERT_EQ(count, 3);
  EXPECT_THAT(gports, ElementsAre(sim::LocalGport(2), sim::LocalGport(5), sim::LocalGport(7), 0));
  EXPECT_THAT(flags, ElementsAre(0, 1, 0, 0));

  sim::chip().SetReportModuleGports(true);
  ASSERT_EQ(bcm_vlan_gport_get_all(0, 10, 2, gports, flags, &count), 0);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(gports[0], sim::ModuleGport(0, 2));
  EXPECT_EQ(bcm_vlan_gport_get_all(0, 11, 4, gports, flags, &count), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, SelectiveControlAccessTouchesOnlyTheMaskedFields) {
  const bcm_multicast_t group = sim::chip().CreateVlan(10);
  EXPECT_EQ(group, 0x100000a);
  bcm_vlan_control_vlan_t control{};
  control.flags = 0x1234;
  control.protocol_pkt.dhcp_action = 0x5;
  ASSERT_EQ(bcm_vlan_control_vlan_selective_get(0, 10, 0x2000, &control), 0);
  EXPECT_EQ(control.broadcast_group, group);
  EXPECT_EQ(control.flags, 0x1234u);  // not asked for, left as it was
  EXPECT_EQ(control.protocol_pkt.dhcp_action, 0x5u);

  control.broadcast_group = 0;
  ASSERT_EQ(bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, &control), 0);
  EXPECT_EQ(sim::chip().Vlan(10).control.protocol_pkt.dhcp_action, 0x5u);
  EXPECT_EQ(sim::chip().Vlan(10).control.broadcast_group, group);
  EXPECT_EQ(sim::chip().Vlan(10).control.flags, 0u);

  EXPECT_EQ(bcm_vlan_control_vlan_selective_get(0, 10, 0x1, &control), BCM_E_PARAM);
  EXPECT_EQ(bcm_vlan_control_vlan_selective_get(0, 12, 0x2000, &control), BCM_E_NOT_FOUND);
  EXPECT_EQ(bcm_vlan_control_vlan_get(0, 12, &control), BCM_E_NOT_FOUND);
  EXPECT_EQ(sim::chip().CreateVlan(20, false), 0);
}

TEST_F(SimChipTest, ReplicationGroupsRefuseDuplicatesAndMissingMembers) {
  const bcm_multicast_t group = sim::chip().CreateVlan(10);
  bcm_if_t encap = 0;
  ASSERT_EQ(bcm_multicast_l2_encap_get(0, group, sim::LocalGport(3), 0, &encap), 0);
  EXPECT_EQ(encap, sim::Chip::EncapOf(3));
  EXPECT_EQ(bcm_multicast_l2_encap_get(0, 0x1000999, sim::LocalGport(3), 0, &encap),
            BCM_E_NOT_FOUND);
  EXPECT_EQ(bcm_multicast_egress_add(0, group, sim::LocalGport(3), encap), 0);
  EXPECT_EQ(bcm_multicast_egress_add(0, group, sim::ModuleGport(0, 3), encap), BCM_E_EXISTS);
  EXPECT_EQ(bcm_multicast_egress_add(0, group, sim::LocalGport(4), sim::Chip::EncapOf(4)), 0);
  EXPECT_THAT(sim::chip().GroupMembers(group),
              UnorderedElementsAre(Pair(sim::LocalGport(3), 0x8003), Pair(sim::LocalGport(4), 0x8004)));
  EXPECT_EQ(bcm_multicast_egress_delete(0, group, sim::LocalGport(5), 0x8005), BCM_E_NOT_FOUND);
  EXPECT_EQ(bcm_multicast_egress_delete(0, group, sim::LocalGport(3), encap), 0);
  EXPECT_EQ(bcm_multicast_egress_delete_all(0, group), 0);
  EXPECT_THAT(sim::chip().GroupMembers(group), IsEmpty());
  EXPECT_EQ(bcm_multicast_egress_delete_all(0, 0x1000999), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, IngressTranslationIsKeyedByPortKeyAndVlans) {
  bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  action.new_outer_vlan = 200;
  EXPECT_EQ(bcm_vlan_translate_action_add(0, sim::LocalGport(3), bcmVlanTranslateKeyPortOuter,
                                          100, 0, &action),
            0);
  // Another form of the same port names the same entry.
  EXPECT_EQ(bcm_vlan_translate_action_add(0, sim::ModuleGport(0, 3), bcmVlanTranslateKeyPortOuter,
                                          100, 0, &action),
            BCM_E_EXISTS);
  EXPECT_EQ(bcm_vlan_translate_action_add(0, sim::LocalGport(3), bcmVlanTranslateKeyPortInner, 0,
                                          100, &action),
            0);
  EXPECT_EQ(bcm_vlan_translate_action_add(0, sim::TrunkGport(5), bcmVlanTranslateKeyPortDouble,
                                          10, 20, &action),
            0);
  EXPECT_EQ(bcm_vlan_translate_action_add(0, sim::LocalGport(3), bcmVlanTranslateKeyInvalid, 0, 0,
                                          &action),
            BCM_E_PARAM);
  EXPECT_EQ(bcm_vlan_translate_action_add(0, sim::LocalGport(3), bcmVlanTranslateKeyPortOuter,
                                          4096, 0, &action),
            BCM_E_PARAM);
  ASSERT_EQ(sim::chip().IngressTable().size(), 3u);
  const sim::IngressKey trunkKey{true, 5, bcmVlanTranslateKeyPortDouble, 10, 20};
  EXPECT_EQ(sim::chip().IngressTable().at(trunkKey).new_outer_vlan, 200);

  EXPECT_EQ(bcm_vlan_translate_action_delete(0, sim::LocalGport(3), bcmVlanTranslateKeyPortOuter,
                                             100, 1),
            BCM_E_NOT_FOUND);
  EXPECT_EQ(bcm_vlan_translate_action_delete(0, 3, bcmVlanTranslateKeyPortOuter, 100, 0), 0);
  EXPECT_EQ(sim::chip().IngressTable().size(), 2u);
}

TEST_F(SimChipTest, EgressTranslationIsKeyedByClass) {
  bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  EXPECT_EQ(bcm_vlan_translate_egress_action_add(0, 122, 100, 0, &action), 0);
  EXPECT_EQ(bcm_vlan_translate_egress_action_add(0, 122, 100, 0, &action), BCM_E_EXISTS);
  EXPECT_EQ(bcm_vlan_translate_egress_action_add(0, -1, 100, 0, &action), BCM_E_PARAM);
  EXPECT_EQ(bcm_vlan_translate_egress_action_delete(0, 122, 101, 0), BCM_E_NOT_FOUND);
  EXPECT_EQ(sim::chip().EgressTable().count(sim::EgressKey{122, 100, 0}), 1u);
  EXPECT_EQ(bcm_vlan_translate_egress_action_delete(0, 122, 100, 0), 0);
  EXPECT_THAT(sim::chip().EgressTable(), IsEmpty());
}

TEST_F(SimChipTest, InjectedFaultsAnswerWithoutChangingTheChip) {
  sim::chip().FailNext("bcm_port_tpid_set", 2, BCM_E_TIMEOUT);
  EXPECT_EQ(bcm_port_tpid_set(0, 1, 0x88a8), BCM_E_TIMEOUT);
  EXPECT_EQ(bcm_port_tpid_set(0, 1, 0x88a8), BCM_E_TIMEOUT);
  EXPECT_EQ(sim::chip().Port(1).outerTpid, 0x8100);
  EXPECT_EQ(bcm_port_tpid_set(0, 1, 0x88a8), 0);

  sim::chip().FailNth("bcm_port_discard_set", 3, BCM_E_INTERNAL);
  EXPECT_EQ(bcm_port_discard_set(0, 1, 1), 0);
  EXPECT_EQ(bcm_port_discard_set(0, 2, 1), 0);
  EXPECT_EQ(bcm_port_discard_set(0, 3, 1), BCM_E_INTERNAL);
  EXPECT_EQ(bcm_port_discard_set(0, 4, 1), 0);
  EXPECT_EQ(sim::chip().Port(3).discardMode, 0);
  // Other functions are not affected.
  EXPECT_THAT(Trace("bcm_port_discard_set"),
              ElementsAre("bcm_port_discard_set(0, 1, 1) = 0", "bcm_port_discard_set(0, 2, 1) = 0",
                          "bcm_port_discard_set(0, 3, 1) = -1",
                          "bcm_port_discard_set(0, 4, 1) = 0"));
}

TEST_F(SimChipTest, ForeignUnitIsRefused) {
  EXPECT_EQ(bcm_port_tpid_set(1, 1, 0x88a8), BCM_E_UNIT);
  sim::common().SetUnit(1);
  EXPECT_EQ(bcm_port_tpid_set(1, 1, 0x88a8), 0);
  EXPECT_EQ(bcm_port_tpid_set(0, 1, 0x88a8), BCM_E_UNIT);
}

TEST_F(SimChipTest, TraceRendersEachArgumentInItsNaturalForm) {
  sim::chip().CreateVlan(10);
  bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  action.new_outer_vlan = 200;
  action.priority = -1;
  action.ot_outer = bcmVlanActionReplace;
  action.flags = 0x4;
  bcm_vlan_control_vlan_t control;
  bcm_vlan_control_vlan_t_init(&control);
  control.flags = BCM_VLAN_IGMP_SNOOP_DISABLE;

  bcm_port_tpid_set(0, sim::LocalGport(3), 0x88a8);
  bcm_vlan_gport_add(0, 10, sim::LocalGport(3), BCM_VLAN_GPORT_ADD_UNTAGGED);
  bcm_port_class_set(0, -1, bcmPortClassVlanTranslateEgress, static_cast<uint32_t>(-1));
  bcm_vlan_translate_action_add(0, sim::LocalGport(3), bcmVlanTranslateKeyPortOuter, 100, 0,
                                &action);
  bcm_multicast_egress_add(0, 0x100000a, sim::LocalGport(3), 0x8003);
  bcm_vlan_control_vlan_set(0, 10, control);
  EXPECT_THAT(
      Trace(),
      ElementsAre("bcm_port_tpid_set(0, 0x4000003, 0x88a8) = 0",
                  "bcm_vlan_gport_add(0, 10, 0x4000003, 0x1) = 0",
                  "bcm_port_class_set(0, -1, 3, -1) = -18",
                  "bcm_vlan_translate_action_add(0, 0x4000003, 8, 100, 0, {new_outer_vlan=200, "
                  "priority=-1, ot_outer=2, flags=0x4}) = 0",
                  "bcm_multicast_egress_add(0, 0x100000a, 0x4000003, 0x8003) = 0",
                  "bcm_vlan_control_vlan_set(0, 10, {flags=0x800, broadcast_group=0x0, "
                  "dhcp_action=0x0}) = 0"));
}

TEST_F(SimChipTest, CapabilityWordsArePublishedForTheUnit) {
  sim::chip().SetPacketPriorityCapable(false);
  EXPECT_EQ(soc_control[0]->xlate_pkt_prio, 0u);
  EXPECT_EQ(soc_control[0]->chip_type, 47u);
  sim::chip().SetControlWords(1, 2, 3);
  EXPECT_EQ(soc_control[0]->chip_type, 1u);
  EXPECT_EQ(soc_control[0]->xlate_pkt_prio, 2u);
  EXPECT_EQ(soc_control[0]->chip_family_flags, 3u);
}

TEST_F(SimChipTest, AssertionIsRecordedAndReturns) {
  _sal_assert("!member_it.inLAG", "src/hal_bcm_bridge_domain", 359);
  ASSERT_EQ(sim::Assertions().size(), 1u);
  EXPECT_EQ(sim::Assertions()[0].expression, "!member_it.inLAG");
  EXPECT_EQ(sim::Assertions()[0].file, "src/hal_bcm_bridge_domain");
  EXPECT_EQ(sim::Assertions()[0].line, 359);
}

TEST_F(SimChipTest, AssertionCanBeMadeFatal) {
  sim::SetAbortOnAssert(true);
  EXPECT_DEATH(_sal_assert("x", "f", 1), "assertion failed: x at f:1");
}

}  // namespace
