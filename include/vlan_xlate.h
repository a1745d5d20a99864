// VLAN translation rules: which VLAN tags of a frame a port matches and what it does to them.
#ifndef HALBD_VLAN_XLATE_H
#define HALBD_VLAN_XLATE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
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
// A port's rules mostly differ in the outer VLAN they match: the first two fields, packed into one
// word, decide most steps of a search at the cost of a load, a rotation, a mask and a compare. The
// steps that get past it are those on the rule being looked up or on a neighbour matching the same
// outer VLAN, where the fields are mostly equal: groups of them are tested for equality a word at a
// time, and only a group that differs is compared field by field, with an early exit. Packing the
// fields into ordered numbers would cost more than it saves: on a little-endian host every
// two-byte field would need its bytes swapped.
namespace order {

static_assert(offsetof(VlanMatch, hasOuterVlan) == 0 && offsetof(VlanMatch, outerVlanTag) == 2 &&
                  offsetof(VlanTag, vlanId) == 0,
              "a match starts with its outer-tag flag, a padding byte and the outer VLAN");

// The flag above the VLAN, as one number: the match's first four bytes in one load, the padding
// byte (whatever the rule's construction left there) masked out. A little-endian host holds the
// VLAN in the upper half, rotated below the flag; a big-endian host holds it below the flag
// already. Two loads, a shift and an or would be four instructions on every step of a search.
inline uint32_t Word0(const VlanMapping& r) {
  uint32_t word;
  std::memcpy(&word, &r.match, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return ((word << 16) | (word >> 16)) & 0x00ffffffu;
#else
  return word & 0xff00ffffu;
#endif
}

// Past the first word, two rules compared in a search mostly agree field after field: they are
// the rule sought and itself, or a neighbour that matches the same outer VLAN. Groups of fields
// that are mostly equal are tested together as one word, the padding bytes among them masked
// out, and taken one by one only when the word differs:
//   bytes  4 to  7: the outer match tag's TPID and priority, padding;
//   bytes  8 to 15: the inner-tag flag, padding, the inner match tag's VLAN, TPID and priority,
//                   padding (tested once the flags are known equal: a neighbour differs there);
//   bytes 16 to 23: the operation, the action's outer VLAN and TPID;
//   bytes 24 to 31: the action's outer priority, padding, inner VLAN, TPID and priority, padding.
static_assert(offsetof(VlanMatch, outerVlanTag) + offsetof(VlanTag, tpid) == 4 &&
                  offsetof(VlanMatch, hasInnerVlan) == 8 &&
                  offsetof(VlanMatch, innerVlanTag) == 10 &&
                  offsetof(VlanMapping, operation) == 16 && offsetof(VlanMapping, action) == 20 &&
                  sizeof(VlanTag) == 6 && offsetof(VlanTag, priority) == 4 &&
                  sizeof(VlanMapping) == 32,
              "a rule's fields lie in the bytes listed above");

// The bits of the byte at index (in memory order) of a word loaded from memory.
template <typename Word>
constexpr Word ByteOfWord(unsigned index) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return static_cast<Word>(Word{0xff} << (8 * index));
#else
  return static_cast<Word>(Word{0xff} << (8 * (sizeof(Word) - 1 - index)));
#endif
}

// A six-byte tag's sixth byte, and the byte before a tag that follows a flag, are padding.
constexpr uint32_t kOuterTpidAndPriority = static_cast<uint32_t>(~ByteOfWord<uint32_t>(3));
constexpr uint64_t kFlagAndTag = ~(ByteOfWord<uint64_t>(1) | ByteOfWord<uint64_t>(7));
constexpr uint64_t kPriorityAndTag = kFlagAndTag;
constexpr uint64_t kAllBytes = ~uint64_t{0};

// Whether the bytes of fields of two rules' words at offset are equal.
template <typename Word>
inline bool SameFields(const VlanMapping& a, const VlanMapping& b, size_t offset, Word fields) {
  Word wordOfA;
  Word wordOfB;
  std::memcpy(&wordOfA, reinterpret_cast<const unsigned char*>(&a) + offset, sizeof wordOfA);
  std::memcpy(&wordOfB, reinterpret_cast<const unsigned char*>(&b) + offset, sizeof wordOfB);
  return ((wordOfA ^ wordOfB) & fields) == 0;
}

inline bool SameOperationAndAction(const VlanMapping& a, const VlanMapping& b) {
  constexpr size_t kOperation = 16;
  constexpr size_t kActionOuterPriority = 24;
  return SameFields(a, b, kOperation, kAllBytes) &&
         SameFields(a, b, kActionOuterPriority, kPriorityAndTag);
}

// The fields after the first two, for two rules whose first two fields are equal.
inline bool LessAfterWord0(const VlanMapping& a, const VlanMapping& b) {
  constexpr size_t kOuterTpid = 4;
  constexpr size_t kInnerFlag = 8;
  if (!SameFields(a, b, kOuterTpid, kOuterTpidAndPriority)) {
    const VlanTag& aMatchOuter = a.match.outerVlanTag;
    const VlanTag& bMatchOuter = b.match.outerVlanTag;
    if (aMatchOuter.tpid != bMatchOuter.tpid)
      return aMatchOuter.tpid < bMatchOuter.tpid;
    return aMatchOuter.priority < bMatchOuter.priority;
  }
  if (a.match.hasInnerVlan != b.match.hasInnerVlan)
    return a.match.hasInnerVlan < b.match.hasInnerVlan;
  if (!SameFields(a, b, kInnerFlag, kFlagAndTag)) {
    const VlanTag& aMatchInner = a.match.innerVlanTag;
    const VlanTag& bMatchInner = b.match.innerVlanTag;
    if (aMatchInner.vlanId != bMatchInner.vlanId)
      return aMatchInner.vlanId < bMatchInner.vlanId;
    if (aMatchInner.tpid != bMatchInner.tpid)
      return aMatchInner.tpid < bMatchInner.tpid;
    return aMatchInner.priority < bMatchInner.priority;
  }
  if (SameOperationAndAction(a, b))
    return false;
  if (a.operation != b.operation)
    return static_cast<uint32_t>(a.operation) < static_cast<uint32_t>(b.operation);
  const VlanTag& aActionOuter = a.action.outerVlanTag;
  const VlanTag& bActionOuter = b.action.outerVlanTag;
  if (aActionOuter.vlanId != bActionOuter.vlanId)
    return aActionOuter.vlanId < bActionOuter.vlanId;
  if (aActionOuter.tpid != bActionOuter.tpid)
    return aActionOuter.tpid < bActionOuter.tpid;
  if (aActionOuter.priority != bActionOuter.priority)
    return aActionOuter.priority < bActionOuter.priority;
  const VlanTag& aActionInner = a.action.innerVlanTag;
  const VlanTag& bActionInner = b.action.innerVlanTag;
  if (aActionInner.vlanId != bActionInner.vlanId)
    return aActionInner.vlanId < bActionInner.vlanId;
  if (aActionInner.tpid != bActionInner.tpid)
    return aActionInner.tpid < bActionInner.tpid;
  return aActionInner.priority < bActionInner.priority;
}

}  // namespace order

// Rules order lexicographically over every field, absent tags included: rules are looked up by
// exact value, so two rules that differ only in an unused field are distinct entries.
// The first word is tested as "below, or equal and the rest below" rather than as "if they differ,
// whether below": in the second form the compiler merges the word's result with the rest's and
// makes each step of a tree search load and select between both children (19 instructions a step
// in a rule deletion's search, against 9 to 11 in this form).
inline bool operator<(const VlanMapping& a, const VlanMapping& b) {
  const uint32_t a0 = order::Word0(a);
  const uint32_t b0 = order::Word0(b);
  return a0 < b0 || (a0 == b0 && order::LessAfterWord0(a, b));
}

// The printed name of an operation; every value from Invalid upwards prints as "Invalid".
HALBD_EXPORT const char* OperationName(Operation operation);

// The eleven-line text form quoted by every translation log line; no newline after the last "}".
HALBD_EXPORT std::ostream& operator<<(std::ostream& os, const VlanMapping& rule);

}  // namespace vlanxlate

#endif  // HALBD_VLAN_XLATE_H
