// VLAN translation rules of the bridge-port service: their programming into the chip's ingress and
// egress translation tables, the egress class IDs of LAG members and the per-interface rule store.
#include <cstddef>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>

#include "hal_bcm_bridge_port.h"
#include "hal_platform.h"

using halbd::DecodedName;
using halbd::Hal;
using vlanxlate::Operation;
using vlanxlate::Stage;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

namespace {

constexpr int kLogError = 3;
constexpr int kLogInfo = 6;
constexpr uint8_t kUnusedPriority = 15;

// SDK action flags that mark an entry as an ingress or as an egress translation.
constexpr uint32_t kIngressActionFlag = 0x4;
constexpr uint32_t kEgressActionFlag = 0x8;

// Chip identification words of the families whose translation tables cannot act on the packet
// priority unless the chip says so explicitly.
constexpr uint32_t kFamiliesWithoutPacketPriority = 0x20000020;
constexpr uint32_t kChipTypeWithoutPacketPriority = 47;

// LAG classes are counted down from the top of the egress class range, so that they never meet
// the default classes of the ports (their own port numbers). The range is smaller on chips
// without packet-priority actions.
constexpr int kLagClassTopWithPacketPriority = 127;
constexpr int kLagClassTopWithoutPacketPriority = 63;

// Which lookup of an interface's chip port missed: each has its own message.
enum class ChipPortMiss { GetGport, RetrieveGport, RetrievePort };
constexpr ChipPortMiss kGetGport = ChipPortMiss::GetGport;
constexpr ChipPortMiss kRetrieveGport = ChipPortMiss::RetrieveGport;
constexpr ChipPortMiss kRetrievePort = ChipPortMiss::RetrievePort;

bool IsUsed(uint8_t priority) {
  return priority != kUnusedPriority;
}

// Whether the chip's translation tables take packet-priority actions (*_pkt_prio); every such
// field is left alone on chips that do not. A unit without a chip cannot take them either.
bool TakesPacketPriorityActions(int unit) {
  if (unit < 0 || unit >= SOC_MAX_NUM_DEVICES || soc_control[unit] == nullptr)
    return false;
  const soc_control_t& chip = *soc_control[unit];
  return chip.xlate_pkt_prio != 0 ||
         ((chip.chip_family_flags & kFamiliesWithoutPacketPriority) == 0 &&
          chip.chip_type != kChipTypeWithoutPacketPriority);
}

// Each message stands whole in the source, so that a line of a switch's log leads to this code.
void LogChipPortMiss(ChipPortMiss miss, const char* caller, const limid_t& id, const char* reason) {
  const auto name = DecodedName(id);
  switch (miss) {
    case ChipPortMiss::GetGport:
      Hal()->log(kLogError, "%s() failed to get BCM gport for %s: %s", caller, name.c_str(),
                 reason);
      return;
    case ChipPortMiss::RetrieveGport:
      Hal()->log(kLogError, "%s() failed to retrieve BCM gport for %s: %s", caller, name.c_str(),
                 reason);
      return;
    case ChipPortMiss::RetrievePort:
      Hal()->log(kLogError, "%s() failed to retrieve BCM port for %s: %s", caller, name.c_str(),
                 reason);
      return;
  }
}

// The chip port of id from the gport table, or from the port table when fromPortTable, into
// chipPort; false on a miss, which is logged with the caller's name. Inline, as the key of a rule
// below: every rule added or deleted runs both, and a call's set-up would be a noticeable part of
// the library's own work there. A flag and an out-parameter rather than an optional: inlined, the
// optional's engaged byte was still stored and tested on the way to success.
inline bool LookupChipPort(const HalBcmCommon& common, const limid_t& id, bool fromPortTable,
                           const char* caller, ChipPortMiss miss, int32_t& chipPort) {
  try {
    chipPort = fromPortTable ? common.LookupPort(id).port : common.LookupGport(id).port;
    return true;
  } catch (const std::out_of_range& e) {
    LogChipPortMiss(miss, caller, id, e.what());
    return false;
  }
}

std::string Rendered(const VlanMapping& rule) {
  std::ostringstream text;
  text << rule;
  return text.str();
}

// The rule's line after the chip refused it; the reason was logged where the chip was called.
// These lines are the requests' failure paths: kept out of line and cold, so that the flattened
// requests do not prepare their string streams on the way to success.
[[gnu::cold, gnu::noinline]] void LogRefusedIngressRule(const VlanMapping& rule, bool qinq) {
  const std::string text = Rendered(rule);
  Hal()->log(kLogInfo, "VLAN translate rule:\n%s\nQinQ: %s", text.c_str(),
             qinq ? "enable" : "disable");
}

[[gnu::cold, gnu::noinline]] void LogRefusedEgressRule(const VlanMapping& rule) {
  const std::string text = Rendered(rule);
  Hal()->log(kLogInfo, "VLAN translate rule:\n%s", text.c_str());
}

// A deletion of a rule that is not stored, and so not on the chip either.
[[gnu::cold, gnu::noinline]] void LogSkippedDeletion(Stage stage, const VlanMapping& rule) {
  const std::string text = Rendered(rule);
  if (stage == Stage::Ingress)
    Hal()->log(kLogInfo, "Skipping deletion of already inexistent ingress VLAN translate rule:\n%s",
               text.c_str());
  else
    Hal()->log(kLogInfo, "Skipping deletion of already inexistent egress VLAN translate rule:\n%s",
               text.c_str());
}

// ---- Rule identity ------------------------------------------------------------------------------

// Which bytes of a rule hold its fields (0xff) and which are the padding between them (0), whose
// contents are whatever the rule's construction left there.
struct RuleBytes {
  unsigned char byte[sizeof(VlanMapping)] = {};

