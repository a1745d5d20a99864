// The VLAN orchestrator: modules register to be told when an interface joins or leaves a VLAN.
#ifndef HALBD_HAL_VLAN_ORCHESTRATOR_H
#define HALBD_HAL_VLAN_ORCHESTRATOR_H

#include <functional>
#include <string>

#include "hal_bd_export.h"
#include "limid.h"

namespace halswitchbd {

class HALBD_EXPORT VlanOrchestrator {
 public:
  // A client's handlers; an empty one means the client is not interested in that event. Each
  // returns false when the client failed to act on the event.
  struct Callback {
    // interface joined vlan; tagged: it sends the VLAN's frames tagged.
    std::function<bool(const unsigned short& vlan, const limid_t& interface, bool tagged)> vlan_add;
    // interface left vlan.
    std::function<bool(const unsigned short& vlan, const limid_t& interface)> vlan_remove;
  };

  // Additions are told in ascending (priority, name) order, removals in descending order.
  // A second registration under the same priority and name is refused.
  virtual void RegisterClient(unsigned int priority, const std::string& name,
                              Callback&& callback) = 0;
  virtual void DeregisterClient(unsigned int priority, const std::string& name) = 0;
  virtual ~VlanOrchestrator();
};

}  // namespace halswitchbd

#endif  // HALBD_HAL_VLAN_ORCHESTRATOR_H
