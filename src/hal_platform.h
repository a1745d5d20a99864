// The library's bindings to its platform: SDK error texts, printable names for messages, the two
// LAG tests, bridge-domain decoding and the gport encoding of the SDK.
#ifndef HALBD_SRC_HAL_PLATFORM_H
#define HALBD_SRC_HAL_PLATFORM_H

#include <cstdint>
#include <memory>

#include "chip_sdk.h"
#include "hal_bcm_common.h"
#include "hal_callbacks_itf.h"
#include "limid.h"

// The SDK's text of a return code: the entry of -rc for -22 <= rc <= 0, the catch-all entry 23 for
// every other code.
const char* bcm_errmsg(int rc);

namespace halbd {

// The logging callbacks of the HAL, asked for anew before every message.
inline HalCallbacksItf* Hal() {
  return HalCallbacksItf::getInstance();
}

// The printable name of an identifier for one message. Built as an argument of the log call, it
// is decoded after the callbacks are looked up and released when the full expression ends, also
// when the log call throws:
//   Hal()->log(3, "HAL ID not found: %s.", DecodedName(intf).c_str());
class DecodedName {
 public:
  explicit DecodedName(limid_t id);
  const char* c_str() const { return name_ ? name_.get() : "(null)"; }

 private:
  std::unique_ptr<char[]> name_;
};

// The LAG test by kind: limid_is_from_type with the LAG kind. Inline, as the bridge-domain
// decoding below: both run on every membership change and rule, for the price of a call.
inline bool IsLag(limid_t id) {
  return limid_is_from_type(id, limid_type_lag) != 0;
}

// The LAG test by comparing kinds: limid_to_type, then limid_type_compare with the LAG kind.
// Both tests agree; callers use the one their operation is defined with.
bool IsLagByTypeCompare(limid_t id);

// The VLAN number of a bridge-domain identifier.
inline unsigned short VlanOfBridgeDomain(limid_t bridgeDomain) {
  uint32_t domainKind = 0;
  uint32_t vlan = 0;
  limid_to_bridgedomain_components(bridgeDomain, &domainKind, &vlan);
  return static_cast<unsigned short>(vlan & 0xffff);
}

// ---- SDK gport encoding ----------------------------------------------------------------------

inline uint32_t GportType(int32_t gport) {
  return static_cast<uint32_t>(gport) >> BCM_GPORT_TYPE_SHIFT;
}

// Only local-port gports with the reserved bits clear name a port of this chip.
inline bool IsLocalPortGport(int32_t gport) {
  return GportType(gport) == BCM_GPORT_TYPE_LOCAL && (gport & BCM_GPORT_LOCAL_RESERVED_MASK) == 0;
}

inline int LocalPortOfGport(int32_t gport) {
  return gport & BCM_GPORT_LOCAL_PORT_MASK;
}

// The local port number of a gport, or -1 when it is not a valid local-port gport.
inline int LocalPortOrInvalid(int32_t gport) {
  return IsLocalPortGport(gport) ? LocalPortOfGport(gport) : -1;
}

inline bool IsTrunkGport(int32_t gport) {
  return GportType(gport) == BCM_GPORT_TYPE_TRUNK;
}

inline int TrunkIdOfGport(int32_t gport) {
  return gport & BCM_GPORT_TRUNK_ID_MASK;
}

inline bool IsModulePortGport(int32_t gport) {
  return GportType(gport) == BCM_GPORT_TYPE_MODPORT;
}

}  // namespace halbd

#endif  // HALBD_SRC_HAL_PLATFORM_H