  constexpr void Mark(size_t offset, size_t size) {
    for (size_t i = 0; i < size; ++i)
      byte[offset + i] = 0xff;
  }
  constexpr void MarkTag(size_t offset) {
    Mark(offset + offsetof(VlanTag, vlanId), sizeof(VlanTag::vlanId));
    Mark(offset + offsetof(VlanTag, tpid), sizeof(VlanTag::tpid));
    Mark(offset + offsetof(VlanTag, priority), sizeof(VlanTag::priority));
  }
};

// The fields that the rule order compares, all of them: a field added to the rule goes here as
// well as into the order. A flag is one byte, 0 or 1, so equal bytes are equal values throughout.
constexpr RuleBytes FieldBytes() {
  constexpr size_t match = offsetof(VlanMapping, match);
  constexpr size_t action = offsetof(VlanMapping, action);
  RuleBytes bytes;
  bytes.Mark(match + offsetof(vlanxlate::VlanMatch, hasOuterVlan), sizeof(bool));
  bytes.MarkTag(match + offsetof(vlanxlate::VlanMatch, outerVlanTag));
  bytes.Mark(match + offsetof(vlanxlate::VlanMatch, hasInnerVlan), sizeof(bool));
  bytes.MarkTag(match + offsetof(vlanxlate::VlanMatch, innerVlanTag));
  bytes.Mark(offsetof(VlanMapping, operation), sizeof(Operation));
  bytes.MarkTag(action + offsetof(vlanxlate::VlanAction, outerVlanTag));
  bytes.MarkTag(action + offsetof(vlanxlate::VlanAction, innerVlanTag));
  return bytes;
}

constexpr RuleBytes kFieldBytes = FieldBytes();
static_assert(sizeof(VlanMapping) % sizeof(uint64_t) == 0, "a rule is compared in whole words");

// Whether two rules are the same rule: every field equal, which is what the rule order, comparing
// every field, holds equivalent. The order has to take the fields one at a time, three
// instructions each when they are equal; equality does not, so the rules' bytes are compared a
// word at a time with the padding masked out.
inline bool SameRule(const VlanMapping& a, const VlanMapping& b) {
  const auto* bytesOfA = reinterpret_cast<const unsigned char*>(&a);
  const auto* bytesOfB = reinterpret_cast<const unsigned char*>(&b);
  uint64_t differing = 0;
  for (size_t offset = 0; offset < sizeof(VlanMapping); offset += sizeof(uint64_t)) {
    uint64_t wordOfA;
    uint64_t wordOfB;
    uint64_t fieldMask;
    std::memcpy(&wordOfA, bytesOfA + offset, sizeof wordOfA);
    std::memcpy(&wordOfB, bytesOfB + offset, sizeof wordOfB);
    std::memcpy(&fieldMask, kFieldBytes.byte + offset, sizeof fieldMask);
    differing |= (wordOfA ^ wordOfB) & fieldMask;
  }
  return differing == 0;
}

// Where a rule is stored for an interface: its interface's set and its position there.
struct StoredRule {
  std::set<VlanMapping>* rules = nullptr;  // null when the rule is not stored
  std::set<VlanMapping>::iterator position;
};

// One descent of the interface's set, to the first rule that does not order before the one sought:
// that is the rule if it is stored.
inline StoredRule FindStoredRule(std::map<limid_t, std::set<VlanMapping>>& store, const limid_t& id,
                                 const VlanMapping& rule) {
  auto entry = store.find(id);
  if (entry == store.end())
    return {};
  std::set<VlanMapping>& rules = entry->second;
  const auto position = rules.lower_bound(rule);
  if (position == rules.end() || !SameRule(*position, rule))
    return {};
  return {&rules, position};
}

// ---- Ingress ------------------------------------------------------------------------------------

struct IngressKey {
  bcm_vlan_translate_key_t type;
  bcm_vlan_t outerVlan;
  bcm_vlan_t innerVlan;
};

// The entry a rule occupies in the ingress table. A Q-in-Q port sees the customer's tag as its
// inner tag, so a rule's outer match is looked up as the inner VLAN; only single-tag matches get a
// real key there, the other combinations go to the SDK with no key and its answer decides.
inline IngressKey IngressKeyOf(const VlanMapping& rule, bool qinq) {
  const bool outer = rule.match.hasOuterVlan;
  const bool inner = rule.match.hasInnerVlan;
  const bcm_vlan_t outerVlan = rule.match.outerVlanTag.vlanId;
  const bcm_vlan_t innerVlan = rule.match.innerVlanTag.vlanId;
  if (qinq) {
    if (!outer)
      return {bcmVlanTranslateKeyInvalid, 0, 0};
    return {inner ? bcmVlanTranslateKeyInvalid : bcmVlanTranslateKeyPortInner, 0, outerVlan};
  }
  if (outer && inner)
    return {bcmVlanTranslateKeyPortDouble, outerVlan, innerVlan};
  if (outer)
    return {bcmVlanTranslateKeyPortOuter, outerVlan, 0};
  if (inner)
    return {bcmVlanTranslateKeyPortInner, 0, innerVlan};
  return {bcmVlanTranslateKeyInvalid, 0, 0};
}

bcm_vlan_tpid_action_t TpidAction(uint16_t tpid) {
  return tpid != 0 ? bcmVlanTpidActionModify : bcmVlanTpidActionNone;
}

void SetOuterValues(const VlanTag& tag, bcm_vlan_action_set_t& action) {
  action.new_outer_vlan = tag.vlanId;
  action.priority = IsUsed(tag.priority) ? tag.priority : -1;
  action.outer_tpid = tag.tpid;
  action.outer_tpid_action = TpidAction(tag.tpid);
}

void SetInnerValues(const VlanTag& tag, bcm_vlan_action_set_t& action) {
  action.new_inner_vlan = tag.vlanId;
  action.new_inner_pkt_prio = IsUsed(tag.priority) ? tag.priority : 0;
  action.inner_tpid = tag.tpid;
  action.inner_tpid_action = TpidAction(tag.tpid);
}

// On a Q-in-Q port the new outer tag is pushed onto the customer's tag; its priority is the rule's
// or, when the rule leaves it, the customer's copied up.
bcm_vlan_action_t PushedPriority(uint8_t priority) {
  return IsUsed(priority) ? bcmVlanActionAdd : bcmVlanActionCopy;
}

bcm_vlan_action_t ReplacedPriority(uint8_t priority) {
  return IsUsed(priority) ? bcmVlanActionReplace : bcmVlanActionNone;
}

void SetIngressAdd(const VlanMapping& rule, bool qinq, bool prio, bcm_vlan_action_set_t& a) {
  const uint8_t outerPriority = rule.action.outerVlanTag.priority;
  SetOuterValues(rule.action.outerVlanTag, a);
  if (qinq) {
    a.it_outer = bcmVlanActionAdd;
    if (prio)
      a.it_outer_pkt_prio = PushedPriority(outerPriority);
    return;
  }
  a.ot_outer = bcmVlanActionAdd;
  a.dt_outer = bcmVlanActionAdd;
  if (prio) {
    // Replace on single-tagged but add on double-tagged frames: the asymmetry is what the
    // platform has always programmed for this operation.
    const bool used = IsUsed(outerPriority);
    a.ot_outer_pkt_prio = used ? bcmVlanActionReplace : bcmVlanActionNone;
    a.dt_outer_pkt_prio = used ? bcmVlanActionAdd : bcmVlanActionNone;
  }
}

void SetIngressReplace(const VlanMapping& rule, bool qinq, bool prio, bcm_vlan_action_set_t& a) {
  const uint8_t outerPriority = rule.action.outerVlanTag.priority;
  SetOuterValues(rule.action.outerVlanTag, a);
  if (qinq) {
    // The customer's tag is the inner one: the new tag is pushed and the old one dropped.
    a.it_outer = bcmVlanActionAdd;
    a.it_inner = bcmVlanActionDelete;
    if (prio)
      a.it_outer_pkt_prio = PushedPriority(outerPriority);
    return;
  }
  a.ot_outer = bcmVlanActionReplace;
  a.dt_outer = bcmVlanActionReplace;
  if (prio) {
    a.ot_outer_pkt_prio = ReplacedPriority(outerPriority);
    a.dt_outer_pkt_prio = ReplacedPriority(outerPriority);
  }
}

// Without Q-in-Q only the values are given; the port's tag handling does the rest.
void SetIngressAddReplace(const VlanMapping& rule, bool qinq, bool prio, bcm_vlan_action_set_t& a) {
  const VlanTag& outer = rule.action.outerVlanTag;
  const VlanTag& inner = rule.action.innerVlanTag;
  SetOuterValues(outer, a);
  SetInnerValues(inner, a);
  if (!qinq)
    return;
  a.it_outer = bcmVlanActionAdd;
  a.it_inner = inner.vlanId != 0 ? bcmVlanActionReplace : bcmVlanActionNone;
  if (prio) {
    a.it_inner_pkt_prio = ReplacedPriority(inner.priority);
    a.it_outer_pkt_prio = PushedPriority(outer.priority);
  }
}

// With Q-in-Q only the values are given; the port's tag handling does the rest.
void SetIngressReplaceReplace(const VlanMapping& rule, bool qinq, bool prio,
                              bcm_vlan_action_set_t& a) {
  const VlanTag& outer = rule.action.outerVlanTag;
  const VlanTag& inner = rule.action.innerVlanTag;
  SetOuterValues(outer, a);
  SetInnerValues(inner, a);
  if (qinq)
    return;
  a.ot_outer = bcmVlanActionReplace;
  a.dt_outer = bcmVlanActionReplace;
  a.dt_inner = inner.vlanId != 0 ? bcmVlanActionReplace : bcmVlanActionNone;
  if (prio) {
    a.ot_outer_pkt_prio = ReplacedPriority(outer.priority);
    a.dt_outer_pkt_prio = ReplacedPriority(outer.priority);
    a.dt_inner_pkt_prio = ReplacedPriority(inner.priority);
  }
}

// Fills the tag actions of an ingress rule; false for a rule without an operation. Values from
// Invalid upwards are installed as an empty action, as they always have been. Tested in turn rather
// than switched on: replacing the outer tag, the translation ports carry most, costs a compare and
// a branch where a jump table costs seven instructions, and none of the other three operations
// pays more than one instruction over the table.
bool GetIngressVlanXlateAction(const VlanMapping& rule, bool qinq, bool prio,
                               bcm_vlan_action_set_t& action) {
  const Operation operation = rule.operation;
  if (operation == Operation::Replace) {
    SetIngressReplace(rule, qinq, prio, action);
  } else if (operation == Operation::Add) {
    SetIngressAdd(rule, qinq, prio, action);
  } else if (operation == Operation::AddReplace) {
    SetIngressAddReplace(rule, qinq, prio, action);
  } else if (operation == Operation::ReplaceReplace) {
    SetIngressReplaceReplace(rule, qinq, prio, action);
  } else if (operation == Operation::Unknown) {
    Hal()->log(kLogError, "%s() invalid ingress VLAN translate action: %s", __func__,
               vlanxlate::OperationName(rule.operation));
    return false;
  }
  return true;
}

// ---- Egress -------------------------------------------------------------------------------------

struct EgressVlans {
  bcm_vlan_t outerVlan;
  bcm_vlan_t innerVlan;
};

// The egress table has no key type: an absent match tag is VLAN 0.
EgressVlans EgressVlansOf(const VlanMapping& rule) {
  return {rule.match.hasOuterVlan ? rule.match.outerVlanTag.vlanId : bcm_vlan_t{0},
          rule.match.hasInnerVlan ? rule.match.innerVlanTag.vlanId : bcm_vlan_t{0}};
}

// Only the outer tag is rewritten on egress. An unused priority is 0 on chips with packet-priority
// actions (the pkt_prio actions decide there) and -1, "leave it", on the others.
bool GetEgressVlanXlateAction(const VlanMapping& rule, bool prio, bcm_vlan_action_set_t& action) {
  const VlanTag& outer = rule.action.outerVlanTag;
  switch (rule.operation) {
    case Operation::Replace:
      action.new_outer_vlan = outer.vlanId;
      action.new_inner_vlan = 0;
      action.priority = IsUsed(outer.priority) ? outer.priority : (prio ? 0 : -1);
      action.outer_tpid = outer.tpid;
      action.outer_tpid_action = TpidAction(outer.tpid);
      action.ot_outer = bcmVlanActionReplace;
      action.dt_outer = bcmVlanActionReplace;
      if (prio) {
        action.ot_outer_pkt_prio = ReplacedPriority(outer.priority);
        action.dt_outer_pkt_prio = ReplacedPriority(outer.priority);
      }
      return true;
    case Operation::Unknown:
    case Operation::Add:
    case Operation::AddReplace:
    case Operation::ReplaceReplace:
      Hal()->log(kLogError, "%s() invalid egress VLAN translate action: %s", __func__,
                 vlanxlate::OperationName(rule.operation));
      return false;
    default:
      return true;  // from Invalid upwards: an empty action, as on ingress
  }
}

// The class a LAG's members are given. A gport that is not a trunk subtracts -1: the class just
// above the LAG range, as the platform has always computed it.
int LagClassId(int32_t lagGport, bool prio) {
  const int top = prio ? kLagClassTopWithPacketPriority : kLagClassTopWithoutPacketPriority;
  const int trunkId = halbd::IsTrunkGport(lagGport) ? halbd::TrunkIdOfGport(lagGport) : -1;
  return top - trunkId;
}

// The egress class that keys the entries of id into classId: the LAG class for a LAG (shared by
// its members), else the port's class as the chip holds it; false when the chip does not say. Only
// the LAG class depends on the chip's packet-priority actions, so only a LAG asks for them. A flag
// and an out-parameter, as the chip port's lookup.
bool EgressClassOf(int unit, const limid_t& id, int32_t gport, const char* caller, int& classId) {
  if (halbd::IsLag(id)) {
    classId = LagClassId(gport, TakesPacketPriorityActions(unit));
    return true;
  }
  uint32_t portClass = 0;
  const int rc = bcm_port_class_get(unit, gport, bcmPortClassVlanTranslateEgress, &portClass);
  if (rc < 0) {
    Hal()->error(rc, "%s() failed to get BCM Class ID for %s (%#x): %s", caller,
                 DecodedName(id).c_str(), static_cast<unsigned>(gport), bcm_errmsg(rc));
    return false;
  }
  classId = static_cast<int>(portClass);
  return true;
}

bool SetEgressClass(int unit, const limid_t& port, int portNumber, int classId,
                    const char* caller) {
  const int rc = bcm_port_class_set(unit, portNumber, bcmPortClassVlanTranslateEgress,
                                    static_cast<uint32_t>(classId));
  if (rc < 0) {
    Hal()->error(rc, "%s() failed to set BCM Class ID for %s (%#x): %s", caller,
                 DecodedName(port).c_str(), static_cast<unsigned>(portNumber), bcm_errmsg(rc));
    return false;
  }
  return true;
}

}  // namespace

