// Each stage of the frame walk on a chip programmed directly through the SDK.
#include <functional>

#include "sim/frame_walk.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"
#include "walk_outcome.h"

namespace {

using sim::Frame;
using sim::FrameTag;

Frame Untagged() {
  return Frame{};
}
Frame Tagged(uint16_t vlan, uint16_t tpid = 0x8100, uint8_t priority = 0) {
  return Frame{{FrameTag{tpid, vlan, priority}}};
}
Frame DoubleTagged(uint16_t outer, uint16_t inner, uint16_t outerTpid = 0x88a8) {
  return Frame{{FrameTag{outerTpid, outer, 0}, FrameTag{0x8100, inner, 0}}};
}

bcm_vlan_action_set_t Action(const std::function<void(bcm_vlan_action_set_t&)>& fill) {
  bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  fill(action);
  return action;
}

struct StageCase {
  const char* name;
  std::function<void()> program;  // on top of the base set-up
  int ingressPort;
  Frame frame;
  std::vector<std::string> expected;
};

// Base: VLAN 10 with its broadcast group; port 1 an untagged member with native VLAN 10, ports 2
// and 3 tagged members, all three in the group.
class FrameWalkStagesTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    const bcm_multicast_t group = sim::chip().CreateVlan(10);
    for (int port : {1, 2, 3}) {
      bcm_vlan_gport_add(0, 10, sim::LocalGport(port), port == 1 ? BCM_VLAN_GPORT_ADD_UNTAGGED : 0);
      bcm_multicast_egress_add(0, group, sim::LocalGport(port), sim::Chip::EncapOf(port));
    }
    bcm_port_untagged_vlan_set(0, 1, 10);
  }
};

