// The two services as process-wide singletons (creation, registration for LAG events, the free TPID
// query), and the library's bindings to the companion libraries. Each test runs in a process of
// its own, so every one starts without services. Then the VLAN orchestrator's registry and its two
// notification walks.
#include <stdexcept>

#include "composed_id.h"
#include "hal_platform.h"
#include "service_fixtures.h"
#include "vlan_orchestrator_impl.h"

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

using halswitchbd::VlanOrchestrator;

class VlanOrchestratorTest : public SimTest {
 protected:
  // A client that writes down "<name>+<vlan>/<intf>/<tagged>" or "<name>-<vlan>/<intf>" and
  // answers `answer`.
  VlanOrchestrator::Callback Client(const std::string& name, bool answer = true) {
    return {[=](const unsigned short& vlan, const limid_t& intf, bool tagged) {
              events.push_back(name + "+" + std::to_string(vlan) + "/" + sim::NameOf(intf) +
                               (tagged ? "/tagged" : "/untagged"));
              return answer;
            },
            [=](const unsigned short& vlan, const limid_t& intf) {
              events.push_back(name + "-" + std::to_string(vlan) + "/" + sim::NameOf(intf));
              return answer;
            }};
  }
  void Register(unsigned int priority, const std::string& name, bool answer = true) {
    orchestrator.RegisterClient(priority, name, Client(name, answer));
  }

  halswitchbd::VlanOrchestratorImpl orchestrator;
  Lines events;
  const limid_t port = Eth(3);
};

// A refusing client is logged and the walk goes on; a missing handler skips only its event.
TEST_F(VlanOrchestratorTest, AdditionsAscendAndRemovalsDescendByPriorityThenName) {
  for (const auto& [priority, name] : std::vector<std::pair<unsigned, std::string>>{
           {10, "b"}, {5, "z"}, {4294967295u, "last"}, {10, "ab"}})
    Register(priority, name);
  Register(10, "a", false);
  orchestrator.RegisterClient(7, "y", {nullptr, Client("y").vlan_remove});
  orchestrator.NotifyMemberAddedToVlan(20, port, false);
  orchestrator.NotifyMemberRemovedFromVlan(20, port);

  EXPECT_THAT(events, ElementsAre("z+20/eth1/3/untagged", "a+20/eth1/3/untagged",
                                  "ab+20/eth1/3/untagged", "b+20/eth1/3/untagged",
                                  "last+20/eth1/3/untagged", "last-20/eth1/3", "b-20/eth1/3",
                                  "ab-20/eth1/3", "a-20/eth1/3", "y-20/eth1/3", "z-20/eth1/3"));
  EXPECT_THAT(
      LogLines(),
      ElementsAre("log(4): Client a: returned error on vlan_add, vlan: 20 interface: eth1/3",
                  "log(4): Client a: returned error on vlan_remove, vlan: 20 interface: "
                  "eth1/3"));
}

// Records are copied, not moved: the caller keeps its handlers, refused or accepted.
TEST_F(VlanOrchestratorTest, ClientsAreKeyedByPriorityAndNameAndTheFirstOfAKeyStays) {
  Register(3, "x");
  Register(3, "y");
  VlanOrchestrator::Callback throwing;
  throwing.vlan_add = [](const unsigned short&, const limid_t&, bool) -> bool {
    throw std::runtime_error("client failed");
  };
  orchestrator.RegisterClient(3, "x", std::move(throwing));
  // Reading the records after std::move is the point: RegisterClient copies what it is handed.
  EXPECT_TRUE(static_cast<bool>(throwing.vlan_add));  // NOLINT(bugprone-use-after-move)
  // cppcheck-suppress accessMoved
  VlanOrchestrator::Callback accepted = throwing;
  // cppcheck-suppress accessMoved
  orchestrator.RegisterClient(4, "x", std::move(accepted));
  EXPECT_TRUE(static_cast<bool>(accepted.vlan_add));  // NOLINT(bugprone-use-after-move)

  orchestrator.DeregisterClient(4, "x");
  orchestrator.DeregisterClient(9, "never");  // unknown: nothing to say
  orchestrator.NotifyMemberAddedToVlan(7, port, true);
  EXPECT_THAT(events, ElementsAre("x+7/eth1/3/tagged", "y+7/eth1/3/tagged"));
  EXPECT_THAT(LogLines(), ElementsAre("error(-1): Another client already registered in the same "
                                      "priority(3) and name(x)"));

  // A client's exception passes to the notifier and ends the walk.
  // cppcheck-suppress accessMoved
  orchestrator.RegisterClient(1, "thrower", std::move(throwing));
  EXPECT_THROW(orchestrator.NotifyMemberAddedToVlan(8, port, true), std::runtime_error);
  EXPECT_EQ(events.size(), 2u);
}

}  // namespace