// ---- Ingress rules ------------------------------------------------------------------------------

bool HalBcmBridgePort::InstallIngressVlanMappingRule(const limid_t& port, const VlanMapping& rule,
                                                     bool qinq) const {
  int32_t gport = 0;
  if (!LookupChipPort(*bcmCommon, port, false, __func__, kGetGport, gport))
    return false;

  // The record is initialised before the unit and its properties are read, so that they need not
  // be kept across the SDK's call.
  bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  const int chipUnit = bcmCommon->unit;
  const bool prio = TakesPacketPriorityActions(chipUnit);
  if (!GetIngressVlanXlateAction(rule, qinq, prio, action)) {
    Hal()->log(kLogError, "%s() failed to get BCM VLAN translate action for %s", __func__,
               DecodedName(port).c_str());
    return false;
  }
  action.flags |= kIngressActionFlag;

  const IngressKey key = IngressKeyOf(rule, qinq);
  const int rc = bcm_vlan_translate_action_add(chipUnit, gport, key.type, key.outerVlan,
                                               key.innerVlan, &action);
  if (rc < 0) {
    Hal()->error(rc, "%s() failed to add ingress VLAN translate rule for %s: %s", __func__,
                 DecodedName(port).c_str(), bcm_errmsg(rc));
    return false;
  }
  return true;
}

