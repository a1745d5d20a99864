// Each stage of the frame walk on a chip programmed directly through the SDK.
#include <functional>

#include "sim/frame_walk.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"
#include "walk_outcome.h"

namespace {

using sim::Frame;
using sim::FrameTag;
using Program = std::function<void()>;

Frame Tagged(uint16_t vlan, uint16_t tpid = 0x8100, uint8_t priority = 0) {
  return Frame{{FrameTag{tpid, vlan, priority}}};
}

// Installs an ingress (class < 0) or egress translation of `vlan` filled in by `fill`.
Program Translate(int portOrClass, bcm_vlan_t vlan,
                  const std::function<void(bcm_vlan_action_set_t&)>& fill) {
  return [=] {
    bcm_vlan_action_set_t action;
    bcm_vlan_action_set_t_init(&action);
    fill(action);
    if (portOrClass < 0)
      bcm_vlan_translate_action_add(0, -portOrClass, bcmVlanTranslateKeyPortOuter, vlan, 0,
                                    &action);
    else
      bcm_vlan_translate_egress_action_add(0, portOrClass, vlan, 0, &action);
  };
}

// Drops at the discard and filter stages show in the examples' frame walks; these are the cases
// that decide where and how copies leave.
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
  const Program none = [] {};
  const struct {
    const char* name;
    Program program;  // on top of the base set-up
    int ingressPort;
    Frame frame;
    std::vector<std::string> expected;
  } cases[] = {
      {"untagged: native VLAN, tagged on tagged members",
       none,
       1,
       Frame{},
       {"2:[0x8100 10 p0]", "3:[0x8100 10 p0]"}},
      {"untagged members get it untagged",
       none,
       2,
       Tagged(10, 0x8100, 3),
       {"1:untagged", "3:[0x8100 10 p3]"}},
      {"priority tag keeps its priority",
       none,
       1,
       Tagged(0, 0x8100, 6),
       {"2:[0x8100 10 p6]", "3:[0x8100 10 p6]"}},
      {"a foreign TPID is data",
       [] { bcm_port_untagged_vlan_set(0, 2, 10); },
       2,
       Tagged(20, 0x9999),
       {"1:[0x9999 20 p0]", "3:[0x8100 10 p0][0x9999 20 p0]"}},
      {"the broadcast group decides",
       [] { bcm_multicast_egress_delete(0, 0x100000a, sim::LocalGport(3), 0x8003); },
       1,
       Frame{},
       {"2:[0x8100 10 p0]"}},
      {"group members outside the VLAN are pruned",
       [] { bcm_vlan_gport_delete(0, 10, sim::LocalGport(3)); },
       1,
       Frame{},
       {"2:[0x8100 10 p0]"}},
      {"egress outer TPID",
       [] { bcm_port_tpid_set(0, 3, 0x88a8); },
       2,
       Tagged(10),
       {"1:untagged", "3:[0x88a8 10 p0]"}},
      {"ingress translation on the second key after a miss on the first",
       [] {
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeyFirst,
                                   bcmVlanTranslateKeyPortDouble);
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeySecond,
                                   bcmVlanTranslateKeyPortOuter);
         Translate(-2, 100, [](bcm_vlan_action_set_t& a) {
           a.new_outer_vlan = 10;
           a.ot_outer = a.ot_outer_pkt_prio = bcmVlanActionReplace;
           a.priority = 4;
         })();
       },
       2,
       Tagged(100),
       {"1:untagged", "3:[0x8100 10 p4]"}},
      {"egress translation by class",
       [] {
         bcm_port_class_set(0, 3, bcmPortClassVlanTranslateEgress, 40);
         Translate(40, 10, [](bcm_vlan_action_set_t& a) {
           a.new_outer_vlan = 300;
           a.ot_outer = bcmVlanActionReplace;
           a.outer_tpid = 0x9100;
           a.outer_tpid_action = bcmVlanTpidActionModify;
         })();
       },
       1,
       Frame{},
       {"2:[0x8100 10 p0]", "3:[0x9100 300 p0]"}},
      {"customer port pushes the service tag",
       [] {
         bcm_port_dtag_mode_set(0, 1, BCM_PORT_DTAG_MODE_EXTERNAL);
         bcm_port_tpid_set(0, 2, 0x88a8);
       },
       1,
       Tagged(7, 0x8100, 2),
       {"2:[0x88a8 10 p0][0x8100 7 p2]", "3:[0x8100 10 p0][0x8100 7 p2]"}},
      {"one copy per trunk, none back into the ingress trunk",
       [] {
         sim::common().AddLag(sim::Lag(1), 1);
         for (unsigned port : {2, 3}) {
           sim::common().AddPort(sim::EthernetPort(1, port), sim::LocalGport(port));
           sim::common().ListLagMember(sim::Lag(1), sim::EthernetPort(1, port));
         }
       },
       1,
       Frame{},
       {"2:[0x8100 10 p0]"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    c.program();
    EXPECT_EQ(Outcome(sim::WalkFrame(c.ingressPort, c.frame)), c.expected);
  }
}

TEST_F(FrameWalkStagesTest, TraceNamesEveryStageInOrder) {
  std::vector<std::string> stages;
  for (const sim::WalkStep& step : sim::WalkFrame(1, Frame{}).steps)
    stages.push_back(step.stage);
  EXPECT_THAT(stages, ::testing::ElementsAre("tags", "discard", "ingress-xlate", "vlan",
                                             "ingress-filter", "flood", "egress 2", "egress 3"));
  EXPECT_THROW(sim::WalkFrame(sim::Chip::kNumPorts, Frame{}), std::out_of_range);
}

}  // namespace
