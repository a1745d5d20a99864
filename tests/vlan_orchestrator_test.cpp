// The VLAN orchestrator's registry and its two notification walks.
#include <stdexcept>

#include "service_fixtures.h"
#include "vlan_orchestrator_impl.h"

namespace {

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