bool HalBcmBridgePort::RemoveIngressVlanMappingRule(const limid_t& port, const VlanMapping& rule,
                                                    bool qinq, bool usePortTable) const {
  int32_t gport = 0;
  if (!LookupChipPort(*bcmCommon, port, usePortTable, __func__, kRetrieveGport, gport))
    return false;

  const IngressKey key = IngressKeyOf(rule, qinq);
  const int rc = bcm_vlan_translate_action_delete(bcmCommon->unit, gport, key.type, key.outerVlan,
                                                  key.innerVlan);
  if (rc < 0) {
    Hal()->error(rc, "%s() failed to remove ingress VLAN translate for %s: %s", __func__,
                 DecodedName(port).c_str(), bcm_errmsg(rc));
    return false;
  }
  return true;
}

// ---- Egress rules and class IDs -----------------------------------------------------------------

bool HalBcmBridgePort::InstallEgressVlanMappingRule(const limid_t& port,
                                                    const VlanMapping& rule) const {
  int32_t gport = 0;
  if (!LookupChipPort(*bcmCommon, port, false, __func__, kGetGport, gport))
    return false;

  // Initialised first, as an ingress rule's record.
  bcm_vlan_action_set_t action;
  bcm_vlan_action_set_t_init(&action);
  const int chipUnit = bcmCommon->unit;
  const bool prio = TakesPacketPriorityActions(chipUnit);
  if (!GetEgressVlanXlateAction(rule, prio, action)) {
    Hal()->log(kLogError, "%s() failed to get BCM VLAN translate action for %s", __func__,
               DecodedName(port).c_str());
    return false;
  }
  action.flags |= kEgressActionFlag;

  int portClass = 0;
  if (!EgressClassOf(chipUnit, port, gport, __func__, portClass))
    return false;
  const EgressVlans vlans = EgressVlansOf(rule);

  // The SDK does not overwrite an entry: an earlier one for the same class and VLANs goes first.
  int rc = bcm_vlan_translate_egress_action_delete(chipUnit, portClass, vlans.outerVlan,
                                                   vlans.innerVlan);
  if (rc < 0 && rc != BCM_E_NOT_FOUND) {
    Hal()->error(rc, "%s() failed to delete previous egress VLAN translate rule for %s: %s",
                 __func__, DecodedName(port).c_str(), bcm_errmsg(rc));
    return false;
  }
  rc = bcm_vlan_translate_egress_action_add(chipUnit, portClass, vlans.outerVlan, vlans.innerVlan,
                                            &action);
  if (rc < 0) {
    Hal()->error(rc, "%s() failed to add egress VLAN translate rule for %s: %s", __func__,
                 DecodedName(port).c_str(), bcm_errmsg(rc));
    return false;
  }
  return true;
}

