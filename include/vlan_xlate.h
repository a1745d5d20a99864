// VLAN translation rules: which VLAN tags of a frame a port matches and what it does to them.
#ifndef HALBD_VLAN_XLATE_H
#define HALBD_VLAN_XLATE_H

#include <cstdint>
#include <ostream>
#include <tuple>

#include "hal_bd_export.h"

namespace vlanxlate {

// One VLAN tag as matched or as written. A tpid of 0 and a priority of 15 mean "not used": the
// frame's value is left as it is.
struct VlanTag {
  uint16_t vlanId = 0;
  uint16_t tpid = 0;
  uint8_t priority = 15;
};

enum class Operation : uint32_t {
  Unknown = 0,
  Add = 1,
  Replace = 2,
  AddReplace = 3,
  ReplaceReplace = 4,
  Invalid = 5,  // this and every larger value print as "Invalid"
};

// Which translation table a rule belongs to.
enum class Stage : uint32_t {
  Ingress = 0,
  Egress = 1,
};

struct VlanMatch {
  bool hasOuterVlan = false;
  VlanTag outerVlanTag;
  bool hasInnerVlan = false;
  VlanTag innerVlanTag;
};

// The action has no presence flags: an unused field carries its sentinel.
struct VlanAction {
  VlanTag outerVlanTag;
  VlanTag innerVlanTag;
};

struct VlanMapping {
  VlanMatch match;
  Operation operation = Operation::Unknown;
  VlanAction action;
};

// Tags order by VLAN id, then TPID, then priority.
inline bool operator<(const VlanTag& a, const VlanTag& b) {
  return std::tie(a.vlanId, a.tpid, a.priority) < std::tie(b.vlanId, b.tpid, b.priority);
}

// Rules order lexicographically over every field, absent tags included: rules are looked up by
// exact value, so two rules that differ only in an unused field are distinct entries.
inline bool operator<(const VlanMapping& a, const VlanMapping& b) {
  return std::tie(a.match.hasOuterVlan, a.match.outerVlanTag, a.match.hasInnerVlan,
                  a.match.innerVlanTag, a.operation, a.action.outerVlanTag, a.action.innerVlanTag) <
         std::tie(b.match.hasOuterVlan, b.match.outerVlanTag, b.match.hasInnerVlan,
                  b.match.innerVlanTag, b.operation, b.action.outerVlanTag, b.action.innerVlanTag);
}

// The printed name of an operation; every value from Invalid upwards prints as "Invalid".
HALBD_EXPORT const char* OperationName(Operation operation);

// The eleven-line text form quoted by every translation log line; no newline after the last "}".
HALBD_EXPORT std::ostream& operator<<(std::ostream& os, const VlanMapping& rule);

}  // namespace vlanxlate

#endif  // HALBD_VLAN_XLATE_H
