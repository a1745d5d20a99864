// The simulated platform's own contract: a chip as strict as the real one, with its codes and
// state, refusing what the chip refuses, and its reset. Identifiers are pinned with the byte order;
// the LAG orchestrator is exercised by every LAG event test.
#include <stdexcept>

#include "service_fixtures.h"

namespace {

using ::testing::Pair;
using SimPlatform = SimTest;

// The call, its text and the code it must answer.
#define CODE(call, rc) \
  { #call, call, rc }

// The calls run in order, each on the state the earlier ones left. Every refusal comes after an
// accepted write of what it would change, so a refusal that changed anything shows at the end.
TEST_F(SimPlatform, ChipAnswersWithItsCodesAndOnlyAcceptedCallsChangeIt) {
  const bcm_multicast_t group = sim::chip().CreateVlan(10);
  EXPECT_EQ(group, 0x100000a);
  EXPECT_EQ(sim::chip().CreateVlan(20, false), 0);
  const uint32_t in = 0x4, out = 0x8;  // the flags of the ingress and of the egress table
  bcm_vlan_action_set_t a, bad[10];
  bcm_vlan_action_set_t_init(&a);
  a.new_outer_vlan = 200;
  for (bcm_vlan_action_set_t& action : bad) {
    bcm_vlan_action_set_t_init(&action);
    action.flags = in;
  }
  // Ingress records with one field out of range; bad[7] and bad[8] are egress records, bad[8] with
  // an action out of range, bad[9] a valid ingress record.
  bad[0].new_outer_vlan = 5000;
  bad[1].new_inner_vlan = 4096;
  bad[2].priority = 8;
  bad[3].priority = -2;
  bad[4].new_inner_pkt_prio = 15;
  bad[5].ot_outer = static_cast<bcm_vlan_action_t>(5);
  bad[6].outer_tpid_action = bcmVlanTpidActionModify;
  bad[7].flags = bad[8].flags = out;
  bad[8].dt_inner_pkt_prio = static_cast<bcm_vlan_action_t>(7);
  int flags = -1, size = 0;
  bcm_if_t encap = 0, encap5 = sim::Chip::EncapOf(5);
  uint32_t cls = 0;
  bcm_gport_t gports[4];
  bcm_vlan_control_vlan_t control{}, badDhcp{0, group, {0x20}}, absentGroup{0, 0x1000999, {0}};
  const int g3 = sim::LocalGport(3), g5 = sim::LocalGport(5);
  const int m3 = sim::ModuleGport(0, 3);
  const auto egress = bcmPortClassVlanTranslateEgress;
  const auto outer = bcmVlanTranslateKeyPortOuter;
  const struct {
    const char* call;
    int rc, expected;
  } codes[] = {
      CODE(bcm_port_untagged_vlan_set(0, 5, 20), BCM_E_NONE),
      CODE(bcm_port_tpid_set(0, g5, 0x88a8), BCM_E_NONE),
      CODE(bcm_port_inner_tpid_set(0, sim::ModuleGport(0, 5), 0x8100), BCM_E_NONE),
      CODE(bcm_port_untagged_vlan_set(0, sim::Chip::kNumPorts, 3), BCM_E_PORT),
      CODE(bcm_port_untagged_priority_set(0, 5, 7), BCM_E_NONE),
      CODE(bcm_port_dtag_mode_set(0, 5, 3), BCM_E_PARAM),
      CODE(bcm_port_dtag_mode_set(0, 5, 2), BCM_E_NONE),
      CODE(bcm_port_discard_set(0, 5, 4), BCM_E_PARAM),
      CODE(bcm_port_discard_set(0, 5, 2), BCM_E_NONE),
      CODE(bcm_port_class_set(0, 5, egress, 122), BCM_E_NONE),
      CODE(bcm_port_class_get(0, g5, egress, &cls), BCM_E_NONE),
      CODE(bcm_vlan_control_port_set(0, 5, bcmVlanPortTranslateKeyFirst, 3), BCM_E_PARAM),
      CODE(bcm_vlan_control_port_set(0, 5, bcmVlanPortTranslateKeySecond, 9), BCM_E_NONE),
      CODE(bcm_vlan_gport_add(0, 11, g3, 0), BCM_E_NOT_FOUND),
      CODE(bcm_vlan_gport_add(0, 10, g3, 1), BCM_E_NONE),
      CODE(bcm_vlan_gport_add(0, 10, m3, 0), BCM_E_NONE),
      CODE(bcm_vlan_gport_get(0, 10, g3, &flags), BCM_E_NONE),
      CODE(bcm_vlan_gport_delete(0, 10, g5), BCM_E_NOT_FOUND),
      CODE(bcm_multicast_l2_encap_get(0, group, g3, 0, &encap), BCM_E_NONE),
      CODE(bcm_multicast_egress_add(0, group, g3, encap), BCM_E_NONE),
      CODE(bcm_multicast_egress_add(0, group, m3, encap), BCM_E_EXISTS),
      CODE(bcm_vlan_translate_action_add(0, g3, outer, 4096, 0, &a), BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g3, outer, 100, 0, &a), BCM_E_NONE),
      CODE(bcm_vlan_translate_action_add(0, m3, outer, 100, 0, &a), BCM_E_EXISTS),
      CODE(bcm_vlan_translate_action_add(0, sim::TrunkGport(5), outer, 10, 0, &a), BCM_E_NONE),
      CODE(bcm_vlan_translate_action_delete(0, 3, outer, 100, 0), BCM_E_NONE),
      CODE(bcm_vlan_translate_egress_action_add(0, 122, 100, 0, &a), BCM_E_NONE),
      CODE(bcm_vlan_translate_egress_action_add(0, 122, 100, 0, &a), BCM_E_EXISTS),
      // Refusals of values out of range.
      CODE(bcm_port_tpid_set(0, 5, 0), BCM_E_PARAM),
      CODE(bcm_port_inner_tpid_set(0, 5, 0), BCM_E_PARAM),
      CODE(bcm_port_untagged_vlan_set(0, 5, 4096), BCM_E_PARAM),
      CODE(bcm_port_untagged_priority_set(0, 5, 8), BCM_E_PARAM),
      CODE(bcm_port_untagged_priority_set(0, 5, -1), BCM_E_PARAM),
      CODE(bcm_port_class_set(0, 5, egress, 128), BCM_E_PARAM),
      CODE(bcm_port_class_set(0, g5 | (5 << BCM_GPORT_TYPE_SHIFT), egress, 5), BCM_E_PORT),
      CODE(bcm_vlan_control_port_set(0, 5, static_cast<bcm_vlan_control_port_t>(3), 8),
           BCM_E_PARAM),
      CODE(bcm_vlan_gport_add(0, 0, g5, 0), BCM_E_PARAM),
      CODE(bcm_vlan_gport_add(0, 4096, g5, 0), BCM_E_PARAM),
      CODE(bcm_vlan_gport_add(0, 10, g5, 0x2), BCM_E_PARAM),
      CODE(bcm_vlan_gport_delete(0, 0, g5), BCM_E_PARAM),
      CODE(bcm_vlan_gport_get(0, 0, g5, &size), BCM_E_PARAM),
      CODE(bcm_vlan_gport_get_all(0, 0, 4, gports, &size, &size), BCM_E_PARAM),
      CODE(bcm_vlan_gport_delete_all(0, 0), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_get(0, 0, &control), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_set(0, 10, badDhcp), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_set(0, 10, absentGroup), BCM_E_NOT_FOUND),
      CODE(bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, &badDhcp), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_selective_set(0, 10, 0x2000, &absentGroup), BCM_E_NOT_FOUND),
      CODE(bcm_multicast_l2_encap_get(0, group, g5, 4096, &encap5), BCM_E_PARAM),
      CODE(bcm_multicast_egress_add(0, group, g5, encap5 + 1), BCM_E_PARAM),
      CODE(bcm_multicast_egress_add(0, group, sim::TrunkGport(5), encap5), BCM_E_PORT),
      CODE(bcm_vlan_translate_action_add(0, g5, bcmVlanTranslateKeyInvalid, 100, 0, &bad[9]),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_egress_action_add(0, 5, 100, 0, &bad[9]), BCM_E_PARAM),
      CODE(bcm_vlan_translate_egress_action_add(0, 128, 100, 0, &bad[7]), BCM_E_PARAM),
      CODE(bcm_vlan_translate_egress_action_add(0, 5, 100, 0, &bad[8]), BCM_E_PARAM),
      CODE(bcm_vlan_gport_get_all(0, 10, 0, gports, &flags, &size), BCM_E_NONE),
  };
  for (const auto& c : codes)
    EXPECT_EQ(c.rc, c.expected) << c.call;
  for (int i = 0; i < 8; ++i)
    EXPECT_EQ(bcm_vlan_translate_action_add(0, g5, outer, 100, 0, &bad[i]), BCM_E_PARAM) << i;