bool HalBcmBridgePort::RemoveEgressVlanMappingRule(const limid_t& port, const VlanMapping& rule,
                                                   bool usePortTable) const {
  int32_t gport = 0;
  if (!LookupChipPort(*bcmCommon, port, usePortTable, __func__, kRetrieveGport, gport))
    return false;
  const int chipUnit = bcmCommon->unit;

  int portClass = 0;
  if (!EgressClassOf(chipUnit, port, gport, __func__, portClass))
    return false;
  const EgressVlans vlans = EgressVlansOf(rule);

  const int rc = bcm_vlan_translate_egress_action_delete(chipUnit, portClass, vlans.outerVlan,
                                                         vlans.innerVlan);
  if (rc < 0) {
    Hal()->error(rc, "%s() failed to remove egress VLAN translate for %s: %s", __func__,
                 DecodedName(port).c_str(), bcm_errmsg(rc));
    return false;
  }
  return true;
}

bool HalBcmBridgePort::SetEgressVlanXlateClassIdForLag(const limid_t& lag,
                                                       const limid_t& member) const {
  int32_t lagGport = 0;
  if (!LookupChipPort(*bcmCommon, lag, false, __func__, kRetrieveGport, lagGport))
    return false;
  const int chipUnit = bcmCommon->unit;
  const int classId = LagClassId(lagGport, TakesPacketPriorityActions(chipUnit));

  int32_t memberGport = 0;
  if (!LookupChipPort(*bcmCommon, member, true, __func__, kRetrievePort, memberGport))
    return false;
  return SetEgressClass(chipUnit, member, halbd::LocalPortOrInvalid(memberGport), classId,
                        __func__);
}

