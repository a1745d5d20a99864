// Read access to the bridge-port service's shadow state, for the tests and for halbd-sim's
// views: one seam, so that what a view shows is what the tests assert.
#ifndef HALBD_SRC_INSPECT_BRIDGE_PORT_INSPECTOR_H
#define HALBD_SRC_INSPECT_BRIDGE_PORT_INSPECTOR_H

#include "hal_bcm_bridge_port.h"

struct HalBcmBridgePortInspector {
  explicit HalBcmBridgePortInspector(HalBcmBridgePort& service) : s(service) {}

  auto& ingressVlanMappings() { return s.ingressVlanMappings; }
  auto& egressVlanMappings() { return s.egressVlanMappings; }
  auto& nativeVlans() { return s.nativeVlans; }
  auto& untaggedPrios() { return s.untaggedPrios; }
  auto& qinqPorts() { return s.qinqPorts; }
  auto& tpids() { return s.tpids; }
  auto& acceptableFrameTypes() { return s.acceptableFrameTypes; }
  auto& blockedPorts() { return s.blockedPorts; }
  auto& lagOrchestrator() { return s.lagOrchestrator; }

  HalBcmBridgePort& s;
};

#endif  // HALBD_SRC_INSPECT_BRIDGE_PORT_INSPECTOR_H
