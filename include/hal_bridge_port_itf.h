// The bridge-port service: per-port VLAN attributes, blocking and VLAN translation rules.
#ifndef HALBD_HAL_BRIDGE_PORT_ITF_H
#define HALBD_HAL_BRIDGE_PORT_ITF_H

#include <memory>
#include <string>

#include "hal_bd_export.h"
#include "lag_orchestrator.h"
#include "limid.h"
#include "vlan_xlate.h"

// Q-in-Q (double-tag) mode of an interface. Other values are refused with "bad argument".
enum en_HalBridgePortQinQ : int {
  HAL_BP_QINQ_DISABLE = 0,
  HAL_BP_QINQ_ENABLE = 1,
};

// Frames an interface admits. Any other value admits nothing.
enum en_HalBridgePortAcceptableFrameTypes : int {
  HAL_BP_ADMIT_ALL_FRAMES = 0,
  HAL_BP_ADMIT_ONLY_TAGGED = 1,
  HAL_BP_ADMIT_ONLY_UNTAGGED = 2,
};

class HALBD_EXPORT HalBridgePortItf {
 public:
  // The service; created on the first call, which also registers it for LAG events when given an
  // orchestrator. The argument of every later call is ignored.
  static HalBridgePortItf* getInstance(
      std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator);

  virtual ~HalBridgePortItf();

  // Each returns 0 on success and -1 on failure.
  virtual int SetAcceptableFrameType(limid_t id, en_HalBridgePortAcceptableFrameTypes type) = 0;
  virtual int SetNativeVlan(limid_t id, unsigned short vlan) = 0;
  virtual int SetPrio4Untagged(limid_t id, unsigned char pcp) = 0;
  virtual int SetVlanQinQ(limid_t id, en_HalBridgePortQinQ mode) = 0;
  virtual int SetTpid(limid_t id, unsigned short tpid) = 0;
  virtual int SetInnerTpid(limid_t id, unsigned short tpid) = 0;
  virtual int AddVlanMappingRule(const limid_t& id, vlanxlate::Stage stage,
                                 const vlanxlate::VlanMapping& rule) = 0;
  virtual int DeleteVlanMappingRule(const limid_t& id, vlanxlate::Stage stage,
                                    const vlanxlate::VlanMapping& rule) = 0;
};

class HalBcmBridgePort;

// The bridge-port service once any factory has run; null before.
extern HALBD_EXPORT HalBcmBridgePort* _halbp_global;

// Blocks or unblocks an ethernet port on request of the blocking client ("hal-stlp").
// 0 on success, -1 on refusal or failure.
HALBD_EXPORT int BlockPort(limid_t port, bool block, const std::string& client);

// The outer TPID last set on an interface; 0x8100 when none was set or the service does not exist.
HALBD_EXPORT unsigned short GetTpid(const limid_t& id);

#endif  // HALBD_HAL_BRIDGE_PORT_ITF_H
