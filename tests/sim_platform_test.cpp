// The simulated platform's own contract: a chip as strict as the real one, with its codes and
// state, and its reset. Identifiers are pinned with the byte order; the LAG orchestrator is
// exercised by every LAG event test.
#include "service_fixtures.h"

namespace {

using ::testing::Pair;
using SimPlatform = SimTest;

// The call, its text and the code it must answer.
#define CODE(call, rc) \
  { #call, call, rc }

// The calls run in order, each on the state the earlier ones left; only accepted ones change it.
TEST_F(SimPlatform, ChipAnswersWithItsCodesAndOnlyAcceptedCallsChangeIt) {
  const bcm_multicast_t group = sim::chip().CreateVlan(10);
  EXPECT_EQ(group, 0x100000a);
  EXPECT_EQ(sim::chip().CreateVlan(20, false), 0);
  bcm_vlan_action_set_t a;
  bcm_vlan_action_set_t_init(&a);
  a.new_outer_vlan = 200;
  int flags = -1;
  bcm_if_t encap = 0;
  uint32_t cls = 0;
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
      CODE(bcm_port_untagged_vlan_set(0, sim::ModuleGport(1, 5), 3), BCM_E_PORT),
      CODE(bcm_port_untagged_vlan_set(0, sim::Chip::kNumPorts, 3), BCM_E_PORT),
      CODE(bcm_port_untagged_vlan_set(1, 5, 3), BCM_E_UNIT),
      CODE(bcm_port_untagged_vlan_set(0, 5, 4096), BCM_E_PARAM),
      CODE(bcm_port_untagged_priority_set(0, 5, 8), BCM_E_PARAM),
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
  };
  for (const auto& c : codes)
    EXPECT_EQ(c.rc, c.expected) << c.call;

  const sim::PortState& port = sim::chip().Port(5);
  EXPECT_EQ(std::make_tuple(port.untaggedVlan, port.outerTpid, port.innerTpid),
            std::make_tuple(20, 0x88a8, 0x8100));
  EXPECT_EQ(std::make_tuple(port.untaggedPriority, port.dtagMode, port.discardMode),
            std::make_tuple(7, 2, 2));
  EXPECT_EQ(std::make_tuple(port.egressClass, cls, port.keyFirst, port.keySecond),
            std::make_tuple(122u, 122u, sim::PortState{}.keyFirst, 9));
  EXPECT_EQ(flags, 0);  // a second add changes only the flag
  EXPECT_THAT(sim::chip().Vlan(10).members, ElementsAre(Pair(3, false)));
  EXPECT_THAT(sim::chip().GroupMembers(group), ElementsAre(Pair(g3, sim::Chip::EncapOf(3))));
  ASSERT_EQ(sim::chip().IngressTable().size(), 1u);
  EXPECT_TRUE(sim::chip().IngressTable().begin()->first.trunk);
  EXPECT_EQ(sim::chip().EgressTable().size(), 1u);
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

}  // namespace
