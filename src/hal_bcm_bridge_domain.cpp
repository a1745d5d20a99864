#include "hal_bcm_bridge_domain.h"

#include <stdexcept>
#include <utility>

#include "hal_platform.h"

using halbd::DecodedName;
using halbd::Hal;
using halbd::IsLag;
using halbd::IsLocalPortGport;
using halbd::VlanOfBridgeDomain;

namespace {

constexpr int kError = 3;

constexpr unsigned int kLagClientPriority = 1000;  // before the bridge ports (1001)
constexpr const char* kLagClientName = "hal-switch-bd-ll-bcm";

// Where the membership assertions report from; fixed so that reports stay comparable across
// builds of this file.
constexpr const char* kAssertFile = "src/hal_bcm_bridge_domain";
constexpr int kAddAssertLine = 359;
constexpr int kDelAssertLine = 483;

// One chip read returns at most this many members of a VLAN.
constexpr int kMaxVlanMembers = 1024;

// The DHCP action bits that callers may switch; every other bit of their value is ignored.
constexpr uint32_t kDhcpActionBits = HAL_VLAN_PROP_DHCP_TO_CPU | HAL_VLAN_PROP_DHCP_DROP;

// printf's %X takes an unsigned int; gports, groups and encap ids are signed in the SDK.
unsigned int Hex(int value) {
  return static_cast<unsigned int>(value);
}

int Result(bool ok) {
  return ok ? 0 : -1;
}

// The chip port of an interface into gport; false after logging the miss. The helpers marked
// inline run on every membership change, whose own work is a few hundred instructions: the set-up
// of a call each would be a noticeable part of it. A flag and an out-parameter rather than an
// optional, whose engaged byte was stored and tested on the way to success.
inline bool LookupPortLogged(const HalBcmCommon& common, limid_t intf, int& gport) {
  try {
    gport = common.LookupPort(intf).port;
    return true;
  } catch (const std::out_of_range&) {
    Hal()->log(kError, "HAL ID not found: %s.", DecodedName(intf).c_str());
    return false;
  }
}

// Erases key from a map if it is there. Erasing by key searches for the range of equal keys (two
// descents, then a walk over the range); a map holds a key once, so one search does.
template <typename Map>
inline void EraseKey(Map& map, const typename Map::key_type& key) {
  const auto entry = map.find(key);
  if (entry != map.end())
    map.erase(entry);
}

// Applies a chip change to every member port of a LAG and goes on past failures. Only
// local-port gports name ports of this chip; the others are left alone. True when every member
// was found and every change succeeded.
template <typename ChipChange>
bool ForEachMemberPort(const HalBcmCommon& common, const std::set<limid_t>& members,
                       ChipChange change) {
  bool ok = true;
  for (const limid_t& member : members) {
    int gport = 0;
    if (!LookupPortLogged(common, member, gport) || (IsLocalPortGport(gport) && change(gport) != 0))
      ok = false;
  }
  return ok;
}

// The VLAN's broadcast replication group into group; false after logging a failed read. It is
// read from the chip on every call because the module that owns the VLAN may change it; 0 means
// the VLAN has none. A flag and an out-parameter, as the port's lookup.
inline bool ReadBroadcastGroup(int unit, unsigned short vlan, bcm_multicast_t& group) {
  bcm_vlan_control_vlan_t control{};
  const int rc = bcm_vlan_control_vlan_selective_get(
      unit, vlan, BCM_VLAN_CONTROL_VLAN_BROADCAST_GROUP_MASK, &control);
  if (rc < 0) {
    Hal()->log(kError, "Error getting VLAN properties from VLAN %d: %s.", vlan, bcm_errmsg(rc));
    return false;
  }
  group = control.broadcast_group;
  return true;
}

// The encapsulation under which the group replicates to the port into encap; false after logging.
bool LookupEncap(int unit, bcm_multicast_t group, int gport, bcm_if_t& encap) {
  const int rc = bcm_multicast_l2_encap_get(unit, group, gport, 0, &encap);
  if (rc < 0) {
    Hal()->log(kError, "Error getting encap ID from gport 0x%08X for multicast group %08X: %s.",
               Hex(gport), Hex(group), bcm_errmsg(rc));
    return false;
  }
  return true;
}

// Read-modify-write of the DHCP action alone: the selective calls leave every other field of the
// VLAN's control record as it is on the chip.
template <typename Change>
int UpdateDhcpAction(int unit, unsigned short vlan, Change change) {
  bcm_vlan_control_vlan_t control;
  bcm_vlan_control_vlan_t_init(&control);
  int rc = bcm_vlan_control_vlan_selective_get(unit, vlan, BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK,
                                               &control);
  if (rc < 0) {
    Hal()->log(kError, "Error getting vlan control of %u: %s.", unsigned{vlan}, bcm_errmsg(rc));
    return -1;
  }
  change(control.protocol_pkt.dhcp_action);
  rc = bcm_vlan_control_vlan_selective_set(unit, vlan, BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK,
                                           &control);
  if (rc < 0) {
    Hal()->log(kError, "Error setting vlan control of %u: %s.", unsigned{vlan}, bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

// Read-modify-write of the whole VLAN control record around its flags.
template <typename Change>
int UpdateVlanFlags(int unit, unsigned short vlan, Change change) {
  bcm_vlan_control_vlan_t control;
  bcm_vlan_control_vlan_t_init(&control);
  int rc = bcm_vlan_control_vlan_get(unit, vlan, &control);
  if (rc < 0) {
    Hal()->log(kError, "Error getting vlan control of %u: %s.", unsigned{vlan}, bcm_errmsg(rc));
    return -1;
  }
  change(control.flags);
  rc = bcm_vlan_control_vlan_set(unit, vlan, control);
  if (rc < 0) {
    Hal()->log(kError, "Error setting vlan control of %u: %s.", unsigned{vlan}, bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

}  // namespace

// ---- Service -----------------------------------------------------------------------------------

HalBridgeDomainItf::~HalBridgeDomainItf() = default;

HalBridgeDomainItf* HalBridgeDomainItf::getInstance(
    std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator) {
  return HalBcmBridgeDomain::getInstance(std::move(lagOrchestrator));
}

HalBcmBridgeDomain* HalBcmBridgeDomain::getInstance(
    std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator) {
  // Construction is serialised by the guard of the function-local static; a constructor that
  // throws leaves the guard open, so the next call tries again.
  static HalBcmBridgeDomain instance(std::move(lagOrchestrator));
  return &instance;
}

HalBcmBridgeDomain* HalBcmBridgeDomain::getInstance() {
  return getInstance(nullptr);
}

HalBcmBridgeDomain::HalBcmBridgeDomain(std::shared_ptr<halswitchl2if::LagOrchestrator> orchestrator)
    : bcmCommon(HalBcmCommon::GetInstance()),
      lagOrchestrator(std::move(orchestrator)),
      vlanOrchestrator(std::make_shared<halswitchbd::VlanOrchestratorImpl>()),
      unit(bcmCommon->unit) {
  if (!lagOrchestrator)
    return;  // a service without LAG events
  halswitchl2if::LagOrchestrator::Callback callback;
  // A new LAG is in no VLAN yet, so there is nothing to move.
  callback.lagCreated = [](const limid_t&) { return true; };
  callback.lagDeleted = [this](const limid_t& lag) { return DelLAGEvent(lag) == 0; };
  callback.memberAdded = [this](const limid_t& lag, const limid_t& member) {
    return AddMemberLAGEvent(lag, member) == 0;
  };
  callback.memberDeleted = [this](const limid_t& lag, const limid_t& member) {
    return DelMemberLAGEvent(lag, member) == 0;
  };
  lagOrchestrator->RegisterClient(kLagClientPriority, kLagClientName, std::move(callback));
}

// The singleton dies only when the library is unloaded: it neither deregisters from the LAG
// orchestrator nor takes anything off the chip.
HalBcmBridgeDomain::~HalBcmBridgeDomain() = default;

// The VLAN's existence belongs to another HAL module; this service manages members and
// properties only.
int HalBcmBridgeDomain::create(limid_t, const st_HalBridgeDomainId&) {
  return 0;
}
int HalBcmBridgeDomain::destroy(limid_t) {
  return 0;
}

std::shared_ptr<halswitchbd::VlanOrchestrator> HalBcmBridgeDomain::GetVlanOrchestrator() {
  return vlanOrchestrator;
}

// ---- Membership --------------------------------------------------------------------------------

// Inserts key with its flag unless the key is already there, whose flag then stays; true when key
// was added. Configurations are written in ascending order, VLAN after VLAN and port after port,
// so a key above every stored one is common: tried first, it goes in at the end without a search
// of the map. Any other key costs one comparison more than a plain insert. A kept node of an erased
// entry is used when there is one; it stays kept when the key was there already.
inline std::pair<HalBcmBridgeDomain::MembershipMap::iterator, bool>
HalBcmBridgeDomain::InsertFromEnd(MembershipMap& map, limid_t key, bool tagged) {
  if (spareMembershipNodes.empty()) {
    const size_t before = map.size();
    const auto entry = map.insert(map.end(), {key, tagged});
    return {entry, map.size() != before};
  }
  MembershipMap::node_type& node = spareMembershipNodes.top();
  node.key() = key;
  node.mapped() = tagged;
  // The map takes the node only when it adds the key, and leaves the handle as it was otherwise.
  const auto entry = map.insert(map.end(), std::move(node));
  const bool added = node.empty();  // NOLINT(bugprone-use-after-move): unchanged unless taken
  if (added)
    spareMembershipNodes.popTaken();
  return {entry, added};
}

// Erases key's entry if it is there, keeping its node while there is room.
inline void HalBcmBridgeDomain::EraseMembership(MembershipMap& map, limid_t key) {
  const auto entry = map.find(key);
  if (entry == map.end())
    return;
  if (spareMembershipNodes.full())
    map.erase(entry);
  else
    spareMembershipNodes.push(map.extract(entry));
}

// The VLAN number is decoded once per request and handed down to the chip steps, which the LAG
// events reach through bcmAddMember and bcmDelMember instead. A switch's configuration is made of
// these two requests by the hundred thousand: flattened, their steps cost no calls of their own.
[[gnu::flatten]] int HalBcmBridgeDomain::addMember(limid_t bridgeDomain, limid_t intf, bool tagged,
                                                   unsigned int) {
  const unsigned short vlan = VlanOfBridgeDomain(bridgeDomain);
  const int rc = IsLag(intf) ? addLagMember(bridgeDomain, vlan, intf, tagged)
                             : addPortMember(bridgeDomain, vlan, intf, tagged);
  if (rc != 0)
    return -1;
  // The shared table reflects the latest request, whereas the books keep the first flag.
  const auto [entry, added] = InsertFromEnd(bcmCommon->GetVlanMemberTable()[vlan], intf, tagged);
  if (!added)
    entry->second = tagged;
  vlanOrchestrator->NotifyMemberAddedToVlan(vlan, intf, tagged);
  return 0;
}

// The four halves below have no caller but the two flattened requests, which take them in whole:
// inline, they leave no unused copy of their own in the library (about 2.5 KB).
inline int HalBcmBridgeDomain::addPortMember(limid_t bridgeDomain, unsigned short vlan,
                                             limid_t intf, bool tagged) {
  int gport = 0;
  if (!LookupPortLogged(*bcmCommon, intf, gport))
    return -1;
  IntfInfo& member_it = intfInfo[intf];
  // A port in a LAG takes the LAG's VLANs; adding it directly is a caller's mistake.
  if (member_it.inLAG)
    _sal_assert("!member_it.inLAG", kAssertFile, kAddAssertLine);
  if (IsLocalPortGport(gport) && addPhysicalPort(unit, gport, vlan, tagged) != 0)
    return -1;
  InsertFromEnd(member_it.bridgeDomains, bridgeDomain, tagged);
  return 0;
}

inline int HalBcmBridgeDomain::addLagMember(limid_t bridgeDomain, unsigned short vlan, limid_t lag,
                                            bool tagged) {
  // Not guarded: an unknown LAG is the caller's problem.
  const std::set<limid_t>& members = bcmCommon->GetLagMembers(lag);
  const bool ok = ForEachMemberPort(
      *bcmCommon, members, [&](int gport) { return addPhysicalPort(unit, gport, vlan, tagged); });
  // Members already programmed stay on the chip; the books only learn of complete successes.
  if (!ok)
    return -1;
  InsertFromEnd(lagMembership[lag], bridgeDomain, tagged);
  return 0;
}

[[gnu::flatten]] int HalBcmBridgeDomain::delMember(limid_t bridgeDomain, limid_t intf) {
  const unsigned short vlan = VlanOfBridgeDomain(bridgeDomain);
  // The VLAN's entry is created if missing and kept, even when empty.
  EraseMembership(bcmCommon->GetVlanMemberTable()[vlan], intf);
  // Clients hear of the removal before the chip changes, whether or not intf was a member.
  vlanOrchestrator->NotifyMemberRemovedFromVlan(vlan, intf);
  return IsLag(intf) ? delLagMember(bridgeDomain, vlan, intf)
                     : delPortMember(bridgeDomain, vlan, intf);
}

inline int HalBcmBridgeDomain::delPortMember(limid_t bridgeDomain, unsigned short vlan,
                                             limid_t intf) {
  int gport = 0;
  if (!LookupPortLogged(*bcmCommon, intf, gport))
    return -1;
  auto it = intfInfo.find(intf);
  if (it != intfInfo.end()) {
    EraseMembership(it->second.bridgeDomains, bridgeDomain);
    if (it->second.inLAG)
      _sal_assert("!it->second.inLAG", kAssertFile, kDelAssertLine);
  }
  if (!IsLocalPortGport(gport))
    return 0;
  return Result(delPhysicalPort(unit, gport, vlan) == 0);
}

inline int HalBcmBridgeDomain::delLagMember(limid_t bridgeDomain, unsigned short vlan,
                                            limid_t lag) {
  // The member list is walked where the common library keeps it: nothing that runs during the
  // walk (the chip calls and the HAL's log) changes a LAG's members, and the VLAN's clients, who
  // might, have already been told.
  const std::set<limid_t>* members = nullptr;
  try {
    members = &bcmCommon->GetLagMembers(lag);
  } catch (const std::out_of_range&) {
    Hal()->log(kError,
               "%s Couldn't find members for LAG %s. Likely already removed by Lag orchestrator",
               "delMember", DecodedName(lag).c_str());
    return -1;
  }
  EraseMembership(lagMembership[lag], bridgeDomain);
  const bool ok = ForEachMemberPort(*bcmCommon, *members,
                                    [&](int gport) { return delPhysicalPort(unit, gport, vlan); });
  return Result(ok);
}

int HalBcmBridgeDomain::delAllMembers(limid_t bridgeDomain) {
  const unsigned short vlan = VlanOfBridgeDomain(bridgeDomain);
  bcm_vlan_control_vlan_t control{};
  int rc = bcm_vlan_control_vlan_selective_get(
      unit, vlan, BCM_VLAN_CONTROL_VLAN_BROADCAST_GROUP_MASK, &control);
  if (rc < 0) {
    Hal()->log(kError, "Error getting VLAN properties from VLAN %s: %s.",
               DecodedName(bridgeDomain).c_str(), bcm_errmsg(rc));
    return -1;
  }
  const bcm_multicast_t group = control.broadcast_group;
  if (group != 0) {
    rc = bcm_multicast_egress_delete_all(unit, group);
    if (rc < 0) {
      Hal()->log(kError, "Error removing all egress members from group 0x%08x from %s: %s.",
                 Hex(group), DecodedName(bridgeDomain).c_str(), bcm_errmsg(rc));
      return -1;
    }
  }
  rc = bcm_vlan_gport_delete_all(unit, vlan);
  if (rc < 0) {
    Hal()->log(kError, "Error removing all from %s: %s.", DecodedName(bridgeDomain).c_str(),
               bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

int HalBcmBridgeDomain::isMember(limid_t bridgeDomain, limid_t intf, bool& member, bool& tagged,
                                 unsigned int& attributes) const {
  member = false;
  int gport = 0;
  try {
    gport = bcmCommon->LookupPort(intf).port;
  } catch (const std::out_of_range& e) {
    Hal()->log(kError, "Error looking for %s at %s: %s.", DecodedName(intf).c_str(),
               DecodedName(bridgeDomain).c_str(), e.what());
    return -1;
  }
  int flags = 0;
  const int rc = bcm_vlan_gport_get(unit, VlanOfBridgeDomain(bridgeDomain), gport, &flags);
  if (rc == BCM_E_NOT_FOUND)
    return 0;
  if (rc < 0) {
    Hal()->log(kError, "Error looking for %s (%#x) at %s: %s.", DecodedName(intf).c_str(),
               Hex(gport), DecodedName(bridgeDomain).c_str(), bcm_errmsg(rc));
    return -1;
  }
  member = true;
  tagged = (flags & BCM_VLAN_GPORT_ADD_UNTAGGED) == 0;
  attributes = 0;
  return 0;
}

int HalBcmBridgeDomain::getNumMembers(limid_t bridgeDomain, unsigned int& count) const {
  count = 0;
  std::set<limid_t> members;
  const int rc = getMembers(bridgeDomain, members);
  if (rc == 0)
    count = static_cast<unsigned int>(members.size());
  return rc;
}

int HalBcmBridgeDomain::getMembers(limid_t bridgeDomain, std::set<limid_t>& members) const {
  // Two 4 KiB arrays for the chip's answer, made and dropped with the call; nothing reads them
  // before the chip wrote them, so they are not filled first.
  bcm_gport_t gports[kMaxVlanMembers];
  int flags[kMaxVlanMembers];
  int count = 0;
  const int rc = bcm_vlan_gport_get_all(unit, VlanOfBridgeDomain(bridgeDomain), kMaxVlanMembers,
                                        gports, flags, &count);
  if (rc == BCM_E_NOT_FOUND) {
    members.clear();
    return 0;  // a VLAN without members
  }
  if (rc < 0) {
    members.clear();
    Hal()->log(kError, "Error retrieving members of %s: %s.", DecodedName(bridgeDomain).c_str(),
               bcm_errmsg(rc));
    return -1;
  }
  // The caller's set is the result. While the listing repeats the set's members in its order (a
  // caller refreshing its view of an unchanged VLAN), their nodes stay where they are; from the
  // first difference on, what is left of the old result goes and the rest is inserted. Either way
  // the set holds exactly the members listed so far, also when a lookup fails part-way.
  auto kept = members.begin();
  const auto end = members.end();  // a set's end stays where it is through inserts and erasures
  bool refreshing = true;
  for (int i = 0; i < count; ++i) {
    bcm_gport_t gport = gports[i];
    // Some chips report members by module and port; the reverse table knows local ports only.
    if (halbd::IsModulePortGport(gport)) {
      gport = halbd::LocalPortOfGport(gport) | (BCM_GPORT_TYPE_LOCAL << BCM_GPORT_TYPE_SHIFT);
    }
    limid_t member{};
    try {
      member = bcmCommon->LookupDeviceId(composed_id<int>{gport, -1});
    } catch (const std::out_of_range& e) {
      members.erase(kept, end);
      Hal()->log(kError, "Error retrieving members of %s: %s.", DecodedName(bridgeDomain).c_str(),
                 e.what());
      return -1;
    }
    // Expected: a refreshing caller's set, walked in place, is the case this loop is laid out for.
    if (__builtin_expect(refreshing && kept != end && *kept == member, 1)) {
      ++kept;
      continue;
    }
    if (refreshing) {
      kept = members.erase(kept, end);
      refreshing = false;
    }
    // The chip lists members in port order, which is the identifiers' order too where they number
    // ports in sequence: hinted at the end, such an insert needs no descent of the set.
    members.insert(end, member);
  }
  members.erase(kept, end);
  return 0;
}

// ---- Chip membership ---------------------------------------------------------------------------

int HalBcmBridgeDomain::bcmAddMember(int gport, limid_t bridgeDomain, bool tagged) {
  return addPhysicalPort(unit, gport, VlanOfBridgeDomain(bridgeDomain), tagged);
}

int HalBcmBridgeDomain::bcmDelMember(int gport, limid_t bridgeDomain) {
  return delPhysicalPort(unit, gport, VlanOfBridgeDomain(bridgeDomain));
}

// Always programs the service's own unit. A failure leaves the port where it got to: nothing is
// rolled back. Every membership change of a port runs this and its counterpart below; flattened,
// the replication-group step costs no call of its own.
[[gnu::flatten]] int HalBcmBridgeDomain::addPhysicalPort(int, int gport, unsigned short vlan,
                                                         bool tagged) {
  if (addPortToReplicationGroup(unit, gport, vlan) != 0) {
    Hal()->log(kError, "Error adding gport 0x%08X to VLAN %d Replication Group.", Hex(gport), vlan);
    return -1;
  }
  const int flags = tagged ? 0 : BCM_VLAN_GPORT_ADD_UNTAGGED;
  const int rc = bcm_vlan_gport_add(unit, vlan, gport, flags);
  if (rc < 0) {
    Hal()->log(kError, "Error adding gport 0x%08X to VLAN %d: %s.", Hex(gport), vlan,
               bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

// Leaves in the same order as addPhysicalPort joins: replication group first.
[[gnu::flatten]] int HalBcmBridgeDomain::delPhysicalPort(int, int gport, unsigned short vlan) {
  if (delPortFromReplicationGroup(unit, gport, vlan) != 0) {
    Hal()->log(kError, "Error removing gport 0x%08X from VLAN %d Replication Group.", Hex(gport),
               vlan);
    return -1;
  }
  const int rc = bcm_vlan_gport_delete(unit, vlan, gport);
  if (rc < 0) {
    Hal()->log(kError, "Error removing gport 0x%08X from VLAN %d: %s.", Hex(gport), vlan,
               bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

int HalBcmBridgeDomain::addPortToReplicationGroup(int unit, int gport, unsigned short vlan) {
  bcm_multicast_t group = 0;
  if (!ReadBroadcastGroup(unit, vlan, group))
    return -1;
  if (group == 0)
    return 0;
  bcm_if_t encap = 0;
  if (!LookupEncap(unit, group, gport, encap))
    return -1;
  const int rc = bcm_multicast_egress_add(unit, group, gport, encap);
  if (rc < 0) {
    Hal()->log(kError, "Error adding encap ID 0x%08X of gport 0x%08X to multicast group %08X: %s.",
               Hex(encap), Hex(gport), Hex(group), bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

int HalBcmBridgeDomain::delPortFromReplicationGroup(int unit, int gport, unsigned short vlan) {
  bcm_multicast_t group = 0;
  if (!ReadBroadcastGroup(unit, vlan, group))
    return -1;
  if (group == 0)
    return 0;
  bcm_if_t encap = 0;
  if (!LookupEncap(unit, group, gport, encap))
    return -1;
  const int rc = bcm_multicast_egress_delete(unit, group, gport, encap);
  if (rc < 0) {
    Hal()->log(kError,
               "Error removing encap ID 0x%08X of gport 0x%08X from multicast group %08X: %s.",
               Hex(encap), Hex(gport), Hex(group), bcm_errmsg(rc));
    return -1;
  }
  return 0;
}

// ---- VLAN properties ---------------------------------------------------------------------------

int HalBcmBridgeDomain::AddPropertyValue(limid_t bridgeDomain, en_HalVlanProperty property,
                                         en_HalVlanPropValue value) const {
  const unsigned short vlan = VlanOfBridgeDomain(bridgeDomain);
  switch (property) {
    case HAL_VLAN_PROPERTY_DHCP:
      return AddDhcpAction(vlan, value);
    case HAL_VLAN_PROPERTY_IGMP_SNOOPING:
      return AddIgmpSnoopingFlag(vlan);
    default:
      Hal()->log(kError, "Unsupported property %d", static_cast<int>(property));
      return -1;
  }
}

int HalBcmBridgeDomain::RemovePropertyValue(limid_t bridgeDomain, en_HalVlanProperty property,
                                            en_HalVlanPropValue value) const {
  const unsigned short vlan = VlanOfBridgeDomain(bridgeDomain);
  switch (property) {
    case HAL_VLAN_PROPERTY_DHCP:
      return RemoveDhcpAction(vlan, value);
    case HAL_VLAN_PROPERTY_IGMP_SNOOPING:
      return RemoveIgmpSnoopingFlag(vlan);
    default:
      Hal()->log(kError, "Unsupported property %d", static_cast<int>(property));
      return -1;
  }
}

int HalBcmBridgeDomain::AddDhcpAction(unsigned short vlan, en_HalVlanPropValue value) const {
  return UpdateDhcpAction(unit, vlan,
                          [value](uint32_t& action) { action |= (value & kDhcpActionBits); });
}

int HalBcmBridgeDomain::RemoveDhcpAction(unsigned short vlan, en_HalVlanPropValue value) const {
  return UpdateDhcpAction(unit, vlan,
                          [value](uint32_t& action) { action &= ~(value & kDhcpActionBits); });
}

// Snooping is on when the chip's disable flag is clear.
int HalBcmBridgeDomain::AddIgmpSnoopingFlag(unsigned short vlan) const {
  return UpdateVlanFlags(unit, vlan,
                         [](uint32_t& flags) { flags &= ~BCM_VLAN_IGMP_SNOOP_DISABLE; });
}

int HalBcmBridgeDomain::RemoveIgmpSnoopingFlag(unsigned short vlan) const {
  return UpdateVlanFlags(unit, vlan, [](uint32_t& flags) { flags |= BCM_VLAN_IGMP_SNOOP_DISABLE; });
}

// ---- LAG events --------------------------------------------------------------------------------

// A port in a LAG is a member of exactly the LAG's VLANs: it leaves its own and joins the LAG's.
int HalBcmBridgeDomain::AddMemberLAGEvent(const limid_t& lag, const limid_t& member) {
  int gport = 0;
  if (!LookupPortLogged(*bcmCommon, member, gport))
    return -1;
  const bool local = IsLocalPortGport(gport);
  bool ok = true;
  auto info = intfInfo.find(member);
  // A port never added directly has no record and gets none, so its inLAG is not tracked.
  if (info != intfInfo.end()) {
    for (const auto& [bridgeDomain, tagged] : info->second.bridgeDomains) {
      if (local && bcmDelMember(gport, bridgeDomain) != 0)
        ok = false;
    }
    info->second = IntfInfo{true, {}};
  }
  auto lagVlans = lagMembership.find(lag);
  if (lagVlans == lagMembership.end())
    return Result(ok);
  for (const auto& [bridgeDomain, tagged] : lagVlans->second) {
    if (local && bcmAddMember(gport, bridgeDomain, tagged) != 0)
      ok = false;
  }
  return Result(ok);
}

// The port leaves the LAG's VLANs; the VLANs it had before joining are not restored.
int HalBcmBridgeDomain::DelMemberLAGEvent(const limid_t& lag, const limid_t& member) {
  int gport = 0;
  if (!LookupPortLogged(*bcmCommon, member, gport))
    return -1;
  const bool local = IsLocalPortGport(gport);
  bool ok = true;
  auto lagVlans = lagMembership.find(lag);
  if (lagVlans != lagMembership.end()) {
    for (const auto& [bridgeDomain, tagged] : lagVlans->second) {
      if (local && bcmDelMember(gport, bridgeDomain) != 0)
        ok = false;
    }
  }
  auto info = intfInfo.find(member);
  if (info != intfInfo.end())
    info->second.inLAG = false;
  return Result(ok);
}

// Only the books forget the LAG; the shared VLAN member table keeps listing it.
int HalBcmBridgeDomain::DelLAGEvent(const limid_t& lag) {
  bool ok = true;
  for (const limid_t& member : bcmCommon->GetLagMembers(lag)) {
    if (DelMemberLAGEvent(lag, member) != 0)
      ok = false;
  }
  EraseKey(lagMembership, lag);
  return Result(ok);
}