TEST_F(FrameWalkStagesTest, EachStageDecidesFromTheChipState) {
  const StageCase cases[] = {
      {"untagged frame floods in the native VLAN, tagged on tagged members",
       [] {},
       1,
       Untagged(),
       {"2:[0x8100 10 p0]", "3:[0x8100 10 p0]"}},
      {"untagged priority of the ingress port",
       [] { bcm_port_untagged_priority_set(0, 1, 5); },
       1,
       Untagged(),
       {"2:[0x8100 10 p5]", "3:[0x8100 10 p5]"}},
      {"tagged frame leaves untagged members untagged",
       [] {},
       2,
       Tagged(10, 0x8100, 3),
       {"1:untagged", "3:[0x8100 10 p3]"}},
      {"discard all drops everything",
       [] { bcm_port_discard_set(0, 2, BCM_PORT_DISCARD_ALL); },
       2,
       Tagged(10),
       {"drop@discard: port discards all frames"}},
      {"discard untagged drops untagged",
       [] { bcm_port_discard_set(0, 1, BCM_PORT_DISCARD_UNTAG); },
       1,
       Untagged(),
       {"drop@discard: port discards untagged frames"}},
      {"discard untagged drops priority-tagged",
       [] { bcm_port_discard_set(0, 1, BCM_PORT_DISCARD_UNTAG); },
       1,
       Tagged(0, 0x8100, 6),
       {"drop@discard: port discards untagged frames"}},
      {"discard untagged admits tagged",
       [] { bcm_port_discard_set(0, 2, BCM_PORT_DISCARD_UNTAG); },
       2,
       Tagged(10),
       {"1:untagged", "3:[0x8100 10 p0]"}},
      {"discard tagged drops tagged",
       [] { bcm_port_discard_set(0, 2, BCM_PORT_DISCARD_TAG); },
       2,
       Tagged(10),
       {"drop@discard: port discards tagged frames"}},
      {"priority tag takes the native VLAN and keeps its priority",
       [] {},
       1,
       Tagged(0, 0x8100, 6),
       {"2:[0x8100 10 p6]", "3:[0x8100 10 p6]"}},
      {"a tag with a foreign TPID is data: the frame is untagged on the port",
       [] { bcm_port_untagged_vlan_set(0, 2, 10); },
       2,
       Tagged(20, 0x9999),
       {"1:[0x9999 20 p0]", "3:[0x8100 10 p0][0x9999 20 p0]"}},
      {"VLAN that does not exist",
       [] {},
       2,
       Tagged(20),
       {"drop@ingress-filter: VLAN 20 does not exist"}},
      {"ingress port not a member",
       [] {},
       4,
       Tagged(10),
       {"drop@ingress-filter: port 4 is not a member of VLAN 10"}},
      {"the broadcast group decides the flood set",
       [] { bcm_multicast_egress_delete(0, 0x100000a, sim::LocalGport(3), 0x8003); },
       1,
       Untagged(),
       {"2:[0x8100 10 p0]"}},
      {"group members outside the VLAN are pruned",
       [] { bcm_vlan_gport_delete(0, 10, sim::LocalGport(3)); },
       1,
       Untagged(),
       {"2:[0x8100 10 p0]"}},
      {"the only member floods nowhere",
       [] {
         bcm_vlan_gport_delete(0, 10, sim::LocalGport(2));
         bcm_vlan_gport_delete(0, 10, sim::LocalGport(3));
       },
       1,
       Untagged(),
       {"drop@flood: no egress port"}},
      {"egress port's outer TPID",
       [] { bcm_port_tpid_set(0, 3, 0x88a8); },
       2,
       Tagged(10),
       {"1:untagged", "3:[0x88a8 10 p0]"}},
      {"ingress translation on the outer key",
       [] {
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeyFirst,
                                   bcmVlanTranslateKeyPortOuter);
         auto a = Action([](bcm_vlan_action_set_t& x) {
           x.new_outer_vlan = 10;
           x.ot_outer = bcmVlanActionReplace;
           x.ot_outer_pkt_prio = bcmVlanActionReplace;
           x.priority = 4;
         });
         bcm_vlan_translate_action_add(0, sim::LocalGport(2), bcmVlanTranslateKeyPortOuter, 100, 0,
                                       &a);
       },
       2,
       Tagged(100),
       {"1:untagged", "3:[0x8100 10 p4]"}},
      {"the second lookup key is tried after a miss on the first",
       [] {
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeyFirst,
                                   bcmVlanTranslateKeyPortDouble);
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeySecond,
                                   bcmVlanTranslateKeyPortOuter);
         auto a = Action([](bcm_vlan_action_set_t& x) {
           x.new_outer_vlan = 10;
           x.dt_outer = bcmVlanActionReplace;
         });
         bcm_vlan_translate_action_add(0, 2, bcmVlanTranslateKeyPortOuter, 100, 0, &a);
         bcm_port_inner_tpid_set(0, 2, 0x8100);
         bcm_port_tpid_set(0, 2, 0x88a8);
       },
       2,
       DoubleTagged(100, 7),
       {"1:[0x8100 7 p0]", "3:[0x8100 10 p0][0x8100 7 p0]"}},
      {"egress translation by the egress port's class",
       [] {
         bcm_port_class_set(0, 3, bcmPortClassVlanTranslateEgress, 40);
         auto a = Action([](bcm_vlan_action_set_t& x) {
           x.new_outer_vlan = 300;
           x.ot_outer = bcmVlanActionReplace;
           x.outer_tpid = 0x9100;
           x.outer_tpid_action = bcmVlanTpidActionModify;
         });
         bcm_vlan_translate_egress_action_add(0, 40, 10, 0, &a);
       },
       1,
       Untagged(),
       {"2:[0x8100 10 p0]", "3:[0x9100 300 p0]"}},
      {"customer port pushes the service tag of its native VLAN",
       [] {
         bcm_port_dtag_mode_set(0, 1, BCM_PORT_DTAG_MODE_EXTERNAL);
         bcm_port_tpid_set(0, 2, 0x88a8);
       },
       1,
       Tagged(7, 0x8100, 2),
       {"2:[0x88a8 10 p0][0x8100 7 p2]", "3:[0x8100 10 p0][0x8100 7 p2]"}},
      {"one copy per trunk, none back into the ingress trunk",
       [] {
         sim::common().AddPort(sim::EthernetPort(1, 2), sim::LocalGport(2));
         sim::common().AddPort(sim::EthernetPort(1, 3), sim::LocalGport(3));
         sim::common().AddLag(sim::Lag(1), 1);
         sim::common().ListLagMember(sim::Lag(1), sim::EthernetPort(1, 2));
         sim::common().ListLagMember(sim::Lag(1), sim::EthernetPort(1, 3));
       },
       1,
       Untagged(),
       {"2:[0x8100 10 p0]"}},
  };
  for (const StageCase& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    c.program();
    EXPECT_EQ(Outcome(sim::WalkFrame(c.ingressPort, c.frame)), c.expected);
  }
}

TEST_F(FrameWalkStagesTest, TraceNamesEveryStageInOrder) {
  const sim::FrameWalk walk = sim::WalkFrame(1, Untagged());
  std::vector<std::string> stages;
  for (const sim::WalkStep& step : walk.steps)
    stages.push_back(step.stage);
  EXPECT_THAT(stages, ::testing::ElementsAre("tags", "discard", "ingress-xlate", "vlan",
                                             "ingress-filter", "flood", "egress 2", "egress 3"));
  EXPECT_THROW(sim::WalkFrame(sim::Chip::kNumPorts, Untagged()), std::out_of_range);
}

}  // namespace
