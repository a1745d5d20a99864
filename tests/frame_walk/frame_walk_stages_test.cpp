// Each stage of the frame walk on a chip programmed directly through the SDK, and what the chip
// keeps while it forwards: learned addresses, the trunk hash, the CPU port's actions, counters.
#include <functional>

#include "service_fixtures.h"
#include "sim/datapath.h"
#include "sim/frame_walk.h"

namespace {

using sim::Frame;
using sim::FrameTag;
using sim::MacAddress;

// "port:frame" per copy and "cpu:reason", or the single line "drop@stage: reason".
std::vector<std::string> Outcome(const sim::FrameWalk& walk) {
  if (walk.dropped)
    return {"drop@" + walk.dropStage + ": " + walk.dropReason};
  std::vector<std::string> copies;
  for (const sim::FrameCopy& copy : walk.copies)
    copies.push_back(std::to_string(copy.port) + ":" + sim::FormatFrame(copy.frame));
  if (!walk.cpuReason.empty())
    copies.push_back("cpu:" + walk.cpuReason);
  return copies;
}

MacAddress Host(uint8_t n) {
  return MacAddress{0x02, 0, 0, 0, 0, n};
}

// An untagged frame from host src to host dst (0: broadcast).
Frame From(uint8_t src, uint8_t dst = 0) {
  Frame frame;
  frame.src = Host(src);
  if (dst != 0)
    frame.dst = Host(dst);
  return frame;
}

// An IPv4 packet of the protocol behind the addresses, with a UDP destination port.
Frame Ip(uint8_t protocol, uint8_t udpDstPort = 0) {
  Frame frame = From(9);
  frame.payload = {0x08, 0x00,     0x45, 0,  0, 28,         0, 0, 0,    0,
                   64,   protocol, 0,    0,  0, 0,          0, 0, 0xff, 0xff,
                   0xff, 0xff,     0,    68, 0, udpDstPort, 0, 8, 0,    0};
  return frame;
}

Frame Tagged(uint16_t vlan, uint16_t tpid = 0x8100, uint8_t priority = 0) {
  return Frame{{FrameTag{tpid, vlan, priority}}};
}

// The examples' frame walks show every stage end to end (drops, Q-in-Q, translation, trunks);
// these are the decisions they do not show.
// Base: VLAN 10 with its broadcast group; port 1 an untagged member, ports 2 and 3 tagged members,
// all three in the group and of native VLAN 10.
class FrameWalkStagesTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    const bcm_multicast_t group = sim::chip().CreateVlan(10);
    for (int port : {1, 2, 3}) {
      bcm_vlan_gport_add(0, 10, sim::LocalGport(port), port == 1 ? BCM_VLAN_GPORT_ADD_UNTAGGED : 0);
      bcm_multicast_egress_add(0, group, sim::LocalGport(port), sim::Chip::EncapOf(port));
    }
    for (int port : {1, 2, 3})
      bcm_port_untagged_vlan_set(0, port, 10);
  }

  static void SetDhcp(uint32_t bits) {
    bcm_vlan_control_vlan_t control;
    bcm_vlan_control_vlan_t_init(&control);
    control.protocol_pkt.dhcp_action = bits;
    bcm_vlan_control_vlan_selective_set(0, 10, BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK, &control);
  }

  static void SetFlags(uint32_t flags) {
    bcm_vlan_control_vlan_t control;
    bcm_vlan_control_vlan_get(0, 10, &control);
    control.flags = flags;
    bcm_vlan_control_vlan_set(0, 10, control);
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

// Frames sent in order; the outcome of the last one.
struct Send {
  int port;
  Frame frame;
};

TEST_F(FrameWalkStagesTest, LearnedAddressesForwardToOnePort) {
  const struct {
    const char* name;
    std::vector<Send> sends;
    std::function<void()> between;  // before the last frame
    std::vector<std::string> expected;
  } cases[] = {
      // clang-format off
      {"learned unicast goes to its port only", {{1, From(1)}, {2, From(2, 1)}}, [] {},
       {"1:untagged"}},
      {"unknown unicast floods", {{2, From(2, 1)}}, [] {}, {"1:untagged", "3:[0x8100 10 p0]"}},
      {"a moved address follows its last source", {{1, From(1)}, {3, From(1)}, {2, From(2, 1)}},
       [] {}, {"3:[0x8100 10 p0]"}},
      {"never back to the ingress port", {{1, From(1)}, {1, From(2, 1)}}, [] {},
       {"drop@forward: destination 02:00:00:00:00:01 on port 1, where the frame came from"}},
      {"flush all", {{1, From(1)}, {2, From(2, 1)}}, [] { sim::FlushFdb({}); },
       {"1:untagged", "3:[0x8100 10 p0]"}},
      {"the port left the VLAN: dropped, not flooded", {{3, From(3)}, {2, From(2, 3)}},
       [] { bcm_vlan_gport_delete(0, 10, sim::LocalGport(3)); },
       {"drop@forward: port 3 is not a member of VLAN 10"}},
      {"still known one second before the age time", {{1, From(1)}, {2, From(2, 1)}},
       [] { sim::AdvanceClock(sim::kDefaultAgeTime - 1); }, {"1:untagged"}},
      {"aged out at the age time", {{1, From(1)}, {2, From(2, 1)}},
       [] { sim::AdvanceClock(sim::kDefaultAgeTime); }, {"1:untagged", "3:[0x8100 10 p0]"}},
      {"a shorter age time ages at once", {{1, From(1)}, {2, From(2, 1)}},
       [] { sim::AdvanceClock(10); sim::SetAgeTime(10); }, {"1:untagged", "3:[0x8100 10 p0]"}},
      {"age time 0 never ages", {{1, From(1)}, {2, From(2, 1)}},
       [] { sim::SetAgeTime(0); sim::AdvanceClock(100000); }, {"1:untagged"}},
      {"flush by port", {{1, From(1)}, {2, From(2, 1)}},
       [] { sim::FlushFdb({std::nullopt, 1, std::nullopt}); }, {"1:untagged", "3:[0x8100 10 p0]"}},
      {"flush of another VLAN keeps it", {{1, From(1)}, {2, From(2, 1)}},
       [] { sim::FlushFdb({20, std::nullopt, std::nullopt}); }, {"1:untagged"}},
      // DHCP action bits and the IGMP snooping flag of the VLAN's control record.
      {"DHCP, no action bits: flooded", {{1, Ip(17, 67)}}, [] {},
       {"2:[0x8100 10 p0]", "3:[0x8100 10 p0]"}},
      {"DHCP to the CPU and flooded", {{1, Ip(17, 68)}}, [] { SetDhcp(0x1); },
       {"2:[0x8100 10 p0]", "3:[0x8100 10 p0]", "cpu:DHCP"}},
      {"DHCP dropped", {{1, Ip(17, 67)}}, [] { SetDhcp(0x4); },
       {"drop@protocol: DHCP, VLAN 10 DHCP action 0x4: dropped"}},
      {"DHCP to the CPU only", {{1, Ip(17, 67)}}, [] { SetDhcp(0x5); }, {"cpu:DHCP"}},
      {"other UDP is not DHCP", {{1, Ip(17, 53)}}, [] { SetDhcp(0x4); },
       {"2:[0x8100 10 p0]", "3:[0x8100 10 p0]"}},
      {"IGMP with snooping on: CPU only", {{1, Ip(2)}}, [] {}, {"cpu:IGMP"}},
      {"IGMP with snooping off: flooded", {{1, Ip(2)}}, [] { SetFlags(BCM_VLAN_IGMP_SNOOP_DISABLE); },
       {"2:[0x8100 10 p0]", "3:[0x8100 10 p0]"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    for (size_t i = 0; i + 1 < c.sends.size(); ++i)
      sim::WalkFrame(c.sends[i].port, c.sends[i].frame);
    c.between();
    const sim::FrameWalk walk = sim::WalkFrame(c.sends.back().port, c.sends.back().frame);
    EXPECT_EQ(Outcome(walk), c.expected);
  }
}

// Ports 4 to 7 are trunk 1, tagged members of VLAN 10; the address 02..:01 sits behind it.
TEST_F(FrameWalkStagesTest, TrunkLearnsForItsMembersAndHashSpreadsFlows) {
  const limid_t lag = sim::Lag(1);
  sim::common().AddLag(lag, 1);
  for (int port = 4; port <= 7; ++port) {
    const limid_t member = sim::EthernetPort(1, static_cast<unsigned>(port));
    sim::common().AddPort(member, sim::LocalGport(port));
    sim::common().ListLagMember(lag, member);
    bcm_vlan_gport_add(0, 10, sim::LocalGport(port), 0);
  }
  const auto tagged = [](Frame frame) {
    frame.tags = {FrameTag{0x8100, 10, 0}};
    return frame;
  };
  sim::WalkFrame(5, tagged(Frame{}));  // no source address: nothing learned
  sim::WalkFrame(6, tagged(From(1)));
  ASSERT_EQ(sim::FdbEntries().size(), 1u);
  EXPECT_TRUE(sim::FdbEntries()[0].trunk);
  EXPECT_EQ(
      Outcome(sim::WalkFrame(7, tagged(From(2, 1)))),
      std::vector<std::string>{
          "drop@forward: destination 02:00:00:00:00:01 on trunk 1, where the frame came from"});
  std::map<int, int> flowsPerMember;
  for (int flow = 0; flow < 300; ++flow) {
    Frame frame = From(static_cast<uint8_t>(flow), 1);
    frame.src[3] = 0x10;
    frame.src[4] = static_cast<uint8_t>(flow >> 8);
    const sim::FrameWalk first = sim::WalkFrame(2, frame);
    ASSERT_EQ(first.copies.size(), 1u);
    EXPECT_EQ(sim::WalkFrame(2, frame).copies.at(0).port, first.copies[0].port) << flow;
    ++flowsPerMember[first.copies[0].port];
  }
  EXPECT_EQ(flowsPerMember.size(), 4u);
  for (const auto& [port, flows] : flowsPerMember)
    EXPECT_GT(flows, 40) << "port " << port;
}

TEST_F(FrameWalkStagesTest, CountersAddUpOverMixedTraffic) {
  bcm_port_discard_set(0, 3, BCM_PORT_DISCARD_ALL);
  const std::vector<Send> traffic = {
      {1, From(1)},     // flooded to 2 and 3 (3 discards on ingress only)
      {2, From(2, 1)},  // known unicast to 1
      {3, From(3)},     // discarded
      {5, From(5)},     // VLAN 1, its native VLAN, does not exist
      {1, Ip(2)},       // IGMP to the CPU only
  };
  for (const Send& send : traffic)
    sim::WalkFrame(send.port, send.frame);
  const auto& ports = sim::PortCounterTable();
  EXPECT_EQ(ports.at(1).rxFrames, 2u);
  EXPECT_EQ(ports.at(1).rxBytes, 12u + 42u);
  EXPECT_EQ(ports.at(1).txFrames, 1u);
  EXPECT_EQ(ports.at(1).txBytes, 12u);  // the unicast left untagged
  EXPECT_EQ(ports.at(2).txBytes, 16u);  // the flood left tagged
  EXPECT_EQ(ports.at(3).drops.at("discard"), 1u);
  EXPECT_EQ(ports.at(3).txFrames, 1u);
  EXPECT_EQ(ports.at(5).drops.at("ingress-filter"), 1u);
  const sim::VlanCounters& vlan = sim::VlanCounterTable().at(10);
  EXPECT_EQ(vlan.flooded, 1u);
  EXPECT_EQ(vlan.forwarded, 1u);
  EXPECT_EQ(vlan.toCpu, 1u);
  sim::ClearCounters();
  EXPECT_TRUE(sim::PortCounterTable().empty());
}

TEST_F(FrameWalkStagesTest, TraceNamesEveryStageInOrder) {
  std::vector<std::string> stages;
  for (const sim::WalkStep& step : sim::WalkFrame(1, Frame{}).steps)
    stages.push_back(step.stage);
  EXPECT_THAT(stages,
              ::testing::ElementsAre("tags", "discard", "ingress-xlate", "vlan", "ingress-filter",
                                     "learn", "flood", "egress 2", "egress 3"));
  EXPECT_THROW(sim::WalkFrame(sim::Chip::kNumPorts, Frame{}), std::out_of_range);
}

}  // namespace
