// Each stage of the frame walk on a chip programmed directly through the SDK.
#include <functional>

#include "service_fixtures.h"
#include "sim/frame_walk.h"

namespace {

using sim::Frame;
using sim::FrameTag;

// "port:frame" per copy, or the single line "drop@stage: reason".
std::vector<std::string> Outcome(const sim::FrameWalk& walk) {
  if (walk.dropped)
    return {"drop@" + walk.dropStage + ": " + walk.dropReason};
  std::vector<std::string> copies;
  for (const sim::FrameCopy& copy : walk.copies)
    copies.push_back(std::to_string(copy.port) + ":" + sim::FormatFrame(copy.frame));
  return copies;
}

Frame Tagged(uint16_t vlan, uint16_t tpid = 0x8100, uint8_t priority = 0) {
  return Frame{{FrameTag{tpid, vlan, priority}}};
}

// The examples' frame walks show every stage end to end (drops, Q-in-Q, translation, trunks);
// these are the decisions they do not show.
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
  const struct {
    const char* name;
    std::function<void()> program;  // on top of the base set-up
    int ingressPort;
    Frame frame;
    std::vector<std::string> expected;
  } cases[] = {
      // One case a line.
      // clang-format off
      {"untagged members get it untagged", [] {}, 2, Tagged(10, 0x8100, 3),
       {"1:untagged", "3:[0x8100 10 p3]"}},
      {"priority tag keeps its priority", [] {}, 1, Tagged(0, 0x8100, 6),
       {"2:[0x8100 10 p6]", "3:[0x8100 10 p6]"}},
      {"a foreign TPID is data", [] { bcm_port_untagged_vlan_set(0, 2, 10); }, 2,
       Tagged(20, 0x9999), {"1:[0x9999 20 p0]", "3:[0x8100 10 p0][0x9999 20 p0]"}},
      {"the broadcast group decides",
       [] { bcm_multicast_egress_delete(0, 0x100000a, sim::LocalGport(3), 0x8003); }, 1, Frame{},
       {"2:[0x8100 10 p0]"}},
      {"group members outside the VLAN are pruned",
       [] { bcm_vlan_gport_delete(0, 10, sim::LocalGport(3)); }, 1, Frame{}, {"2:[0x8100 10 p0]"}},
      {"an egress priority add writes the priority, 0 too", [] {
         bcm_vlan_action_set_t a; bcm_vlan_action_set_t_init(&a); a.ot_outer_pkt_prio = bcmVlanActionAdd;
         a.priority = 0; bcm_vlan_translate_egress_action_add(0, 3, 10, 0, &a); },
       2, Tagged(10, 0x8100, 5), {"1:untagged", "3:[0x8100 10 p0]"}},
      {"an egress delete takes the tag off", [] {
         bcm_vlan_action_set_t a; bcm_vlan_action_set_t_init(&a); a.ot_outer = bcmVlanActionDelete;
         bcm_vlan_translate_egress_action_add(0, 3, 10, 0, &a); }, 2, Tagged(10), {"1:untagged", "3:untagged"}},
      // clang-format on
      {"ingress translation on the second key after a miss on the first",
       [] {
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeyFirst,
                                   bcmVlanTranslateKeyPortDouble);
         bcm_vlan_control_port_set(0, 2, bcmVlanPortTranslateKeySecond,
                                   bcmVlanTranslateKeyPortOuter);
         bcm_vlan_action_set_t a;
         bcm_vlan_action_set_t_init(&a);
         a.new_outer_vlan = 10;
         a.ot_outer = a.ot_outer_pkt_prio = bcmVlanActionReplace;
         a.priority = 4;
         bcm_vlan_translate_action_add(0, 2, bcmVlanTranslateKeyPortOuter, 100, 0, &a);
       },
       2,
       Tagged(100),
       {"1:untagged", "3:[0x8100 10 p4]"}},
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
