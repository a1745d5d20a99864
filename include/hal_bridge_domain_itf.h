// The bridge-domain service: VLAN membership of interfaces and LAGs, and VLAN properties.
#ifndef HALBD_HAL_BRIDGE_DOMAIN_ITF_H
#define HALBD_HAL_BRIDGE_DOMAIN_ITF_H

#include <memory>
#include <set>

#include "hal_bd_export.h"
#include "hal_vlan_orchestrator.h"
#include "lag_orchestrator.h"
#include "limid.h"

// Identification of a bridge domain handed to create().
struct st_HalBridgeDomainId {
  unsigned short vlanId;
};

// Per-VLAN packet-handling properties. Other values are refused.
enum en_HalVlanProperty : int {
  HAL_VLAN_PROPERTY_DHCP = 0,
  HAL_VLAN_PROPERTY_IGMP_SNOOPING = 1,
};

// DHCP packet action bits; only these two are honoured. Ignored for IGMP snooping.
enum en_HalVlanPropValue : unsigned int {
  HAL_VLAN_PROP_DHCP_TO_CPU = 0x1,
  HAL_VLAN_PROP_DHCP_DROP = 0x4,
};

class HALBD_EXPORT HalBridgeDomainItf {
 public:
  // The service; created on the first call, which also registers it for LAG events when given an
  // orchestrator. The argument of every later call is ignored.
  static HalBridgeDomainItf* getInstance(
      std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator);

  virtual ~HalBridgeDomainItf();

  // Each returns 0 on success and -1 on failure.
  virtual int create(limid_t bridgeDomain, const st_HalBridgeDomainId& id) = 0;
  virtual int destroy(limid_t bridgeDomain) = 0;
  virtual int addMember(limid_t bridgeDomain, limid_t intf, bool tagged,
                        unsigned int attributes) = 0;
  virtual int isMember(limid_t bridgeDomain, limid_t intf, bool& member, bool& tagged,
                       unsigned int& attributes) const = 0;
  virtual int delMember(limid_t bridgeDomain, limid_t intf) = 0;
  virtual int delAllMembers(limid_t bridgeDomain) = 0;
  virtual int getNumMembers(limid_t bridgeDomain, unsigned int& count) const = 0;
  virtual int getMembers(limid_t bridgeDomain, std::set<limid_t>& members) const = 0;
  virtual int AddPropertyValue(limid_t bridgeDomain, en_HalVlanProperty property,
                               en_HalVlanPropValue value) const = 0;
  virtual int RemovePropertyValue(limid_t bridgeDomain, en_HalVlanProperty property,
                                  en_HalVlanPropValue value) const = 0;
  virtual std::shared_ptr<halswitchbd::VlanOrchestrator> GetVlanOrchestrator() = 0;
};

#endif  // HALBD_HAL_BRIDGE_DOMAIN_ITF_H
