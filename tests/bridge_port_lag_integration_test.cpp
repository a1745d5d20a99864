// Both services behind one LAG orchestrator, as on the switch: the bridge domain moves a port's
// VLAN membership first, then the bridge port applies the LAG's attributes to it.
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hal_bcm_bridge_domain.h"
#include "hal_bcm_bridge_port.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"
#include "sim_test.h"

namespace {

using ::testing::IsEmpty;
using Client = std::pair<unsigned int, std::string>;
using ChipMembers = std::map<int, bool>;  // port -> untagged

const limid_t kPort = sim::EthernetPort(1, 1);
const limid_t kLag = sim::Lag(1);

// Which clients answered, in the order the orchestrator asked them, and whether all handled it.
std::vector<Client> Answered(const std::vector<sim::LagOrchestratorSim::Answer>& answers,
                             bool& allHandled) {
  std::vector<Client> clients;
  allHandled = true;
  for (const auto& answer : answers) {
    clients.emplace_back(answer.priority, answer.name);
    allHandled = allHandled && answer.handled;
  }
  return clients;
}

class BridgePortWithBridgeDomain : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::chip().CreateVlan(10);
    sim::chip().CreateVlan(20);
    sim::common().AddPort(kPort, sim::LocalGport(1));
    sim::common().AddLag(kLag, 5);
    // The bridge port is created first on purpose: the order of events must not depend on it.
    bridgePort = HalBcmBridgePort::GetInstance(lags);
    bridgeDomain = HalBcmBridgeDomain::getInstance(lags);
  }

  // The index of the first chip call of function in the trace.
  static size_t FirstCallOf(const std::string& function) {
    const auto& trace = sim::chip().Trace();
    for (size_t i = 0; i < trace.size(); ++i) {
      if (trace[i].function == function)
        return i;
    }
    return trace.size();
  }

  std::shared_ptr<sim::LagOrchestratorSim> lags = std::make_shared<sim::LagOrchestratorSim>();
  HalBcmBridgePort* bridgePort = nullptr;
  HalBcmBridgeDomain* bridgeDomain = nullptr;
};

TEST_F(BridgePortWithBridgeDomain, PortJoiningAndLeavingLagIsMovedByBothServicesInPriorityOrder) {
  ASSERT_EQ(bridgeDomain->addMember(sim::BridgeDomain(10), kPort, false, 0), 0);
  ASSERT_EQ(bridgeDomain->addMember(sim::BridgeDomain(20), kLag, true, 0), 0);
  ASSERT_EQ(bridgePort->SetNativeVlan(kLag, 20), 0);
  ClearRecords();
  const std::vector<Client> bothInOrder{{1000, "hal-switch-bd-ll-bcm"},
                                        {1001, "hal-switch-bd-ll-bcm-bridgeport"}};
  bool allHandled = false;

  EXPECT_EQ(Answered(lags->AddMember(kLag, kPort), allHandled), bothInOrder);

  EXPECT_TRUE(allHandled);
  EXPECT_THAT(sim::chip().Vlan(10).members, IsEmpty());
  EXPECT_EQ(sim::chip().Vlan(20).members, (ChipMembers{{1, false}}));
  EXPECT_EQ(sim::chip().Port(1).untaggedVlan, 20);
  EXPECT_EQ(sim::chip().Port(1).egressClass, 122u);
  EXPECT_LT(FirstCallOf("bcm_vlan_gport_delete"), FirstCallOf("bcm_port_discard_set"));
  EXPECT_THAT(LogLines(), IsEmpty());
  ClearRecords();

  EXPECT_EQ(Answered(lags->DeleteMember(kLag, kPort), allHandled), bothInOrder);

  EXPECT_TRUE(allHandled);
  EXPECT_THAT(sim::chip().Vlan(20).members, IsEmpty());
  EXPECT_THAT(sim::chip().Vlan(10).members, IsEmpty());
  EXPECT_EQ(sim::chip().Port(1).untaggedVlan, 4095);
  EXPECT_EQ(sim::chip().Port(1).egressClass, 1u);
  EXPECT_LT(FirstCallOf("bcm_vlan_gport_delete"), FirstCallOf("bcm_port_discard_set"));
  EXPECT_THAT(LogLines(), IsEmpty());
}

}  // namespace
