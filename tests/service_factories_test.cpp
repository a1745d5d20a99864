// The two services as process-wide singletons: creation, registration for LAG events, the VLAN
// orchestrator and the free TPID query. Each test runs in a process of its own, so every one
// starts without services.
#include "service_fixtures.h"

namespace {

using Client = std::pair<unsigned int, std::string>;
using ServiceFactories = PlatformTest;

TEST_F(ServiceFactories, EachServiceRegistersOnceForLagEventsAndNeedsNoWorkOnLagCreation) {
  auto later = std::make_shared<sim::LagOrchestratorSim>();
  HalBridgePortItf* port = HalBridgePortItf::getInstance(lags);
  HalBridgeDomainItf* domain = HalBridgeDomainItf::getInstance(lags);

  // Later calls return the same services and ignore their argument.
  EXPECT_EQ(HalBridgePortItf::getInstance(later), port);
  EXPECT_EQ(HalBridgeDomainItf::getInstance(later), domain);
  EXPECT_EQ(HalBcmBridgeDomain::getInstance(), domain);
  EXPECT_EQ(_halbp_global, port);
  EXPECT_THAT(later->Clients(), IsEmpty());
  EXPECT_THAT(lags->Clients(), ElementsAre(Client{1000, "hal-switch-bd-ll-bcm"},
                                           Client{1001, "hal-switch-bd-ll-bcm-bridgeport"}));
  EXPECT_EQ(HalBcmBridgePortInspector(*_halbp_global).lagOrchestrator(), lags);
  EXPECT_EQ(HalBcmBridgeDomainInspector(*HalBcmBridgeDomain::getInstance()).lagOrchestrator(),
            lags);

  // A new LAG has no members and is in no VLAN yet.
  EXPECT_TRUE(Handled(lags->CreateLag(kLag)));
  EXPECT_THAT(Trace(), IsEmpty());
}

// Both take the unit of the common library; creating and destroying a VLAN is another module's.
TEST_F(ServiceFactories, ServicesCreatedWithoutOrchestratorWorkAndStayWithoutOne) {
  sim::common().SetUnit(2);
  sim::chip().CreateVlan(10);
  HalBcmBridgePort* port = HalBcmBridgePort::GetInstance(nullptr);
  HalBcmBridgeDomain* domain = HalBcmBridgeDomain::getInstance();
  HalBcmBridgePort::GetInstance(lags);
  HalBridgeDomainItf::getInstance(lags);

  EXPECT_THAT(lags->Clients(), IsEmpty());
  HalBcmBridgeDomainInspector books(*domain);
  EXPECT_EQ(HalBcmBridgePortInspector(*port).lagOrchestrator(), nullptr);
  EXPECT_EQ(books.lagOrchestrator(), nullptr);
  EXPECT_EQ(std::make_tuple(books.unit(), HalBcmBridgePortInspector(*port).unit()),
            std::make_tuple(2, 2));
  EXPECT_EQ(domain->create(sim::BridgeDomain(4000), st_HalBridgeDomainId{4000}), 0);
  EXPECT_EQ(domain->destroy(sim::BridgeDomain(10)), 0);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_TRUE(sim::chip().HasVlan(10));
  EXPECT_FALSE(sim::chip().HasVlan(4000));
  EXPECT_EQ(port->SetNativeVlan(Eth(1), 10), 0);
  EXPECT_EQ(domain->delAllMembers(sim::BridgeDomain(10)), 0);
  EXPECT_EQ(Trace().back(), "bcm_vlan_gport_delete_all(2, 10) = 0");
  // The VLAN orchestrator exists all the same, and is handed out shared, not copied.
  auto vlans = domain->GetVlanOrchestrator();
  EXPECT_EQ(vlans.get(), books.vlanOrchestrator().get());
  EXPECT_EQ(books.vlanOrchestrator().use_count(), 2);
}

TEST_F(ServiceFactories, TpidQueryAnswersTheDefaultUntilATpidIsStored) {
  EXPECT_EQ(_halbp_global, nullptr);
  EXPECT_EQ(GetTpid(Eth(1)), 0x8100);

  HalBridgePortItf* service = HalBridgePortItf::getInstance(nullptr);
  EXPECT_EQ(GetTpid(Eth(1)), 0x8100);

  service->SetTpid(Eth(1), 0x88a8);
  EXPECT_EQ(GetTpid(Eth(1)), 0x88a8);
  EXPECT_EQ(GetTpid(kLag), 0x8100);
}

}  // namespace
