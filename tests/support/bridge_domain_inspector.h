// Read access to the bridge-domain service's books for tests.
#ifndef HALBD_TESTS_SUPPORT_BRIDGE_DOMAIN_INSPECTOR_H
#define HALBD_TESTS_SUPPORT_BRIDGE_DOMAIN_INSPECTOR_H

#include "hal_bcm_bridge_domain.h"

struct HalBcmBridgeDomainInspector {
  explicit HalBcmBridgeDomainInspector(HalBcmBridgeDomain& service) : s(service) {}

  HalBcmCommon* bcmCommon() { return s.bcmCommon; }
  auto& lagOrchestrator() { return s.lagOrchestrator; }
  auto& vlanOrchestrator() { return s.vlanOrchestrator; }
  auto& lagMembership() { return s.lagMembership; }
  auto& intfInfo() { return s.intfInfo; }
  int unit() { return s.unit; }

  HalBcmBridgeDomain& s;
};

#endif  // HALBD_TESTS_SUPPORT_BRIDGE_DOMAIN_INSPECTOR_H
