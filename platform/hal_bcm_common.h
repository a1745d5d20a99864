// Common chip library contract: the chip unit, the identifier tables, LAG member lists, printable
// names and the shared VLAN member table of the HAL.
#ifndef HALBD_PLATFORM_HAL_BCM_COMMON_H
#define HALBD_PLATFORM_HAL_BCM_COMMON_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>

#include "composed_id.h"
#include "limid.h"

// One record of the identifier tables. port is the chip port or global port (gport) of limid: the
// port argument of every port and VLAN SDK call made for that identifier.
struct LimIdPortEntry {
  limid_t limid;
  int32_t port;
};

// VLAN number to (member interface or LAG to tagged flag). Written by the bridge-domain service on
// every add and remove, read by other HAL modules. Nobody locks it.
using VlanMemberTable = std::map<unsigned short, std::map<limid_t, bool>>;

class HalBcmCommon {
 public:
  // The SDK unit number of the switch chip. It is the first field of the object: callers read it
  // directly and pass it as the unit of every SDK call.
  int unit;

  // The process-wide instance; never null.
  static HalBcmCommon* GetInstance();

  // A printable NUL-terminated name of id, allocated with array new. May be null.
  std::unique_ptr<char[]> DecodeLimId(limid_t id) const;

  // The member ports of lag in identifier order, owned by this library: iterate in place.
  // Throws std::out_of_range when lag is unknown.
  const std::set<limid_t>& GetLagMembers(limid_t lag) const;

  // The entry of id in the port table (physical ports). Throws std::out_of_range("HAL ID not
  // found").
  const LimIdPortEntry& LookupPort(limid_t id) const;

  // The entry of id in the gport table, which holds the SDK gport of any interface, a LAG included
  // (its trunk gport). Throws std::out_of_range("HAL ID not found").
  const LimIdPortEntry& LookupGport(limid_t id) const;

  // The identifier of a chip gport; the key is {gport, -1}.
  // Throws std::out_of_range("device ID not found").
  limid_t LookupDeviceId(composed_id<int> key) const;

  // The shared VLAN member table.
  VlanMemberTable& GetVlanMemberTable();
};

#endif  // HALBD_PLATFORM_HAL_BCM_COMMON_H
