// How a HAL module uses the bridge library: it obtains both services, registers with the VLAN
// orchestrator, configures ports, a LAG and VLANs, and reads membership back.
//
// Everything in SetUpPlatform is what the switch's companion libraries provide (identifier tables,
// the LAG orchestrator, the chip); here the simulated platform stands in for them. Everything in
// main is what a module writes against the library's public headers.
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hal_bridge_domain_itf.h"
#include "hal_bridge_port_itf.h"
#include "hal_vlan_orchestrator.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace {

// Interfaces of this example, as the identifier library names them.
const limid_t kAccessPort = sim::EthernetPort(1, 1);
const limid_t kUplinkA = sim::EthernetPort(1, 47);
const limid_t kUplinkB = sim::EthernetPort(1, 48);
const limid_t kUplink = sim::Lag(1);
const limid_t kVlan10 = sim::BridgeDomain(10);

std::shared_ptr<sim::LagOrchestratorSim> SetUpPlatform() {
  sim::Reset();
  sim::common().AddPort(kAccessPort, sim::LocalGport(1));
  sim::common().AddPort(kUplinkA, sim::LocalGport(47));
  sim::common().AddPort(kUplinkB, sim::LocalGport(48));
  sim::common().AddLag(kUplink, 1);
  sim::chip().CreateVlan(10);
  return std::make_shared<sim::LagOrchestratorSim>();
}

int failures = 0;

// Every operation answers 0 on success and -1 on failure; the reason is in the HAL log.
void Expect(bool ok, const char* what) {
  if (ok)
    return;
  ++failures;
  std::fprintf(stderr, "FAILED: %s\n", what);
  for (const std::string& line : sim::halLog().Lines())
    std::fprintf(stderr, "  %s\n", line.c_str());
}

std::string Name(const limid_t& id) {
  return sim::NameOf(id);
}

}  // namespace

int main() {
  std::shared_ptr<sim::LagOrchestratorSim> lagOrchestrator = SetUpPlatform();

  // The first call of each factory creates the service and registers it for LAG events; later
  // calls return the same service. Obtain the bridge domain first: it handles LAG events first.
  HalBridgeDomainItf* bridgeDomain = HalBridgeDomainItf::getInstance(lagOrchestrator);
  HalBridgePortItf* bridgePort = HalBridgePortItf::getInstance(lagOrchestrator);

  // Hear about membership: the callbacks run inside addMember and delMember, on the caller's
  // thread. Answering false only earns a warning in the log.
  std::vector<std::string> heard;
  halswitchbd::VlanOrchestrator::Callback callback;
  callback.vlan_add = [&heard](const unsigned short& vlan, const limid_t& intf, bool tagged) {
    heard.push_back("vlan_add " + std::to_string(vlan) + " " + Name(intf) +
                    (tagged ? " tagged" : " untagged"));
    return true;
  };
  callback.vlan_remove = [&heard](const unsigned short& vlan, const limid_t& intf) {
    heard.push_back("vlan_remove " + std::to_string(vlan) + " " + Name(intf));
    return true;
  };
  bridgeDomain->GetVlanOrchestrator()->RegisterClient(300, "example-module", std::move(callback));

  // An access port: untagged member of VLAN 10, which is also its native VLAN.
  Expect(bridgeDomain->create(kVlan10, st_HalBridgeDomainId{10}) == 0, "create vlan10");
  Expect(bridgeDomain->addMember(kVlan10, kAccessPort, false, 0) == 0, "add access port");
  Expect(bridgePort->SetNativeVlan(kAccessPort, 10) == 0, "native VLAN");
  Expect(bridgePort->SetAcceptableFrameType(kAccessPort, HAL_BP_ADMIT_ONLY_UNTAGGED) == 0,
         "frame types of the access port");

  // An uplink LAG: configured once on the LAG; ports that join it take the configuration on.
  Expect(bridgeDomain->addMember(kVlan10, kUplink, true, 0) == 0, "add the LAG");
  Expect(bridgePort->SetAcceptableFrameType(kUplink, HAL_BP_ADMIT_ONLY_TAGGED) == 0,
         "frame types of the LAG");
  lagOrchestrator->AddMember(kUplink, kUplinkA);
  lagOrchestrator->AddMember(kUplink, kUplinkB);

  // Membership as the chip holds it: the LAG shows as its member ports.
  std::set<limid_t> members;
  Expect(bridgeDomain->getMembers(kVlan10, members) == 0, "getMembers");
  std::printf("vlan10 members:");
  for (const limid_t& member : members)
    std::printf(" %s", Name(member).c_str());
  std::printf("\n");
  Expect(members == std::set<limid_t>{kAccessPort, kUplinkA, kUplinkB}, "members of vlan10");

  bool member = false;
  bool tagged = false;
  unsigned int attributes = 0;
  Expect(bridgeDomain->isMember(kVlan10, kUplinkB, member, tagged, attributes) == 0, "isMember");
  std::printf("%s in vlan10: member=%d tagged=%d\n", Name(kUplinkB).c_str(), member, tagged);
  Expect(member && tagged, "the LAG member is a tagged member");

  // Other modules learn an interface's outer TPID without holding the service.
  std::printf("outer TPID of %s: 0x%04x\n", Name(kUplinkA).c_str(), GetTpid(kUplinkA));

  Expect(bridgeDomain->delMember(kVlan10, kAccessPort) == 0, "remove the access port");
  for (const std::string& line : heard)
    std::printf("heard: %s\n", line.c_str());
  Expect(heard.size() == 3, "three notifications");

  if (failures != 0) {
    std::printf("%d failures\n", failures);
    return 1;
  }
  std::printf("ok\n");
  return 0;
}
