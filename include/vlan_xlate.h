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

// The rule order compares the fields below in this sequence, each as an unsigned number, the first
// difference deciding:
//   match: hasOuterVlan, outer vlanId, tpid, priority, hasInnerVlan, inner vlanId, tpid, priority;
//   operation; action: outer vlanId, tpid, priority, inner vlanId, tpid, priority.
// The sequence is cut into five words, each field at its full width (a flag takes a byte), and the
// words are compared in turn: the same order, in a few instructions a word. A port's rules mostly
// differ in the outer VLAN they match, which the first, cheapest word already decides.
namespace order {

inline uint32_t Word0(const VlanMapping& r) {
  return (uint32_t{r.match.hasOuterVlan} << 16) | r.match.outerVlanTag.vlanId;
}
inline uint64_t Word1(const VlanMapping& r) {
  const VlanTag& outer = r.match.outerVlanTag;
  return (uint64_t{outer.tpid} << 32) | (uint64_t{outer.priority} << 24) |
         (uint64_t{r.match.hasInnerVlan} << 16) | r.match.innerVlanTag.vlanId;
}
inline uint64_t Word2(const VlanMapping& r) {
  const VlanTag& inner = r.match.innerVlanTag;
  return (uint64_t{inner.tpid} << 40) | (uint64_t{inner.priority} << 32) |
         static_cast<uint32_t>(r.operation);
}
inline uint64_t Word3(const VlanMapping& r) {
  const VlanTag& outer = r.action.outerVlanTag;
  return (uint64_t{outer.vlanId} << 40) | (uint64_t{outer.tpid} << 24) |
         (uint64_t{outer.priority} << 16) | r.action.innerVlanTag.vlanId;
}
inline uint32_t Word4(const VlanMapping& r) {
  const VlanTag& inner = r.action.innerVlanTag;
  return (uint32_t{inner.tpid} << 8) | inner.priority;
}

// The words after the first, for two rules whose first words are equal.
inline bool LessAfterWord0(const VlanMapping& a, const VlanMapping& b) {
  if (Word1(a) != Word1(b))
    return Word1(a) < Word1(b);
  if (Word2(a) != Word2(b))
    return Word2(a) < Word2(b);
  if (Word3(a) != Word3(b))
    return Word3(a) < Word3(b);
  return Word4(a) < Word4(b);
}

}  // namespace order

// Rules order lexicographically over every field, absent tags included: rules are looked up by
// exact value, so two rules that differ only in an unused field are distinct entries.
inline bool operator<(const VlanMapping& a, const VlanMapping& b) {
  const uint32_t a0 = order::Word0(a);
  const uint32_t b0 = order::Word0(b);
  if (a0 != b0)
    return a0 < b0;
  return order::LessAfterWord0(a, b);
}

// The printed name of an operation; every value from Invalid upwards prints as "Invalid".
HALBD_EXPORT const char* OperationName(Operation operation);

// The eleven-line text form quoted by every translation log line; no newline after the last "}".
HALBD_EXPORT std::ostream& operator<<(std::ostream& os, const VlanMapping& rule);

}  // namespace vlanxlate

#endif  // HALBD_VLAN_XLATE_H
