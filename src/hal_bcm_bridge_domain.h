// The bridge-domain service on the switch chip.
#ifndef HALBD_SRC_HAL_BCM_BRIDGE_DOMAIN_H
#define HALBD_SRC_HAL_BCM_BRIDGE_DOMAIN_H

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "hal_bcm_common.h"
#include "hal_bridge_domain_itf.h"
#include "lag_orchestrator.h"
#include "spare_nodes.h"
#include "vlan_orchestrator_impl.h"

// Keeps the VLAN membership of interfaces and LAGs in step in three places (its own books, the
// shared VLAN member table and the chip), sets VLAN properties, follows LAG membership changes and
// owns the VLAN orchestrator. A VLAN's existence is managed by another HAL module.
class HalBcmBridgeDomain : public HalBridgeDomainItf {
 public:
  // The record of one physical interface.
  struct IntfInfo {
    // True while the interface is a member of a LAG; its VLANs are then those of the LAG.
    bool inLAG = false;
    // Bridge domain to tagged flag, for each bridge domain the interface was added to directly.
    std::map<limid_t, bool> bridgeDomains;
  };

  // The singleton, constructed on the first call from that call's argument.
  HALBD_EXPORT static HalBcmBridgeDomain* getInstance(
      std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator);
  // The same with an empty orchestrator: a first call builds a service without LAG events.
  HALBD_EXPORT static HalBcmBridgeDomain* getInstance();

  explicit HalBcmBridgeDomain(std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator);
  ~HalBcmBridgeDomain() override;

  HalBcmBridgeDomain(const HalBcmBridgeDomain&) = delete;
  HalBcmBridgeDomain& operator=(const HalBcmBridgeDomain&) = delete;

  int create(limid_t bridgeDomain, const st_HalBridgeDomainId& id) override;
  int destroy(limid_t bridgeDomain) override;
  int addMember(limid_t bridgeDomain, limid_t intf, bool tagged, unsigned int attributes) override;
  int isMember(limid_t bridgeDomain, limid_t intf, bool& member, bool& tagged,
               unsigned int& attributes) const override;
  int delMember(limid_t bridgeDomain, limid_t intf) override;
  int delAllMembers(limid_t bridgeDomain) override;
  int getNumMembers(limid_t bridgeDomain, unsigned int& count) const override;
  int getMembers(limid_t bridgeDomain, std::set<limid_t>& members) const override;
  int AddPropertyValue(limid_t bridgeDomain, en_HalVlanProperty property,
                       en_HalVlanPropValue value) const override;
  int RemovePropertyValue(limid_t bridgeDomain, en_HalVlanProperty property,
                          en_HalVlanPropValue value) const override;
  std::shared_ptr<halswitchbd::VlanOrchestrator> GetVlanOrchestrator() override;

  // ---- LAG events ----------------------------------------------------------------------------
  int AddMemberLAGEvent(const limid_t& lag, const limid_t& member);
  int DelMemberLAGEvent(const limid_t& lag, const limid_t& member);
  int DelLAGEvent(const limid_t& lag);

  // ---- Chip membership: the only place where VLAN membership reaches the chip ------------------
  int bcmAddMember(int gport, limid_t bridgeDomain, bool tagged);
  int bcmDelMember(int gport, limid_t bridgeDomain);
  int addPhysicalPort(int unit, int gport, unsigned short vlan, bool tagged);
  int delPhysicalPort(int unit, int gport, unsigned short vlan);
  int addPortToReplicationGroup(int unit, int gport, unsigned short vlan);
  int delPortFromReplicationGroup(int unit, int gport, unsigned short vlan);

  // ---- VLAN properties -------------------------------------------------------------------------
  int AddDhcpAction(unsigned short vlan, en_HalVlanPropValue value) const;
  int RemoveDhcpAction(unsigned short vlan, en_HalVlanPropValue value) const;
  int AddIgmpSnoopingFlag(unsigned short vlan) const;
  int RemoveIgmpSnoopingFlag(unsigned short vlan) const;

 private:
  // Tests read the books through this seam.
  friend struct HalBcmBridgeDomainInspector;

  // The two halves of addMember before its common tail, and of delMember after its notification.
  // vlan is the VLAN number of bridgeDomain.
  int addPortMember(limid_t bridgeDomain, unsigned short vlan, limid_t intf, bool tagged);
  int addLagMember(limid_t bridgeDomain, unsigned short vlan, limid_t lag, bool tagged);
  int delPortMember(limid_t bridgeDomain, unsigned short vlan, limid_t intf);
  int delLagMember(limid_t bridgeDomain, unsigned short vlan, limid_t lag);

  // The membership maps: the books' (bridge domain to tagged flag) and the shared table's VLANs
  // (member to tagged flag) are of one type. Insertion keeps the flag of a key already there and
  // says whether the key was added; erasure keeps the entry's node for the next insertion.
  using MembershipMap = std::map<limid_t, bool>;
  std::pair<MembershipMap::iterator, bool> InsertFromEnd(MembershipMap& map, limid_t key,
                                                         bool tagged);
  void EraseMembership(MembershipMap& map, limid_t key);

  HalBcmCommon* bcmCommon;
  std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator;
  std::shared_ptr<halswitchbd::VlanOrchestratorImpl> vlanOrchestrator;
  std::map<limid_t, std::map<limid_t, bool>> lagMembership;
  std::map<limid_t, IntfInfo> intfInfo;
  int unit;
  // Nodes of the last erased membership entries: an interface moved from one VLAN to another
  // takes its entries' nodes along instead of freeing and allocating them.
  SpareNodes<MembershipMap::node_type, 16> spareMembershipNodes;
};

#endif  // HALBD_SRC_HAL_BCM_BRIDGE_DOMAIN_H