bool HalBcmBridgePort::ResetEgressVlanXlateClassId(const limid_t& port) const {
  int32_t gport = 0;
  if (!LookupChipPort(*bcmCommon, port, true, __func__, kRetrievePort, gport))
    return false;
  // A port's own class is its port number; a gport that names no local port gives -1 for both,
  // which the SDK refuses.
  const int portNumber = halbd::LocalPortOrInvalid(gport);
  return SetEgressClass(bcmCommon->unit, port, portNumber, portNumber, __func__);
}

// ---- Rule store ---------------------------------------------------------------------------------

// Adds a rule the chip took to the interface's set, in the node of a deleted rule when one is kept:
// ports' rules are mostly replaced (the old one deleted, the new one added), and a kept node saves
// the allocator's round trip on both. With none kept, the set allocates as usual, and only once it
// knows the rule is new.
inline void HalBcmBridgePort::StoreRule(std::set<VlanMapping>& rules, const VlanMapping& rule) {
  if (spareRuleNodes.empty()) {
    rules.insert(rule);
    return;
  }
  RuleNode& node = spareRuleNodes.top();
  node.value() = rule;
  auto stored = rules.insert(std::move(node));
  if (stored.inserted)
    spareRuleNodes.popTaken();
  else
    node = std::move(stored.node);  // an equal rule was stored already
}

