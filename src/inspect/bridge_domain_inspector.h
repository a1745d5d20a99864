// Read access to the bridge-domain service's books, for the tests and for halbd-sim's views:
// one seam, so that what a view shows is what the tests assert.
#ifndef HALBD_SRC_INSPECT_BRIDGE_DOMAIN_INSPECTOR_H
#define HALBD_SRC_INSPECT_BRIDGE_DOMAIN_INSPECTOR_H

#include "hal_bcm_bridge_domain.h"

struct HalBcmBridgeDomainInspector {
  explicit HalBcmBridgeDomainInspector(HalBcmBridgeDomain& service) : s(service) {}

  auto& lagOrchestrator() { return s.lagOrchestrator; }
  auto& vlanOrchestrator() { return s.vlanOrchestrator; }
  auto& lagMembership() { return s.lagMembership; }
  auto& intfInfo() { return s.intfInfo; }

  HalBcmBridgeDomain& s;
};

#endif  // HALBD_SRC_INSPECT_BRIDGE_DOMAIN_INSPECTOR_H
