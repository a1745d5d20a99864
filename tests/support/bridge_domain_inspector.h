// Read access to the bridge-domain service's books for tests.
#ifndef HALBD_TESTS_SUPPORT_BRIDGE_DOMAIN_INSPECTOR_H
#define HALBD_TESTS_SUPPORT_BRIDGE_DOMAIN_INSPECTOR_H

#include "hal_bcm_bridge_domain.h"

struct HalBcmBridgeDomainInspector {
  explicit HalBcmBridgeDomainInspector(HalBcmBridgeDomain& service) : s(service) {}

  auto& lagOrchestrator() { return s.lagOrchestrator; }
  auto& vlanOrchestrator() { return s.vlanOrchestrator; }
  auto& lagMembership() { return s.lagMembership; }
  auto& intfInfo() { return s.intfInfo; }

  HalBcmBridgeDomain& s;
};

#endif  // HALBD_TESTS_SUPPORT_BRIDGE_DOMAIN_INSPECTOR_H
