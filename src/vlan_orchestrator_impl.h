// The VLAN orchestrator's registry of clients and its notification walks.
#ifndef HALBD_SRC_VLAN_ORCHESTRATOR_IMPL_H
#define HALBD_SRC_VLAN_ORCHESTRATOR_IMPL_H

#include <map>
#include <string>
#include <utility>

#include "hal_vlan_orchestrator.h"

namespace halswitchbd {

class VlanOrchestratorImpl : public VlanOrchestrator {
 public:
  void RegisterClient(unsigned int priority, const std::string& name, Callback&& callback) override;
  void DeregisterClient(unsigned int priority, const std::string& name) override;

  // Only the bridge-domain service notifies; holders of the interface can only (de)register.
  // Additions are told in ascending (priority, name) order, removals in exactly the reverse order,
  // so a client that acted first on an addition acts last on the matching removal. A client's
  // refusal is logged and the walk goes on; exceptions from clients pass to the caller.
  void NotifyMemberAddedToVlan(const unsigned short& vlan, const limid_t& interface, bool tagged);
  void NotifyMemberRemovedFromVlan(const unsigned short& vlan, const limid_t& interface);

 private:
  // Ordered by priority as an unsigned number, then by name as std::string compares.
  std::map<std::pair<unsigned int, std::string>, Callback> clients;
};

}  // namespace halswitchbd

#endif  // HALBD_SRC_VLAN_ORCHESTRATOR_IMPL_H
