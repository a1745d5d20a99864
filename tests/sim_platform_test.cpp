// The simulated identifier library, common tables and LAG orchestrator.
#include <stdexcept>

#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SimPlatformTest : public SimTest {};

TEST_F(SimPlatformTest, IdentifiersHaveReadableNamesAndKinds) {
  const struct {
    const char* name;
    limid_t id;
    bool ethernet;
    bool lag;
  } cases[] = {{"eth1/3", sim::EthernetPort(1, 3), true, false},
               {"eth2/48", sim::EthernetPort(2, 48), true, false},
               {"lag5", sim::Lag(5), false, true},
               {"vlan4094", sim::BridgeDomain(4094), false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(sim::NameOf(c.id), c.name);
    EXPECT_TRUE(sim::ParseId(c.name) == c.id);
    EXPECT_EQ(limid_is_from_type_ethernet(c.id) != 0, c.ethernet);
    EXPECT_EQ(limid_is_from_type(c.id, limid_type_lag) != 0, c.lag);
    EXPECT_EQ(HalBcmCommon::GetInstance()->DecodeLimId(c.id).get(), std::string(c.name));
  }
  for (const char* bad : {"eth1", "lag", "vlan70000", "port3", "eth1/3x", ""}) {
    EXPECT_THROW(sim::ParseId(bad), std::invalid_argument) << bad;
  }
}

TEST_F(SimPlatformTest, PortsOfOneSlotSortByPortNumber) {
  EXPECT_TRUE(sim::EthernetPort(1, 2) < sim::EthernetPort(1, 10));
  EXPECT_TRUE(sim::EthernetPort(1, 300) < sim::EthernetPort(2, 1));
}

TEST_F(SimPlatformTest, BridgeDomainComponentsGiveTheVlan) {
  uint32_t kind = 7;
  uint32_t vlan = 0;
  EXPECT_EQ(limid_to_bridgedomain_components(sim::BridgeDomain(10), &kind, &vlan), 0);
  EXPECT_EQ(vlan, 10u);
  vlan = 0;
  EXPECT_NE(limid_to_bridgedomain_components(sim::Lag(10), &kind, &vlan), 0);
  EXPECT_EQ(vlan, 0u);
}

class SimLagOrchestratorTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::common().AddLag(lag, 5);
  }

  // A client that records each event with the LAG's member count at that moment.
  void Register(unsigned int priority, const std::string& name, bool answer = true) {
    halswitchl2if::LagOrchestrator::Callback callback;
    auto members = [this]() {
      return std::to_string(HalBcmCommon::GetInstance()->GetLagMembers(lag).size());
    };
    callback.lagCreated = [=](const limid_t&) {
      events.push_back(name + " created");
      return answer;
    };
    callback.lagDeleted = [=](const limid_t&) {
      events.push_back(name + " deleted, members " + members());
      return answer;
    };
    callback.memberAdded = [=](const limid_t&, const limid_t& m) {
      events.push_back(name + " added " + sim::NameOf(m) + ", members " + members());
      return answer;
    };
    callback.memberDeleted = [=](const limid_t&, const limid_t& m) {
      events.push_back(name + " removed " + sim::NameOf(m) + ", members " + members());
      return answer;
    };
    EXPECT_TRUE(orchestrator.RegisterClient(priority, name, std::move(callback)));
  }

  sim::LagOrchestratorSim orchestrator;
  const limid_t lag = sim::Lag(5);
  std::vector<std::string> events;
};

TEST_F(SimLagOrchestratorTest, EventsReachClientsInAscendingPriorityWithMembersListedAsOnTheSwitch) {
  Register(1001, "port");
  Register(1000, "domain", false);
  const limid_t member = sim::EthernetPort(1, 1);
  orchestrator.CreateLag(lag);
  const auto answers = orchestrator.AddMember(lag, member);
  orchestrator.DeleteMember(lag, member);
  orchestrator.AddMember(lag, member);
  orchestrator.DeleteLag(lag);

  EXPECT_THAT(events, ElementsAre("domain created", "port created",
                                  "domain added eth1/1, members 1", "port added eth1/1, members 1",
                                  "domain removed eth1/1, members 1",
                                  "port removed eth1/1, members 1",
                                  "domain added eth1/1, members 1", "port added eth1/1, members 1",
                                  "domain deleted, members 1", "port deleted, members 1"));
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_EQ(answers[0].name, "domain");
  EXPECT_FALSE(answers[0].handled);
  EXPECT_TRUE(answers[1].handled);
  EXPECT_FALSE(sim::common().HasLag(lag));
}

TEST_F(SimLagOrchestratorTest, DuplicateClientIsRefusedAndClientsWithoutAHandlerAreSkipped) {
  Register(5, "a");
  EXPECT_FALSE(orchestrator.RegisterClient(5, "a", {}));
  EXPECT_TRUE(orchestrator.RegisterClient(4, "silent", {}));
  EXPECT_THAT(orchestrator.Clients(),
              ElementsAre(std::make_pair(4u, std::string("silent")), std::make_pair(5u, std::string("a"))));
  EXPECT_EQ(orchestrator.CreateLag(lag).size(), 1u);
  EXPECT_THAT(events, ElementsAre("a created"));
}

TEST_F(SimLagOrchestratorTest, MemberOfAnUnknownLagIsRefused) {
  EXPECT_THROW(orchestrator.AddMember(sim::Lag(9), sim::EthernetPort(1, 1)), std::out_of_range);
  EXPECT_THAT(events, IsEmpty());
}

}  // namespace
