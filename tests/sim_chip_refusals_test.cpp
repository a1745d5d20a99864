// The simulated chip refuses what the chip refuses, call by call, and a refused call changes
// nothing.
#include <stdexcept>
#include <tuple>

#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"

namespace {

using ::testing::IsEmpty;
using SimChipRefusals = SimTest;

// An action record of the given table with one field changed.
template <typename Change>
bcm_vlan_action_set_t* Action(uint32_t flags, Change change) {
  static bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  action.flags = flags;
  change(action);
  return &action;
}

#define CODE(call, rc) \
  { #call, call, rc }

TEST_F(SimChipRefusals, OutOfRangeArgumentsAreRefusedWithTheChipsCode) {
  const bcm_multicast_t group = sim::chip().CreateVlan(10);
  const int g5 = sim::LocalGport(5), encap5 = sim::Chip::EncapOf(5);
  const auto egress = bcmPortClassVlanTranslateEgress;
  const auto outer = bcmVlanTranslateKeyPortOuter;
  const uint32_t in = 0x4, out = 0x8;  // the flags of the ingress and of the egress table
  bcm_vlan_control_vlan_t control{};
  bcm_vlan_control_vlan_t badDhcp{0, group, {0x20}};
  bcm_vlan_control_vlan_t absentGroup{0, 0x1000999, {0}};
  int flags = 0, size = 0;
  bcm_gport_t gports[4];
  bcm_if_t encap = 0;
  const struct {
    const char* call;
    int rc, expected;
  } codes[] = {
      CODE(bcm_port_tpid_set(0, 5, 0), BCM_E_PARAM),
      CODE(bcm_port_inner_tpid_set(0, 5, 0), BCM_E_PARAM),
      CODE(bcm_port_untagged_vlan_set(0, 5, 4096), BCM_E_PARAM),
      CODE(bcm_port_untagged_priority_set(0, 5, -1), BCM_E_PARAM),
      CODE(bcm_port_class_set(0, 5, egress, 128), BCM_E_PARAM),
      CODE(bcm_port_class_set(0, g5 | (5 << BCM_GPORT_TYPE_SHIFT), egress, 5), BCM_E_PORT),
      CODE(bcm_vlan_control_port_set(0, 5, static_cast<bcm_vlan_control_port_t>(3), 8),
           BCM_E_PARAM),
      CODE(bcm_vlan_gport_add(0, 0, g5, 0), BCM_E_PARAM),
      CODE(bcm_vlan_gport_add(0, 4096, g5, 0), BCM_E_PARAM),
      CODE(bcm_vlan_gport_add(0, 10, g5, 0x2), BCM_E_PARAM),
      CODE(bcm_vlan_gport_delete(0, 0, g5), BCM_E_PARAM),
      CODE(bcm_vlan_gport_get(0, 0, g5, &flags), BCM_E_PARAM),
      CODE(bcm_vlan_gport_get_all(0, 0, 4, gports, &flags, &size), BCM_E_PARAM),
      CODE(bcm_vlan_gport_delete_all(0, 0), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_get(0, 0, &control), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_set(0, 10, badDhcp), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_set(0, 10, absentGroup), BCM_E_NOT_FOUND),
      CODE(bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, &badDhcp), BCM_E_PARAM),
      CODE(bcm_vlan_control_vlan_selective_set(0, 10, 0x2000, &absentGroup), BCM_E_NOT_FOUND),
      CODE(bcm_multicast_l2_encap_get(0, group, g5, 4096, &encap), BCM_E_PARAM),
      CODE(bcm_multicast_egress_add(0, group, g5, encap5 + 1), BCM_E_PARAM),
      CODE(bcm_multicast_egress_add(0, group, sim::TrunkGport(5), encap5), BCM_E_PORT),
      CODE(bcm_vlan_translate_action_add(0, g5, outer, 100, 0,
                                         Action(in, [](auto& a) { a.new_outer_vlan = 5000; })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g5, outer, 100, 0,
                                         Action(in, [](auto& a) { a.new_inner_vlan = 4096; })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g5, outer, 100, 0,
                                         Action(in, [](auto& a) { a.priority = 8; })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g5, outer, 100, 0,
                                         Action(in, [](auto& a) { a.priority = -2; })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g5, outer, 100, 0,
                                         Action(in, [](auto& a) { a.new_inner_pkt_prio = 15; })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(
               0, g5, outer, 100, 0,
               Action(in, [](auto& a) { a.ot_outer = static_cast<bcm_vlan_action_t>(5); })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(
               0, g5, outer, 100, 0,
               Action(in, [](auto& a) { a.outer_tpid_action = bcmVlanTpidActionModify; })),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g5, outer, 100, 0, Action(out, [](auto&) {})),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_action_add(0, g5, bcmVlanTranslateKeyInvalid, 100, 0,
                                         Action(in, [](auto&) {})),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_egress_action_add(0, 5, 100, 0, Action(in, [](auto&) {})),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_egress_action_add(0, 128, 100, 0, Action(out, [](auto&) {})),
           BCM_E_PARAM),
      CODE(bcm_vlan_translate_egress_action_add(
               0, 5, 100, 0,
               Action(out,
                      [](auto& a) { a.dt_inner_pkt_prio = static_cast<bcm_vlan_action_t>(7); })),
           BCM_E_PARAM),
  };
  for (const auto& c : codes)
    EXPECT_EQ(c.rc, c.expected) << c.call;

  const sim::PortState& port = sim::chip().Port(5);
  EXPECT_EQ(std::make_tuple(port.outerTpid, port.innerTpid, port.untaggedVlan,
                            port.untaggedPriority, port.egressClass),
            std::make_tuple(0x8100, 0x9100, 1, 0, 5u));
  EXPECT_THAT(sim::chip().Vlan(10).members, IsEmpty());
  EXPECT_EQ(sim::chip().Vlan(10).control.protocol_pkt.dhcp_action, 0u);
  EXPECT_EQ(sim::chip().Vlan(10).control.broadcast_group, group);
  EXPECT_THAT(sim::chip().GroupMembers(group), IsEmpty());
  EXPECT_THAT(sim::chip().IngressTable(), IsEmpty());
  EXPECT_THAT(sim::chip().EgressTable(), IsEmpty());
  // VLAN 0 marks priority-tagged frames; 4095, reserved, is still created.
  for (bcm_vlan_t vlan : {0, 4096})
    EXPECT_THROW(sim::chip().CreateVlan(vlan), std::invalid_argument) << vlan;
  EXPECT_NE(sim::chip().CreateVlan(4095), 0);
}

#undef CODE

// The LAG manager raises no event for a change that cannot happen, and lists nothing for it.
TEST_F(SimChipRefusals, LagManagerRaisesNoImpossibleMembershipChange) {
  sim::LagOrchestratorSim lags;
  const limid_t lag5 = sim::Lag(5), lag6 = sim::Lag(6), eth1 = sim::EthernetPort(1, 1);
  sim::common().AddLag(lag5, 5);
  sim::common().AddLag(lag6, 6);
  lags.AddMember(lag5, eth1);
  const struct {
    bool add;
    limid_t lag;
  } impossible[] = {{true, lag5}, {true, lag6}, {false, lag6}};
  for (const auto& c : impossible) {
    EXPECT_THROW(c.add ? lags.AddMember(c.lag, eth1) : lags.DeleteMember(c.lag, eth1),
                 std::invalid_argument)
        << c.add << " " << sim::NameOf(c.lag);
  }
  EXPECT_EQ(sim::common().LagOf(eth1), lag5);
  EXPECT_TRUE(HalBcmCommon::GetInstance()->GetLagMembers(lag6).empty());
}

}  // namespace