// The egress request stores its rule through this call: with the set's insertion compiled into
// that request, the descent of the set kept a value on the stack at every step and cost more than
// the call saves. The ingress request's descent keeps its values in registers, and inserts inline.
[[gnu::noinline, gnu::flatten]] void HalBcmBridgePort::StoreEgressRule(const limid_t& id,
                                                                       const VlanMapping& rule) {
  StoreRule(egressVlanMappings[id], rule);
}

// Takes a rule out of its set and keeps its node while there is room.
inline void HalBcmBridgePort::DropRule(std::set<VlanMapping>& rules,
                                       std::set<VlanMapping>::const_iterator position) {
  if (spareRuleNodes.full())
    rules.erase(position);
  else
    spareRuleNodes.push(rules.extract(position));
}

// Each stage's request is a function of its own, flattened: compiled together, the two stages'
// steps shared one frame and its register pressure, and the ingress path spilled and reloaded
// values around every call it made.
int HalBcmBridgePort::AddVlanMappingRule(const limid_t& id, Stage stage, const VlanMapping& rule) {
  if (stage == Stage::Ingress)
    return AddIngressRule(id, rule);
  if (stage == Stage::Egress)
    return AddEgressRule(id, rule);
  return 0;  // a stage this service has no table for
}

// The chip decides, also for a rule that is already stored; the store changes only when the chip
// took the rule. The chip step, the port lookup and the store's search and insertion are compiled
// into the request and cost no calls of their own.
[[gnu::flatten, gnu::noinline]] int HalBcmBridgePort::AddIngressRule(const limid_t& id,
                                                                     const VlanMapping& rule) {
  const bool qinq = qinqPorts.count(id) != 0;
  if (!InstallIngressVlanMappingRule(id, rule, qinq)) {
    LogRefusedIngressRule(rule, qinq);
    return -1;
  }
  StoreRule(ingressVlanMappings[id], rule);
  return 0;
}

[[gnu::flatten, gnu::noinline]] int HalBcmBridgePort::AddEgressRule(const limid_t& id,
                                                                    const VlanMapping& rule) {
  if (!InstallEgressVlanMappingRule(id, rule)) {
    LogRefusedEgressRule(rule);
    return -1;
  }
  StoreEgressRule(id, rule);
  return 0;
}

int HalBcmBridgePort::DeleteVlanMappingRule(const limid_t& id, Stage stage,
                                            const VlanMapping& rule) {
  if (stage == Stage::Ingress)
    return DeleteIngressRule(id, rule);
  if (stage == Stage::Egress)
    return DeleteEgressRule(id, rule);
  return 0;
}

