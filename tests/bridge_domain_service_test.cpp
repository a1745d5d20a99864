// The bridge-domain singleton: construction, LAG registration, the VLAN orchestrator it owns.
#include <memory>
#include <string>
#include <utility>

#include "bridge_domain_inspector.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ClientKey = std::pair<unsigned int, std::string>;

using BridgeDomainServiceTest = SimTest;

TEST_F(BridgeDomainServiceTest, FirstCallWithOrchestratorRegistersForLagEvents) {
  auto lags = std::make_shared<sim::LagOrchestratorSim>();
  HalBridgeDomainItf* service = HalBridgeDomainItf::getInstance(lags);

  EXPECT_EQ(service, HalBcmBridgeDomain::getInstance());
  EXPECT_THAT(lags->Clients(), ElementsAre(ClientKey{1000, "hal-switch-bd-ll-bcm"}));
  EXPECT_EQ(HalBcmBridgeDomainInspector(*HalBcmBridgeDomain::getInstance()).lagOrchestrator(),
            lags);

  // A new LAG is in no VLAN yet: accepted without touching the chip.
  sim::common().AddLag(sim::Lag(1), 1);
  auto answers = lags->CreateLag(sim::Lag(1));
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_TRUE(answers[0].handled);
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(BridgeDomainServiceTest, FirstCallWithoutOrchestratorNeverRegisters) {
  HalBcmBridgeDomain* first = HalBcmBridgeDomain::getInstance();
  auto lags = std::make_shared<sim::LagOrchestratorSim>();

  EXPECT_EQ(HalBridgeDomainItf::getInstance(lags), first);
  EXPECT_THAT(lags->Clients(), IsEmpty());
  HalBcmBridgeDomainInspector books(*first);
  EXPECT_EQ(books.lagOrchestrator(), nullptr);

  // The VLAN orchestrator exists all the same, and is handed out shared, not copied.
  auto vlans = first->GetVlanOrchestrator();
  ASSERT_NE(vlans, nullptr);
  EXPECT_EQ(vlans.get(), books.vlanOrchestrator().get());
  EXPECT_EQ(books.vlanOrchestrator().use_count(), 2);
}

TEST_F(BridgeDomainServiceTest, WorksOnTheUnitOfTheCommonLibrary) {
  sim::common().SetUnit(2);
  sim::chip().CreateVlan(10);
  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance();
  HalBcmBridgeDomainInspector books(*service);

  EXPECT_EQ(books.unit(), 2);
  EXPECT_EQ(books.bcmCommon(), HalBcmCommon::GetInstance());
  EXPECT_EQ(service->delAllMembers(sim::BridgeDomain(10)), 0);
  EXPECT_THAT(Trace("bcm_vlan_gport_delete_all"),
              ElementsAre("bcm_vlan_gport_delete_all(2, 10) = 0"));
}

TEST_F(BridgeDomainServiceTest, CreateAndDestroyChangeNothing) {
  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance();
  sim::chip().CreateVlan(10);

  EXPECT_EQ(service->create(sim::BridgeDomain(10), st_HalBridgeDomainId{10}), 0);
  EXPECT_EQ(service->create(sim::BridgeDomain(4000), st_HalBridgeDomainId{4000}), 0);
  EXPECT_EQ(service->destroy(sim::BridgeDomain(10)), 0);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_TRUE(sim::chip().HasVlan(10));
  EXPECT_FALSE(sim::chip().HasVlan(4000));
  EXPECT_THAT(sim::common().VlanMembers(), IsEmpty());
}

}  // namespace
