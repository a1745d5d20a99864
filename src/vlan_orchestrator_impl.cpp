#include "vlan_orchestrator_impl.h"

#include "hal_platform.h"

namespace halswitchbd {

namespace {

constexpr int kWarning = 4;
constexpr size_t kInterfaceNameSize = 64;

// The identifier library's name of an interface, for the refusal messages.
struct InterfaceName {
  explicit InterfaceName(const limid_t& interface) {
    limid_to_intfname(interface, text, sizeof text);
  }
  char text[kInterfaceNameSize] = {};
};

}  // namespace

VlanOrchestrator::~VlanOrchestrator() = default;

void VlanOrchestratorImpl::RegisterClient(unsigned int priority, const std::string& name,
                                          Callback&& callback) {
  const auto key = std::make_pair(priority, name);
  if (clients.count(key) != 0) {
    // The client already registered keeps its handlers; the caller's record is left untouched.
    halbd::Hal()->error(-1,
                        "Another client already registered in the same priority(%u) and name(%s)",
                        priority, name.c_str());
    return;
  }
  Callback& stored = clients[key];
  // Copied, not moved: the caller's record still holds its targets afterwards.
  stored.vlan_add = callback.vlan_add;
  stored.vlan_remove = callback.vlan_remove;
}

void VlanOrchestratorImpl::DeregisterClient(unsigned int priority, const std::string& name) {
  clients.erase(std::make_pair(priority, name));
}

void VlanOrchestratorImpl::NotifyMemberAddedToVlan(const unsigned short& vlan,
                                                   const limid_t& interface, bool tagged) {
  for (auto& [key, callback] : clients) {
    if (!callback.vlan_add)
      continue;
    if (!callback.vlan_add(vlan, interface, tagged)) {
      InterfaceName intf(interface);
      halbd::Hal()->log(kWarning, "Client %s: returned error on vlan_add, vlan: %u interface: %s",
                        key.second.c_str(), static_cast<unsigned int>(vlan), intf.text);
    }
  }
}

void VlanOrchestratorImpl::NotifyMemberRemovedFromVlan(const unsigned short& vlan,
                                                       const limid_t& interface) {
  for (auto it = clients.rbegin(); it != clients.rend(); ++it) {
    auto& callback = it->second;
    if (!callback.vlan_remove)
      continue;
    if (!callback.vlan_remove(vlan, interface)) {
      InterfaceName intf(interface);
      halbd::Hal()->log(kWarning,
                        "Client %s: returned error on vlan_remove, vlan: %u interface: %s",
                        it->first.second.c_str(), static_cast<unsigned int>(vlan), intf.text);
    }
  }
}

}  // namespace halswitchbd
