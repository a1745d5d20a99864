// The bridge-port service as a process-wide singleton: creation, registration for LAG events and
// the free TPID query. Each test runs in a process of its own, so every one starts without service.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bridge_port_inspector.h"
#include "hal_bcm_bridge_port.h"
#include "hal_bridge_port_itf.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Client = std::pair<unsigned int, std::string>;

const limid_t kPort = sim::EthernetPort(1, 1);
const limid_t kLag = sim::Lag(1);

class BridgePortSingleton : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::common().AddPort(kPort, sim::LocalGport(1));
    sim::common().AddLag(kLag, 5);
  }

  std::shared_ptr<sim::LagOrchestratorSim> lags = std::make_shared<sim::LagOrchestratorSim>();
};

TEST_F(BridgePortSingleton, RegistersForLagEventsAfterTheBridgeDomainAndNeedsNoWorkOnCreation) {
  HalBridgePortItf::getInstance(lags);

  EXPECT_THAT(lags->Clients(), ElementsAre(Client{1001, "hal-switch-bd-ll-bcm-bridgeport"}));
  const auto answers = lags->CreateLag(kLag);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_TRUE(answers.front().handled);
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(BridgePortSingleton, SecondFactoryCallReturnsTheSameServiceAndIgnoresItsArgument) {
  auto later = std::make_shared<sim::LagOrchestratorSim>();
  HalBridgePortItf* first = HalBridgePortItf::getInstance(lags);

  HalBridgePortItf* second = HalBridgePortItf::getInstance(later);

  EXPECT_EQ(second, first);
  EXPECT_EQ(_halbp_global, first);
  EXPECT_THAT(later->Clients(), IsEmpty());
  EXPECT_EQ(lags->Clients().size(), 1u);
  EXPECT_EQ(HalBcmBridgePortInspector(*_halbp_global).lagOrchestrator(), lags);
}

TEST_F(BridgePortSingleton, ServiceWithoutOrchestratorWorksAndStaysWithoutOne) {
  HalBcmBridgePort* service = HalBcmBridgePort::GetInstance(nullptr);

  HalBcmBridgePort::GetInstance(lags);

  EXPECT_THAT(lags->Clients(), IsEmpty());
  EXPECT_EQ(HalBcmBridgePortInspector(*service).lagOrchestrator(), nullptr);
  EXPECT_EQ(service->SetNativeVlan(kPort, 10), 0);
  EXPECT_EQ(sim::chip().Port(1).untaggedVlan, 10);
}

TEST_F(BridgePortSingleton, ConstructionTouchesNothingAndTakesTheCommonUnit) {
  sim::common().SetUnit(2);

  HalBcmBridgePortInspector books(*HalBcmBridgePort::GetInstance(lags));

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(LogLines(), IsEmpty());
  EXPECT_EQ(books.unit(), 2);
  EXPECT_EQ(books.bcmCommon(), HalBcmCommon::GetInstance());
  EXPECT_THAT(books.ingressVlanMappings(), IsEmpty());
  EXPECT_THAT(books.egressVlanMappings(), IsEmpty());
  EXPECT_THAT(books.nativeVlans(), IsEmpty());
  EXPECT_THAT(books.untaggedPrios(), IsEmpty());
  EXPECT_THAT(books.qinqPorts(), IsEmpty());
  EXPECT_THAT(books.tpids(), IsEmpty());
  EXPECT_THAT(books.acceptableFrameTypes(), IsEmpty());
  EXPECT_THAT(books.blockedPorts(), IsEmpty());
}

TEST_F(BridgePortSingleton, TpidQueryAnswersTheDefaultUntilATpidIsStored) {
  EXPECT_EQ(_halbp_global, nullptr);
  EXPECT_EQ(GetTpid(kPort), 0x8100);

  HalBridgePortItf* service = HalBridgePortItf::getInstance(nullptr);
  EXPECT_EQ(GetTpid(kPort), 0x8100);

  service->SetTpid(kPort, 0x88a8);
  EXPECT_EQ(GetTpid(kPort), 0x88a8);
  EXPECT_EQ(GetTpid(kLag), 0x8100);
}

}  // namespace
