// Where frames go once the library has programmed the chip: expectations derived by hand from the
// configuration each test applies through the services and the LAG orchestrator.
#include <memory>

#include "hal_bridge_domain_itf.h"
#include "hal_bridge_port_itf.h"
#include "sim/frame_walk.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"
#include "walk_outcome.h"

namespace {

using sim::Frame;
using sim::FrameTag;

class FrameWalkLibraryTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    for (unsigned port = 1; port <= 4; ++port) {
      sim::common().AddPort(sim::EthernetPort(1, port), sim::LocalGport(static_cast<int>(port)));
    }
    sim::common().AddLag(lag, 1);
    domain = HalBridgeDomainItf::getInstance(orchestrator);
    bridgePort = HalBridgePortItf::getInstance(orchestrator);
  }

  static limid_t Port(unsigned n) { return sim::EthernetPort(1, n); }
  static limid_t Vlan(unsigned n) { return sim::BridgeDomain(n); }

  const limid_t lag = sim::Lag(1);
  std::shared_ptr<sim::LagOrchestratorSim> orchestrator =
      std::make_shared<sim::LagOrchestratorSim>();
  HalBridgeDomainItf* domain = nullptr;
  HalBridgePortItf* bridgePort = nullptr;
};

TEST_F(FrameWalkLibraryTest, PortJoiningALagFloodsInTheLagsVlansUntilItLeaves) {
  sim::chip().CreateVlan(20);
  ASSERT_EQ(domain->addMember(Vlan(20), Port(1), false, 0), 0);
  ASSERT_EQ(bridgePort->SetNativeVlan(Port(1), 20), 0);
  ASSERT_EQ(domain->addMember(Vlan(20), lag, true, 0), 0);
  const Frame untagged;

  EXPECT_EQ(Outcome(sim::WalkFrame(1, untagged)),
            std::vector<std::string>{"drop@flood: no egress port"});
  orchestrator->AddMember(lag, Port(3));
  EXPECT_EQ(Outcome(sim::WalkFrame(1, untagged)), std::vector<std::string>{"3:[0x8100 20 p0]"});
  orchestrator->DeleteMember(lag, Port(3));
  EXPECT_EQ(Outcome(sim::WalkFrame(1, untagged)),
            std::vector<std::string>{"drop@flood: no egress port"});
}

TEST_F(FrameWalkLibraryTest, QinqCustomerFrameLeavesTheUplinkWithTheTranslatedServiceTag) {
  sim::chip().CreateVlan(100);
  ASSERT_EQ(domain->addMember(Vlan(100), Port(1), false, 0), 0);
  ASSERT_EQ(domain->addMember(Vlan(100), Port(2), true, 0), 0);
  ASSERT_EQ(bridgePort->SetTpid(Port(2), 0x88a8), 0);
  // Customer VLAN 10 is carried in service VLAN 100; the rule is installed before Q-in-Q is
  // switched on, so the switch re-programs it for the customer-tag layout.
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = {10, 0x8100, 15};
  rule.operation = vlanxlate::Operation::Add;
  rule.action.outerVlanTag = {100, 0, 15};
  ASSERT_EQ(bridgePort->AddVlanMappingRule(Port(1), vlanxlate::Stage::Ingress, rule), 0);
  ASSERT_EQ(bridgePort->SetVlanQinQ(Port(1), HAL_BP_QINQ_ENABLE), 0);

  // The customer's priority is copied into the service tag (the rule leaves it unused).
  EXPECT_EQ(Outcome(sim::WalkFrame(1, Frame{{FrameTag{0x8100, 10, 3}}})),
            std::vector<std::string>{"2:[0x88a8 100 p3][0x8100 10 p3]"});
  // A customer VLAN without a rule gets the port's native VLAN, which carries nothing here.
  EXPECT_EQ(Outcome(sim::WalkFrame(1, Frame{{FrameTag{0x8100, 11, 0}}})),
            std::vector<std::string>{"drop@ingress-filter: VLAN 1 does not exist"});
  // The way back: the uplink's double-tagged frame reaches the customer with its own tag only.
  EXPECT_EQ(Outcome(sim::WalkFrame(2, Frame{{FrameTag{0x88a8, 100, 0}, FrameTag{0x8100, 10, 0}}})),
            std::vector<std::string>{"1:[0x8100 10 p0]"});
}

TEST_F(FrameWalkLibraryTest, BlockingStopsIngressAndUnblockingRestoresTheFrameTypes) {
  sim::chip().CreateVlan(10);
  ASSERT_EQ(domain->addMember(Vlan(10), Port(1), false, 0), 0);
  ASSERT_EQ(domain->addMember(Vlan(10), Port(2), true, 0), 0);
  ASSERT_EQ(bridgePort->SetNativeVlan(Port(1), 10), 0);
  const Frame untagged;
  const Frame tagged{{FrameTag{0x8100, 10, 0}}};
  EXPECT_EQ(Outcome(sim::WalkFrame(1, untagged)), std::vector<std::string>{"2:[0x8100 10 p0]"});

  ASSERT_EQ(BlockPort(Port(1), true, "hal-stlp"), 0);
  ASSERT_EQ(bridgePort->SetAcceptableFrameType(Port(1), HAL_BP_ADMIT_ONLY_TAGGED), 0);
  EXPECT_EQ(Outcome(sim::WalkFrame(1, tagged)),
            std::vector<std::string>{"drop@discard: port discards all frames"});
  // Blocking is an ingress setting: the blocked port still receives the VLAN's floods.
  EXPECT_EQ(Outcome(sim::WalkFrame(2, tagged)), std::vector<std::string>{"1:untagged"});

  ASSERT_EQ(BlockPort(Port(1), false, "hal-stlp"), 0);
  EXPECT_EQ(Outcome(sim::WalkFrame(1, untagged)),
            std::vector<std::string>{"drop@discard: port discards untagged frames"});
  EXPECT_EQ(Outcome(sim::WalkFrame(1, tagged)), std::vector<std::string>{"2:[0x8100 10 p0]"});
}

}  // namespace