  const sim::PortState& port = sim::chip().Port(5);
  EXPECT_EQ(std::make_tuple(port.untaggedVlan, port.outerTpid, port.innerTpid),
            std::make_tuple(20, 0x88a8, 0x8100));
  EXPECT_EQ(std::make_tuple(port.untaggedPriority, port.dtagMode, port.discardMode),
            std::make_tuple(7, 2, 2));
  EXPECT_EQ(std::make_tuple(port.egressClass, cls, port.keyFirst, port.keySecond),
            std::make_tuple(122u, 122u, sim::PortState{}.keyFirst, 9));
  EXPECT_EQ(flags, 0);  // a second add changes only the flag
  EXPECT_EQ(size, 0);   // the member listing stops where the caller's array ends
  EXPECT_THAT(sim::chip().Vlan(10).members, ElementsAre(Pair(3, false)));
  EXPECT_EQ(sim::chip().Vlan(10).control.protocol_pkt.dhcp_action, 0u);
  EXPECT_EQ(sim::chip().Vlan(10).control.broadcast_group, group);
  EXPECT_THAT(sim::chip().GroupMembers(group), ElementsAre(Pair(g3, sim::Chip::EncapOf(3))));
  ASSERT_EQ(sim::chip().IngressTable().size(), 1u);
  EXPECT_TRUE(sim::chip().IngressTable().begin()->first.trunk);
  EXPECT_EQ(sim::chip().EgressTable().size(), 1u);
  // VLAN 0 marks priority-tagged frames; 4095, reserved, is still created.
  for (bcm_vlan_t vlan : {0, 4096})
    EXPECT_THROW(sim::chip().CreateVlan(vlan), std::invalid_argument) << vlan;
  EXPECT_NE(sim::chip().CreateVlan(4095), 0);
}