// A rule leaves the store only once the chip dropped it; the interface's entry stays, empty or
// not. A rule that is not stored is not on the chip either, so there is nothing to do.
[[gnu::flatten, gnu::noinline]] int HalBcmBridgePort::DeleteIngressRule(const limid_t& id,
                                                                        const VlanMapping& rule) {
  // The Q-in-Q state is read first: after the rule's search, the registers are taken and it went
  // through the stack.
  const bool qinq = qinqPorts.count(id) != 0;
  const StoredRule stored = FindStoredRule(ingressVlanMappings, id, rule);
  if (stored.rules == nullptr) {
    LogSkippedDeletion(Stage::Ingress, rule);
    return 0;
  }
  if (!RemoveIngressVlanMappingRule(id, rule, qinq, false)) {
    LogRefusedIngressRule(rule, qinq);
    return -1;
  }
  DropRule(*stored.rules, stored.position);
  return 0;
}

[[gnu::flatten, gnu::noinline]] int HalBcmBridgePort::DeleteEgressRule(const limid_t& id,
                                                                       const VlanMapping& rule) {
  const StoredRule stored = FindStoredRule(egressVlanMappings, id, rule);
  if (stored.rules == nullptr) {
    LogSkippedDeletion(Stage::Egress, rule);
    return 0;
  }
  if (!RemoveEgressVlanMappingRule(id, rule, false)) {
    LogRefusedEgressRule(rule);
    return -1;
  }
  DropRule(*stored.rules, stored.position);
  return 0;
}

void HalBcmBridgePort::UpdateVlanMappingRules(const limid_t& id) const {
  auto entry = ingressVlanMappings.find(id);
  if (entry == ingressVlanMappings.end())
    return;
  // Called right after the Q-in-Q state changed, so every stored rule sits on the chip under the
  // other state's key layout. Egress entries do not depend on Q-in-Q. Failures are logged by the
  // two steps and leave the store as it is.
  const bool qinq = qinqPorts.count(id) != 0;
  for (const VlanMapping& rule : entry->second) {
    RemoveIngressVlanMappingRule(id, rule, !qinq, false);
    InstallIngressVlanMappingRule(id, rule, qinq);
  }
}

void HalBcmBridgePort::UpdateVlanXlateLookupKeys(const limid_t& port, bool qinq) const {
  // A Q-in-Q port looks up the provider tag, then the customer tag alone; any other port both
  // tags together, then the outer tag alone.
  static const std::vector<bcm_vlan_translate_key_e> qinqKeys{bcmVlanTranslateKeyPortOuter,
                                                              bcmVlanTranslateKeyPortInner};
  static const std::vector<bcm_vlan_translate_key_e> plainKeys{bcmVlanTranslateKeyPortDouble,
                                                               bcmVlanTranslateKeyPortOuter};
  SetVlanXlateLookupKeys(port, qinq ? qinqKeys : plainKeys);
}

void HalBcmBridgePort::SetVlanXlateLookupKeys(
    const limid_t& port, const std::vector<bcm_vlan_translate_key_e>& keys) const {
  // The chip has exactly two lookup-key controls per port.
  if (keys.size() != 2) {
    Hal()->log(kLogError, "%s() invalid number of VLAN Xlate lookup keys for %s: %d", __func__,
               DecodedName(port).c_str(), static_cast<int>(keys.size()));
    return;
  }
  int32_t gport = 0;
  if (!LookupChipPort(*bcmCommon, port, true, __func__, kRetrievePort, gport))
    return;
  const int portNumber = halbd::LocalPortOrInvalid(gport);

  int rc = bcm_vlan_control_port_set(unit, portNumber, bcmVlanPortTranslateKeyFirst, keys[0]);
  if (rc < 0) {
    Hal()->error(rc, "%s() error setting first lookup key at port %#x: %s", __func__,
                 static_cast<unsigned>(portNumber), bcm_errmsg(rc));
    return;
  }
  rc = bcm_vlan_control_port_set(unit, portNumber, bcmVlanPortTranslateKeySecond, keys[1]);
  if (rc < 0) {
    Hal()->error(rc, "%s() error setting second lookup key at port %#x: %s", __func__,
                 static_cast<unsigned>(portNumber), bcm_errmsg(rc));
  }
}
