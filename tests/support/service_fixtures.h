// The platform most service tests run on, the services on it, and the helpers they share.
#ifndef HALBD_TESTS_SUPPORT_SERVICE_FIXTURES_H
#define HALBD_TESTS_SUPPORT_SERVICE_FIXTURES_H

#include <algorithm>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim_test.h"

using Lines = std::vector<std::string>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

inline Lines operator+(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline limid_t Eth(unsigned port) {
  return sim::EthernetPort(1, port);
}

// Matches outer VLAN `from` and replaces it by `to`; no TPID or priority is used.
inline vlanxlate::VlanMapping ReplaceOuter(uint16_t from, uint16_t to) {
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = {from, 0x8100, 15};
  rule.operation = vlanxlate::Operation::Replace;
  rule.action.outerVlanTag = {to, 0, 15};
  return rule;
}

// The rule as the level-6 log lines print it.
inline std::string Text(const vlanxlate::VlanMapping& rule) {
  std::ostringstream os;
  os << rule;
  return os.str();
}

// eth1/1 to eth1/4 on local ports 1 to 4, eth1/8 on a port of another chip, eth1/9 in no table;
// lag1 on trunk 5 without members; the LAG orchestrator the services register with.
class PlatformTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    for (unsigned p = 1; p <= 4; ++p)
      sim::common().AddPort(Eth(p), sim::LocalGport(p));
    sim::common().AddPort(Eth(8), sim::ModuleGport(1, 8));
    sim::common().AddLag(kLag, kTrunkId);
  }
  void ListMembers(std::initializer_list<unsigned> ports) const {
    for (unsigned p : ports)
      sim::common().ListLagMember(kLag, Eth(p));
  }
  // True when there were clients and each of them handled the event.
  static bool Handled(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
    return !answers.empty() &&
           std::all_of(answers.begin(), answers.end(), [](const auto& a) { return a.handled; });
  }
  // The log lines since the last take; forgets them, the trace and the faults.
  static Lines TakeLog() {
    Lines lines = LogLines();
    ClearRecords();
    sim::chip().ClearFaults();
    return lines;
  }
  bool Join(unsigned p) { return Handled(lags->AddMember(kLag, Eth(p))); }
  bool Leave(unsigned p) { return Handled(lags->DeleteMember(kLag, Eth(p))); }

  static constexpr int kTrunkId = 5;
  const limid_t kLag = sim::Lag(1);
  const limid_t kUnknownLag = sim::Lag(9);
  std::shared_ptr<sim::LagOrchestratorSim> lags = std::make_shared<sim::LagOrchestratorSim>();
};

class BridgePortTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    service = HalBcmBridgePort::GetInstance(lags);
  }
  HalBcmBridgePortInspector Books() { return HalBcmBridgePortInspector(*service); }

  HalBcmBridgePort* service = nullptr;
};

// VLANs 10 and 20 with replication groups, and a VLAN client that writes down what it is told.
class BridgeDomainTest : public PlatformTest {
 protected:
  using GroupSet = std::set<std::pair<bcm_gport_t, bcm_if_t>>;
  using BookEntry = std::map<limid_t, bool>;

  void SetUp() override {
    PlatformTest::SetUp();
    group10 = sim::chip().CreateVlan(10);
    group20 = sim::chip().CreateVlan(20);
    service = HalBcmBridgeDomain::getInstance(lags);
    // A removal also notes how many chip removals had happened by then.
    service->GetVlanOrchestrator()->RegisterClient(
        10, "observer",
        {[this](const unsigned short& vlan, const limid_t& intf, bool tagged) {
           notes.push_back("add " + std::to_string(vlan) + " " + sim::NameOf(intf) +
                           (tagged ? " tagged" : " untagged"));
           return true;
         },
         [this](const unsigned short& vlan, const limid_t& intf) {
           const size_t removals =
               Trace("bcm_multicast_egress_delete").size() + Trace("bcm_vlan_gport_delete").size();
           notes.push_back("remove " + std::to_string(vlan) + " " + sim::NameOf(intf) + " after " +
                           std::to_string(removals) + " chip removals");
           return true;
         }});
  }
  HalBcmBridgeDomainInspector Books() { return HalBcmBridgeDomainInspector(*service); }
  // Chip port -> untagged flag.
  static std::map<int, bool> Members(bcm_vlan_t vlan) { return sim::chip().Vlan(vlan).members; }
  static GroupSet GroupOf(std::initializer_list<int> ports) {
    GroupSet members;
    for (int port : ports)
      members.emplace(sim::LocalGport(port), sim::Chip::EncapOf(port));
    return members;
  }

  const limid_t kVlan10 = sim::BridgeDomain(10);
  const limid_t kVlan20 = sim::BridgeDomain(20);
  HalBcmBridgeDomain* service = nullptr;
  VlanMemberTable& table = sim::common().VlanMembers();
  bcm_multicast_t group10 = 0;
  bcm_multicast_t group20 = 0;
  std::vector<std::string> notes;
};

#endif  // HALBD_TESTS_SUPPORT_SERVICE_FIXTURES_H