#undef CODE

// Faults, units and capability words are exercised by every service test; what they rely on
// here is that a reset brings back the defaults.
TEST_F(SimPlatform, ResetRestoresTheDefaultChipOfUnitZero) {
  sim::common().SetUnit(1);
  EXPECT_EQ(bcm_port_tpid_set(0, 3, 0x88a8), BCM_E_UNIT);
  sim::chip().SetPacketPriorityCapable(false);
  sim::chip().CreateVlan(10);
  sim::chip().FailNext("bcm_port_tpid_set", 1, BCM_E_FAIL);
  _sal_assert("x", "f", 1);
  ASSERT_EQ(sim::Assertions().size(), 1u);

  sim::Reset();

  const sim::PortState& port = sim::chip().Port(3);
  EXPECT_EQ(std::make_tuple(port.outerTpid, port.innerTpid, port.untaggedVlan, port.egressClass),
            std::make_tuple(0x8100, 0x9100, 1, 3u));
  EXPECT_THAT(sim::chip().Vlans(), IsEmpty());
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(sim::Assertions(), IsEmpty());
  EXPECT_EQ(bcm_port_tpid_set(0, 3, 0x9100), BCM_E_NONE);  // unit 0 again, without the fault
  ASSERT_NE(soc_control[0], nullptr);
  EXPECT_NE(soc_control[0]->xlate_pkt_prio, 0u);
  sim::SetAbortOnAssert(true);
  EXPECT_DEATH(_sal_assert("x", "f", 1), "assertion failed: x at f:1");
}

// The LAG manager raises no event for a change that cannot happen, and lists nothing for it.
TEST_F(SimPlatform, LagManagerRaisesNoImpossibleMembershipChange) {
  sim::LagOrchestratorSim lags;
  const limid_t lag5 = sim::Lag(5), lag6 = sim::Lag(6), eth1 = sim::EthernetPort(1, 1);
  sim::common().AddLag(lag5, 5);
  sim::common().AddLag(lag6, 6);
  lags.AddMember(lag5, eth1);
  EXPECT_THROW(lags.AddMember(lag5, eth1), std::invalid_argument);
  EXPECT_THROW(lags.AddMember(lag6, eth1), std::invalid_argument);
  EXPECT_THROW(lags.DeleteMember(lag6, eth1), std::invalid_argument);
  EXPECT_EQ(sim::common().LagOf(eth1), lag5);
  EXPECT_TRUE(HalBcmCommon::GetInstance()->GetLagMembers(lag6).empty());
}

}  // namespace
