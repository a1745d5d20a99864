// The two services as process-wide singletons (creation, registration for LAG events, the free TPID
// query), and the library's bindings to the companion libraries. Each test runs in a process of
// its own, so every one starts without services.
#include <stdexcept>

#include "composed_id.h"
#include "hal_platform.h"
#include "service_fixtures.h"

namespace {

using Client = std::pair<unsigned int, std::string>;
using ServiceFactories = PlatformTest;

// Refuses the first registration by throwing, as a LAG orchestrator out of memory would.
class ThrowingOnceOrchestrator : public sim::LagOrchestratorSim {
 public:
  bool RegisterClient(unsigned int priority, const std::string& name,
                      Callback&& callback) override {
    if (!thrown) {
      thrown = true;
      throw std::runtime_error("registration failed");
    }
    return sim::LagOrchestratorSim::RegisterClient(priority, name, std::move(callback));
  }
  bool thrown = false;
};

TEST_F(ServiceFactories, EachServiceRegistersOnceForLagEventsAndNeedsNoWorkOnLagCreation) {
  auto later = std::make_shared<sim::LagOrchestratorSim>();
  HalBridgePortItf* port = HalBridgePortItf::getInstance(lags);
  HalBridgeDomainItf* domain = HalBridgeDomainItf::getInstance(lags);

  // Later calls return the same services, ignore their argument and publish the port service again.
  _halbp_global = nullptr;
  EXPECT_EQ(HalBridgePortItf::getInstance(later), port);
  EXPECT_EQ(_halbp_global, port);
  EXPECT_EQ(HalBridgeDomainItf::getInstance(later), domain);
  EXPECT_EQ(HalBcmBridgeDomain::getInstance(), domain);
  EXPECT_THAT(later->Clients(), IsEmpty());
  EXPECT_THAT(lags->Clients(), ElementsAre(Client{1000, "hal-switch-bd-ll-bcm"},
                                           Client{1001, "hal-switch-bd-ll-bcm-bridgeport"}));
  // A new LAG has no members and is in no VLAN yet.
  EXPECT_TRUE(Handled(lags->CreateLag(kLag)));
  EXPECT_THAT(Trace(), IsEmpty());
  // The TPID map starts small: one bucket, grown only when fuller than that.
  HalBcmBridgePortInspector books(*_halbp_global);
  EXPECT_EQ(books.tpids().bucket_count(), 1u);
  EXPECT_EQ(books.tpids().max_load_factor(), 1.0f);
}

// A registration that throws reaches the caller and leaves no service: the next call constructs
// again, and only then is the port service published.
TEST_F(ServiceFactories, ConstructionThatThrowsIsRetriedByTheNextCall) {
  auto throwing = std::make_shared<ThrowingOnceOrchestrator>();
  EXPECT_THROW(HalBcmBridgePort::GetInstance(throwing), std::runtime_error);
  EXPECT_EQ(_halbp_global, nullptr);
  HalBcmBridgePort* port = HalBcmBridgePort::GetInstance(throwing);
  EXPECT_EQ(_halbp_global, port);

  throwing = std::make_shared<ThrowingOnceOrchestrator>();
  EXPECT_THROW(HalBcmBridgeDomain::getInstance(throwing), std::runtime_error);
  HalBcmBridgeDomain* domain = HalBcmBridgeDomain::getInstance(throwing);
  EXPECT_EQ(HalBcmBridgeDomainInspector(*domain).lagOrchestrator(), throwing);
  EXPECT_EQ(throwing->Clients(), (std::vector<Client>{{1000, "hal-switch-bd-ll-bcm"}}));
}

// Both take the unit of the common library; creating and destroying a VLAN is another module's.
TEST_F(ServiceFactories, ServicesCreatedWithoutOrchestratorWorkAndStayWithoutOne) {
  sim::common().SetUnit(2);
  sim::chip().CreateVlan(10);
  EXPECT_EQ(GetTpid(Eth(1)), 0x8100);  // no service yet
  HalBcmBridgePort* port = HalBcmBridgePort::GetInstance(nullptr);
  HalBcmBridgeDomain* domain = HalBcmBridgeDomain::getInstance();
  HalBcmBridgePort::GetInstance(lags);
  HalBridgeDomainItf::getInstance(lags);

  EXPECT_THAT(lags->Clients(), IsEmpty());
  HalBcmBridgeDomainInspector books(*domain);
  EXPECT_EQ(HalBcmBridgePortInspector(*port).lagOrchestrator(), nullptr);
  EXPECT_EQ(books.lagOrchestrator(), nullptr);
  EXPECT_EQ(domain->create(sim::BridgeDomain(4000), st_HalBridgeDomainId{4000}), 0);
  EXPECT_EQ(domain->destroy(sim::BridgeDomain(10)), 0);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_TRUE(sim::chip().HasVlan(10));
  EXPECT_FALSE(sim::chip().HasVlan(4000));
  EXPECT_EQ(port->SetNativeVlan(Eth(1), 10), 0);
  EXPECT_EQ(domain->delAllMembers(sim::BridgeDomain(10)), 0);
  EXPECT_EQ(Trace().front(), "bcm_port_untagged_vlan_set(2, 0x4000001, 10) = 0");
  EXPECT_EQ(Trace().back(), "bcm_vlan_gport_delete_all(2, 10) = 0");
  // The VLAN orchestrator exists all the same, and is handed out shared, not copied.
  EXPECT_EQ(domain->GetVlanOrchestrator().get(), books.vlanOrchestrator().get());

  port->SetTpid(Eth(1), 0x88a8);
  EXPECT_EQ(std::make_tuple(GetTpid(Eth(1)), GetTpid(kLag)), std::make_tuple(0x88a8, 0x8100));
}

TEST(ComposedId, OrdersLexicographicallyWithSignedMembers) {
  using Key = composed_id<int>;
  EXPECT_TRUE((Key{5, -1} < Key{5, 0}));
  EXPECT_TRUE((Key{4, 7} < Key{5, -1}));
  EXPECT_FALSE((Key{5, 0} < Key{5, -1}));
  EXPECT_TRUE((Key{-1, 100} < Key{0, -100}));
}

TEST(BcmErrmsg, IndexesByNegatedCodeWithOneCatchAllEntry) {
  const std::pair<int, int> codeToEntry[] = {{0, 0},    {-1, 1},    {-7, 7}, {-22, 22},
                                             {-23, 23}, {-100, 23}, {5, 23}, {1, 23}};
  for (const auto& [rc, entry] : codeToEntry)
    EXPECT_EQ(bcm_errmsg(rc), _shr_errmsg[entry]) << rc;
}

TEST_F(ServiceFactories, LoggingFailurePassesToTheCallerAfterTheMessageIsKept) {
  // The decoded name is an owning handle: it is released while the exception unwinds (the
  // sanitizer runs of the suite report a leak otherwise).
  sim::halLog().ThrowOnNextMessage();
  EXPECT_THROW(halbd::Hal()->log(3, "Error %s.", halbd::DecodedName(Eth(1)).c_str()),
               std::runtime_error);
  halbd::Hal()->log(3, "next");
  EXPECT_THAT(LogLines(), ElementsAre("log(3): Error eth1/1.", "log(3): next"));
}

}  // namespace
