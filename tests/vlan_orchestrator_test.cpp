// The VLAN orchestrator's registry and its two notification walks.
#include <string>
#include <vector>

#include "sim_test.h"
#include "vlan_orchestrator_impl.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using halswitchbd::VlanOrchestrator;
using halswitchbd::VlanOrchestratorImpl;

class VlanOrchestratorTest : public SimTest {
 protected:
  // Registers a client that records each event as "<name>+<vlan>/<intf>/<tagged>" or
  // "<name>-<vlan>/<intf>", answering addResult and removeResult.
  void Register(unsigned int priority, const std::string& name, bool addResult = true,
                bool removeResult = true) {
    VlanOrchestrator::Callback callback;
    callback.vlan_add = [this, name, addResult](const unsigned short& vlan, const limid_t& intf,
                                                bool tagged) {
      events.push_back(name + "+" + std::to_string(vlan) + "/" + sim::NameOf(intf) + "/" +
                       (tagged ? "tagged" : "untagged"));
      return addResult;
    };
    callback.vlan_remove = [this, name, removeResult](const unsigned short& vlan,
                                                      const limid_t& intf) {
      events.push_back(name + "-" + std::to_string(vlan) + "/" + sim::NameOf(intf));
      return removeResult;
    };
    orchestrator.RegisterClient(priority, name, std::move(callback));
  }

  VlanOrchestratorImpl orchestrator;
  std::vector<std::string> events;
  const limid_t port = sim::EthernetPort(1, 3);
};

TEST_F(VlanOrchestratorTest, WithoutClientsNotificationsDoNothing) {
  orchestrator.NotifyMemberAddedToVlan(10, port, true);
  orchestrator.NotifyMemberRemovedFromVlan(10, port);
  EXPECT_THAT(events, IsEmpty());
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(VlanOrchestratorTest, AdditionsAscendAndRemovalsDescendByPriorityThenName) {
  Register(10, "b");
  Register(10, "a");
  Register(5, "z");
  Register(4294967295u, "last");
  Register(10, "ab");
  orchestrator.NotifyMemberAddedToVlan(20, port, false);
  orchestrator.NotifyMemberRemovedFromVlan(20, port);
  EXPECT_THAT(events, ElementsAre("z+20/eth1/3/untagged", "a+20/eth1/3/untagged",
                                  "ab+20/eth1/3/untagged", "b+20/eth1/3/untagged",
                                  "last+20/eth1/3/untagged", "last-20/eth1/3", "b-20/eth1/3",
                                  "ab-20/eth1/3", "a-20/eth1/3", "z-20/eth1/3"));
}

TEST_F(VlanOrchestratorTest, DuplicateKeyIsRefusedAndTheFirstHandlersStay) {
  Register(3, "x");
  VlanOrchestrator::Callback second;
  bool secondCalled = false;
  second.vlan_add = [&](const unsigned short&, const limid_t&, bool) {
    secondCalled = true;
    return true;
  };
  orchestrator.RegisterClient(3, "x", std::move(second));
  EXPECT_THAT(LogLines(), ElementsAre("error(-1): Another client already registered in the same "
                                      "priority(3) and name(x)"));
  // The refused record is left with the caller, untouched.
  EXPECT_TRUE(static_cast<bool>(second.vlan_add));

  orchestrator.NotifyMemberAddedToVlan(7, port, true);
  EXPECT_FALSE(secondCalled);
  EXPECT_THAT(events, ElementsAre("x+7/eth1/3/tagged"));
}

TEST_F(VlanOrchestratorTest, AcceptedRecordIsCopiedSoTheCallerKeepsItsHandlers) {
  VlanOrchestrator::Callback callback;
  callback.vlan_add = [](const unsigned short&, const limid_t&, bool) { return true; };
  orchestrator.RegisterClient(1, "copy", std::move(callback));
  EXPECT_TRUE(static_cast<bool>(callback.vlan_add));
}

TEST_F(VlanOrchestratorTest, SameNameOrSamePriorityAloneAreDistinctClients) {
  Register(3, "x");
  Register(4, "x");
  Register(3, "y");
  orchestrator.NotifyMemberAddedToVlan(1, port, true);
  EXPECT_EQ(events.size(), 3u);
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(VlanOrchestratorTest, DeregisterRemovesOnlyItsKeyAndIgnoresUnknownKeys) {
  Register(3, "x");
  Register(3, "y");
  Register(4, "x");
  orchestrator.DeregisterClient(9, "never");
  orchestrator.DeregisterClient(3, "x");
  orchestrator.NotifyMemberAddedToVlan(1, port, true);
  EXPECT_THAT(events, ElementsAre("y+1/eth1/3/tagged", "x+1/eth1/3/tagged"));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(VlanOrchestratorTest, EmptyHandlerSkipsOnlyItsEvent) {
  VlanOrchestrator::Callback removeOnly;
  int removals = 0;
  removeOnly.vlan_remove = [&](const unsigned short&, const limid_t&) {
    ++removals;
    return true;
  };
  orchestrator.RegisterClient(1, "remove-only", std::move(removeOnly));
  orchestrator.NotifyMemberAddedToVlan(5, port, true);
  orchestrator.NotifyMemberRemovedFromVlan(5, port);
  EXPECT_EQ(removals, 1);
}

TEST_F(VlanOrchestratorTest, RefusingClientIsLoggedAndTheWalkGoesOn) {
  Register(1, "first");
  Register(2, "second", false, false);
  Register(3, "third");
  orchestrator.NotifyMemberAddedToVlan(30, port, true);
  orchestrator.NotifyMemberRemovedFromVlan(30, port);
  EXPECT_THAT(events, ElementsAre("first+30/eth1/3/tagged", "second+30/eth1/3/tagged",
                                  "third+30/eth1/3/tagged", "third-30/eth1/3", "second-30/eth1/3",
                                  "first-30/eth1/3"));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(4): Client second: returned error on vlan_add, vlan: 30 "
                          "interface: eth1/3",
                          "log(4): Client second: returned error on vlan_remove, vlan: 30 "
                          "interface: eth1/3"));
}

TEST_F(VlanOrchestratorTest, ClientExceptionPassesToTheNotifier) {
  VlanOrchestrator::Callback throwing;
  throwing.vlan_add = [](const unsigned short&, const limid_t&, bool) -> bool {
    throw std::runtime_error("client failed");
  };
  orchestrator.RegisterClient(1, "thrower", std::move(throwing));
  Register(2, "after");
  EXPECT_THROW(orchestrator.NotifyMemberAddedToVlan(1, port, true), std::runtime_error);
  EXPECT_THAT(events, IsEmpty());
}

}  // namespace
