// The bridge-port service on the switch chip.
#ifndef HALBD_SRC_HAL_BCM_BRIDGE_PORT_H
#define HALBD_SRC_HAL_BCM_BRIDGE_PORT_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "chip_sdk.h"
#include "hal_bcm_common.h"
#include "hal_bridge_port_itf.h"
#include "lag_orchestrator.h"
#include "spare_nodes.h"
#include "vlan_xlate.h"

// Applies per-interface VLAN attributes, blocking and VLAN translation rules to the chip's ports,
// and keeps a shadow of what was set per interface so that the configuration of a LAG carries over
// to ports that join it later. A LAG has no hardware of its own: its settings are applied to each
// member port.
class HalBcmBridgePort : public HalBridgePortItf {
 public:
  // The singleton, constructed on the first call from that call's argument; every call publishes
  // it in _halbp_global.
  HALBD_EXPORT static HalBcmBridgePort* GetInstance(
      std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator);

  explicit HalBcmBridgePort(std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator);
  ~HalBcmBridgePort() override;

  HalBcmBridgePort(const HalBcmBridgePort&) = delete;
  HalBcmBridgePort& operator=(const HalBcmBridgePort&) = delete;

  // ---- Port VLAN attributes ------------------------------------------------------------------
  int SetAcceptableFrameType(limid_t id, en_HalBridgePortAcceptableFrameTypes type) override;
  int SetNativeVlan(limid_t id, unsigned short vlan) override;
  int SetPrio4Untagged(limid_t id, unsigned char pcp) override;
  int SetVlanQinQ(limid_t id, en_HalBridgePortQinQ mode) override;
  int SetTpid(limid_t id, unsigned short tpid) override;
  int SetInnerTpid(limid_t id, unsigned short tpid) override;

  // The outer TPID stored for id, or 0x8100 when none is. Never touches the chip.
  unsigned short GetTpid(const limid_t& id) const;

  // Per-port workers: write one attribute for exactly the given port; 0 or -1.
  int SetTpidByPort(const limid_t& port, unsigned short tpid) const;
  int SetVlanQinQByPort(const limid_t& port, en_HalBridgePortQinQ mode) const;
  int SetNativeVlanByPort(const limid_t& port, unsigned short vlan) const;
  int SetDefaultPrioByPort(const limid_t& port, unsigned char pcp) const;

  // Chip double-tag mode of a Q-in-Q mode; throws std::out_of_range("bad argument").
  static void Translate2Bcm(en_HalBridgePortQinQ mode, int& bcmMode);

  // Discard mode for a frame-type setting and block state: blocking always wins, and an unknown
  // frame type discards everything.
  bcm_port_discard_e TranslateHwValue(en_HalBridgePortAcceptableFrameTypes type,
                                      bool blocked) const;

  // ---- Blocking and discard --------------------------------------------------------------------
  int SetBlockPort(limid_t port, bool block, const std::string& client);
  int UpdateDiscardPort(const limid_t& port);
  int ApplyOnHardware(const limid_t& port, bcm_port_discard_e mode);

  // ---- LAG events ----------------------------------------------------------------------------
  bool AddMemberLagEvent(const limid_t& lag, const limid_t& member);
  bool DelMemberLagEvent(const limid_t& lag, const limid_t& member);
  bool DelLagEvent(const limid_t& lag);

  // ---- VLAN translation rules ----------------------------------------------------------------
  int AddVlanMappingRule(const limid_t& id, vlanxlate::Stage stage,
                         const vlanxlate::VlanMapping& rule) override;
  int DeleteVlanMappingRule(const limid_t& id, vlanxlate::Stage stage,
                            const vlanxlate::VlanMapping& rule) override;

  bool InstallIngressVlanMappingRule(const limid_t& port, const vlanxlate::VlanMapping& rule,
                                     bool qinq) const;
  bool RemoveIngressVlanMappingRule(const limid_t& port, const vlanxlate::VlanMapping& rule,
                                    bool qinq, bool usePortTable) const;
  bool InstallEgressVlanMappingRule(const limid_t& port, const vlanxlate::VlanMapping& rule) const;
  bool RemoveEgressVlanMappingRule(const limid_t& port, const vlanxlate::VlanMapping& rule,
                                   bool usePortTable) const;
  bool SetEgressVlanXlateClassIdForLag(const limid_t& lag, const limid_t& member) const;
  bool ResetEgressVlanXlateClassId(const limid_t& port) const;

  // Re-programs the stored ingress rules of id for its current Q-in-Q state.
  void UpdateVlanMappingRules(const limid_t& id) const;
  // Sets the port's two ingress lookup keys from the fixed list for the Q-in-Q state.
  void UpdateVlanXlateLookupKeys(const limid_t& port, bool qinq) const;
  void SetVlanXlateLookupKeys(const limid_t& port,
                              const std::vector<bcm_vlan_translate_key_e>& keys) const;

 private:
  // Tests read the shadow state through this seam.
  friend struct HalBcmBridgePortInspector;

  // The rule requests of one stage each.
  int AddIngressRule(const limid_t& id, const vlanxlate::VlanMapping& rule);
  int AddEgressRule(const limid_t& id, const vlanxlate::VlanMapping& rule);
  int DeleteIngressRule(const limid_t& id, const vlanxlate::VlanMapping& rule);
  int DeleteEgressRule(const limid_t& id, const vlanxlate::VlanMapping& rule);

  // A stored rule's set node, between its rule's deletion and the next rule's addition.
  using RuleNode = std::set<vlanxlate::VlanMapping>::node_type;
  void StoreRule(std::set<vlanxlate::VlanMapping>& rules, const vlanxlate::VlanMapping& rule);
  void StoreEgressRule(const limid_t& id, const vlanxlate::VlanMapping& rule);
  void DropRule(std::set<vlanxlate::VlanMapping>& rules,
                std::set<vlanxlate::VlanMapping>::const_iterator position);

  std::map<limid_t, std::set<vlanxlate::VlanMapping>> ingressVlanMappings;
  std::map<limid_t, std::set<vlanxlate::VlanMapping>> egressVlanMappings;
  std::map<limid_t, unsigned short> nativeVlans;
  std::map<limid_t, unsigned char> untaggedPrios;
  std::set<limid_t> qinqPorts;
  std::unordered_map<limid_t, unsigned short> tpids;
  std::map<limid_t, en_HalBridgePortAcceptableFrameTypes> acceptableFrameTypes;
  std::map<limid_t, bool> blockedPorts;
  // The nodes of the last deleted rules of either stage (both sets hold the same node type): a rule
  // that replaces another reuses its node instead of a heap round trip.
  SpareNodes<RuleNode, 16> spareRuleNodes;
  HalBcmCommon* bcmCommon;
  int unit;
  std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator;
};

#endif  // HALBD_SRC_HAL_BCM_BRIDGE_PORT_H
