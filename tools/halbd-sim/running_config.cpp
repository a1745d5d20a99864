#include "running_config.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "hal_bcm_common.h"
#include "library_books.h"
#include "rule_syntax.h"
#include "runner.h"
#include "sim/sim_platform.h"

namespace halbdsim {

const char* const kApartPrefix = "# apart: ";

namespace {

// What a port that leaves a LAG is given, whatever it held before it joined.
constexpr unsigned kLeftLagNativeVlan = 4095;
constexpr unsigned kDefaultTpid = 0x8100;

// VLAN number to tagged flag.
using Flags = std::map<unsigned, bool>;

bool IsKind(limid_t id, sim::IdKind kind) {
  return static_cast<sim::IdKind>(id.bytes[0]) == kind;
}

std::string Tpid(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04x", value);
  return text;
}

const char* Tagging(bool tagged) {
  return tagged ? "tagged" : "untagged";
}

unsigned VlanOf(limid_t bridgeDomain) {
  uint32_t kind = 0;
  uint32_t vlan = 0;
  limid_to_bridgedomain_components(bridgeDomain, &kind, &vlan);
  return vlan & 0xffff;
}

std::optional<int> GportOf(limid_t id) {
  try {
    return HalBcmCommon::GetInstance()->LookupPort(id).port;
  } catch (const std::out_of_range&) {
    return std::nullopt;  // declared without a gport: in no identifier table
  }
}

// The gport as the port command declares it.
std::string GportWords(std::optional<int> gport) {
  if (!gport)
    return "none";
  const auto value = static_cast<unsigned>(*gport);
  const std::string port = std::to_string(value & BCM_GPORT_LOCAL_PORT_MASK);
  if ((value >> BCM_GPORT_TYPE_SHIFT) == BCM_GPORT_TYPE_LOCAL)
    return "local " + port;
  return "module " +
         std::to_string((value >> BCM_GPORT_MODPORT_MODULE_SHIFT) & BCM_GPORT_MODPORT_MODULE_MASK) +
         " " + port;
}

// Only local-port gports are programmed into VLAN membership.
bool IsLocalGport(std::optional<int> gport) {
  return gport && (static_cast<unsigned>(*gport) >> BCM_GPORT_TYPE_SHIFT) == BCM_GPORT_TYPE_LOCAL;
}

// The chip's discard mode for what the books hold: a block discards everything, else the
// frame types decide, and a type the chip has no mode for discards everything.
int DiscardFor(const KeptAttributes& kept) {
  if (kept.blocked.value_or(false))
    return BCM_PORT_DISCARD_ALL;
  switch (kept.frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES)) {
    case HAL_BP_ADMIT_ALL_FRAMES:
      return BCM_PORT_DISCARD_NONE;
    case HAL_BP_ADMIT_ONLY_TAGGED:
      return BCM_PORT_DISCARD_UNTAG;
    case HAL_BP_ADMIT_ONLY_UNTAGGED:
      return BCM_PORT_DISCARD_TAG;
    default:
      return BCM_PORT_DISCARD_ALL;
  }
}

// The shared VLAN member table's entries of one interface.
Flags SharedFlags(limid_t id) {
  Flags flags;
  for (const auto& [vlan, members] : sim::common().VlanMembers()) {
    const auto member = members.find(id);
    if (member != members.end())
      flags[vlan] = member->second;
  }
  return flags;
}

template <typename Map>
Flags FlagsIn(const Map& books, limid_t id) {
  Flags flags;
  const auto entry = books.find(id);
  if (entry == books.end())
    return flags;
  for (const auto& [bridgeDomain, tagged] : entry->second)
    flags[VlanOf(bridgeDomain)] = tagged;
  return flags;
}

Flags OwnFlags(limid_t port) {
  HalBcmBridgeDomainInspector books = DomainBooks();
  const auto record = books.intfInfo().find(port);
  Flags flags;
  if (record == books.intfInfo().end())
    return flags;
  for (const auto& [bridgeDomain, tagged] : record->second.bridgeDomains)
    flags[VlanOf(bridgeDomain)] = tagged;
  return flags;
}

// A port as the books and the chip hold it.
struct PortView {
  limid_t id{};
  std::string name;
  std::optional<int> gport;
  std::optional<int> chipPort;
  KeptAttributes kept;
  std::optional<limid_t> lag;  // the live LAG whose member list holds it
  Flags own;                   // the VLANs it was added to directly
  Flags shared;                // its entries in the shared VLAN member table
  // Joining a LAG empties a port's own VLANs but leaves its shared-table entries, and takes its own
  // rules off the chip but leaves them in the books: a port outside any LAG with such entries or
  // rules has joined and left one.
  bool leftLag = false;
};

class Writer {
 public:
  explicit Writer(const Session& session) : session_(session) {}

  std::vector<std::string> Lines() {
    Collect();
    Setup();
    for (const PortView& port : ports_)
      BeforeJoining(port);
    for (bool live : {false, true}) {
      for (const auto& [lag, declared] : session_.Declared()) {
        if (IsKind(lag, sim::IdKind::Lag) && sim::common().HasLag(lag) == live)
          Lag(lag, declared.trunkId);
      }
    }
    for (const PortView& port : ports_)
      AfterJoining(port);
    EmptySharedEntries();
    CheckVlans();
    CheckEgressRules();
    CheckLagIngressRules();
    std::vector<std::string> all = {"# halbd-sim running configuration"};
    for (const std::string& note : apart_)
      all.push_back(kApartPrefix + note);
    all.insert(all.end(), lines_.begin(), lines_.end());
    return all;
  }

 private:
  void Line(const std::string& line) { lines_.push_back(line); }

  // A request that fails on replay as it did when the books took it; the expect line keeps a
  // --strict replay from counting it.
  void FailingLine(const std::string& line) {
    Line(line);
    Line("expect result -1");
  }

  // The books keep a TPID, frame type or block of a port that is no port of this chip although
  // the chip call failed: so does every replay of it.
  void PortLine(const PortView& port, const std::string& line) {
    if (port.chipPort)
      Line(line);
    else
      FailingLine(line);
  }

  // A port joins or leaves a LAG. The bridge port answers false for a port without a local-port
  // gport, whose lookup keys and class it cannot set: the replay expects it.
  void LagEventLine(const std::string& event, const std::string& lag, limid_t member) {
    const std::string line = event + " " + lag + " " + sim::NameOf(member);
    if (IsLocalGport(GportOf(member)))
      Line(line);
    else
      FailingLine(line);
  }

  void Apart(const std::string& table, const std::string& key, const std::string& why) {
    if (apartKeys_.insert(table + " " + key).second)
      apart_.push_back(table + " " + key + ": " + why);
  }

  void Collect() {
    for (const auto& [id, declared] : session_.Declared()) {
      if (!IsKind(id, sim::IdKind::Ethernet))
        continue;
      PortView port;
      port.id = id;
      port.name = sim::NameOf(id);
      port.gport = GportOf(id);
      if (port.gport)
        port.chipPort = ChipPortOfGport(*port.gport);
      port.kept = KeptFor(id);
      port.lag = sim::common().LagOf(id);
      port.own = OwnFlags(id);
      port.shared = SharedFlags(id);
      for (const auto& entry : port.shared)
        port.leftLag = port.leftLag || (!port.lag && port.own.count(entry.first) == 0);
      // Joining also takes the port's own ingress entries off the chip, and they are the port's
      // alone (egress entries are shared by class).
      for (const vlanxlate::VlanMapping& rule : port.kept.ingressRules)
        port.leftLag =
            port.leftLag || (!port.lag && port.chipPort && !OwnEntryOnChip(port, rule, true));
      ports_.push_back(port);
    }
  }

  void Setup() {
    if (!sim::chip().PacketPriorityCapable())
      Line("chip packet-priority off");
    if (sim::chip().ReportsModuleGports())
      Line("chip module-gports on");
    for (const PortView& port : ports_)
      Line("port " + port.name + " " + GportWords(port.gport));
    for (bcm_vlan_t vlan : sim::chip().Vlans()) {
      const bcm_vlan_control_vlan_t& control = sim::chip().Vlan(vlan).control;
      const std::string name = "vlan" + std::to_string(vlan);
      Line("vlan " + std::to_string(vlan) +
           (control.broadcast_group == 0 ? " no-broadcast-group" : ""));
      const uint32_t dhcp = control.protocol_pkt.dhcp_action;
      if (dhcp & HAL_VLAN_PROP_DHCP_TO_CPU)
        Line("AddPropertyValue " + name + " dhcp to-cpu");
      if (dhcp & HAL_VLAN_PROP_DHCP_DROP)
        Line("AddPropertyValue " + name + " dhcp drop");
      if (control.flags & BCM_VLAN_IGMP_SNOOP_DISABLE)
        Line("RemovePropertyValue " + name + " igmp-snooping");
    }
  }

  void Rules(const std::string& name, const KeptAttributes& kept) {
    for (const vlanxlate::VlanMapping& rule : kept.ingressRules)
      Line("AddVlanMappingRule " + name + " ingress " + RuleText(rule));
    // Egress rules with the same match share one chip entry, which holds the one added last: the
    // rule the entry holds goes last.
    std::vector<vlanxlate::VlanMapping> egress = kept.egressRules;
    std::stable_partition(egress.begin(), egress.end(),
                          [](const vlanxlate::VlanMapping& rule) { return !HeldByChip(rule); });
    for (const vlanxlate::VlanMapping& rule : egress)
      Line("AddVlanMappingRule " + name + " egress " + RuleText(rule));
  }

  // Whether an egress entry for the rule's match writes the rule's outer VLAN.
  static bool HeldByChip(const vlanxlate::VlanMapping& rule) {
    const uint16_t outer = rule.match.hasOuterVlan ? rule.match.outerVlanTag.vlanId : 0;
    const uint16_t inner = rule.match.hasInnerVlan ? rule.match.innerVlanTag.vlanId : 0;
    for (const auto& [key, action] : sim::chip().EgressTable()) {
      if (key.outerVlan == outer && key.innerVlan == inner &&
          action.new_outer_vlan == rule.action.outerVlanTag.vlanId)
        return true;
    }
    return false;
  }

  // The port's own rules given after the LAG events (afterJoining) or before. Joining a LAG takes a
  // port's own entries off the chip and leaves the rules in the books: of a port that is or was in
  // a LAG, the rules on the chip were given after it joined (or left), the others before, but one
  // rule per ingress entry: another off the chip with the same VLANs was given after joining too
  // (a Q-in-Q change has since taken its entry off), as before it the chip would have refused it.
  static KeptAttributes OwnRules(const PortView& port, bool afterJoining) {
    KeptAttributes rules;
    std::set<std::pair<uint16_t, uint16_t>> entriesBefore;
    for (const vlanxlate::VlanMapping& rule : port.kept.ingressRules) {
      const bool after =
          OwnIngressRuleOnChip(port, rule) || !entriesBefore.insert(MatchedVlans(rule)).second;
      if (after == afterJoining)
        rules.ingressRules.push_back(rule);
    }
    for (const vlanxlate::VlanMapping& rule : port.kept.egressRules) {
      if (OwnEntryOnChip(port, rule, false) == afterJoining)
        rules.egressRules.push_back(rule);
    }
    return rules;
  }

  static std::pair<uint16_t, uint16_t> MatchedVlans(const vlanxlate::VlanMapping& rule) {
    return {rule.match.hasOuterVlan ? rule.match.outerVlanTag.vlanId : uint16_t{0},
            rule.match.hasInnerVlan ? rule.match.innerVlanTag.vlanId : uint16_t{0}};
  }

  // Whether the chip holds an entry of the port for the rule's match: egress entries are keyed by
  // the port's class, ingress ones by the port and the VLANs.
  static bool OwnEntryOnChip(const PortView& port, const vlanxlate::VlanMapping& rule,
                             bool ingress) {
    if (!port.chipPort)
      return false;
    if (!ingress) {
      const auto [outer, inner] = MatchedVlans(rule);
      const auto portClass = static_cast<int>(sim::chip().Port(*port.chipPort).egressClass);
      return sim::chip().EgressTable().count(sim::EgressKey{portClass, outer, inner}) != 0;
    }
    return IngressEntryOnChip(false, *port.chipPort, rule);
  }

  // Whether the chip holds an ingress entry of the port or trunk for the rule's match, the outer
  // VLAN looked up as the inner one under Q-in-Q.
  static bool IngressEntryOnChip(bool trunk, int portOrTrunk, const vlanxlate::VlanMapping& rule) {
    return IngressEntryOf(trunk, portOrTrunk, rule) != nullptr;
  }

  static const bcm_vlan_action_set_t* IngressEntryOf(bool trunk, int portOrTrunk,
                                                     const vlanxlate::VlanMapping& rule) {
    const auto [outer, inner] = MatchedVlans(rule);
    for (const auto& [key, action] : sim::chip().IngressTable()) {
      const bool vlans = (key.outerVlan == outer && key.innerVlan == inner) ||
                         (key.outerVlan == 0 && key.innerVlan == outer);
      if (key.trunk == trunk && key.portOrTrunk == portOrTrunk && vlans)
        return &action;
    }
    return nullptr;
  }

  // Of a port's rules that share an ingress entry, the chip's entry is the one whose new outer
  // VLAN the entry holds.
  static bool OwnIngressRuleOnChip(const PortView& port, const vlanxlate::VlanMapping& rule) {
    const bcm_vlan_action_set_t* entry =
        port.chipPort ? IngressEntryOf(false, *port.chipPort, rule) : nullptr;
    if (entry == nullptr)
      return false;
    const auto sharing = std::count_if(port.kept.ingressRules.begin(), port.kept.ingressRules.end(),
                                       [&](const vlanxlate::VlanMapping& other) {
                                         return MatchedVlans(other) == MatchedVlans(rule);
                                       });
    return sharing == 1 || entry->new_outer_vlan == rule.action.outerVlanTag.vlanId;
  }

  // Adds with the flag the books keep, then, where the shared table holds the other flag (a
  // second add changed it there and on the chip), adds again with that one.
  void Memberships(const std::string& name, const Flags& kept, const Flags& shared) {
    for (const auto& [vlan, tagged] : kept) {
      const std::string add = "addMember vlan" + std::to_string(vlan) + " " + name + " ";
      Line(add + Tagging(tagged));
      const auto entry = shared.find(vlan);
      if (entry != shared.end() && entry->second != tagged)
        Line(add + Tagging(entry->second));
    }
  }

  // Moves out of books the VLANs that the shared table does not list for the interface.
  static Flags Unlisted(Flags& books, const Flags& shared) {
    Flags unlisted;
    for (auto entry = books.begin(); entry != books.end();) {
      if (shared.count(entry->first) == 0) {
        unlisted.insert(*entry);
        entry = books.erase(entry);
      } else {
        ++entry;
      }
    }
    return unlisted;
  }

  // Removing a LAG deleted with its member list gone from its VLANs takes it out of the shared
  // table and fails before the books change.
  void RemovalsFailing(const std::string& name, const Flags& vlans) {
    for (const auto& [vlan, tagged] : vlans)
      FailingLine("delMember vlan" + std::to_string(vlan) + " " + name);
  }

  // The shared-table entries that the books no longer hold.
  static Flags Stale(const Flags& kept, const Flags& shared) {
    Flags stale;
    for (const auto& [vlan, tagged] : shared) {
      if (kept.count(vlan) == 0)
        stale[vlan] = tagged;
    }
    return stale;
  }

  // What the port holds of its own and keeps through joining a LAG. Its Q-in-Q, frame type and
  // VLANs are set here only when no LAG event has since replaced them. Rules go before Q-in-Q, as
  // everywhere: every rule a Q-in-Q port can hold installs without it, and switching Q-in-Q on
  // then installs them again as the library did, keeping in the books those it cannot.
  void BeforeJoining(const PortView& port) {
    const KeptAttributes& kept = port.kept;
    if (kept.tpid)
      PortLine(port, "SetTpid " + port.name + " " + Tpid(*kept.tpid));
    // Of a port that is or was in a LAG, the rules joining took off the chip; the others are given
    // after the LAG events.
    const bool joined = port.lag || port.leftLag;
    Rules(port.name, joined ? OwnRules(port, false) : kept);
    if (!joined) {
      if (kept.qinq)
        PortLine(port, "SetVlanQinQ " + port.name + " enable");
      if (kept.frameType)
        PortLine(port,
                 "SetAcceptableFrameType " + port.name + " " + FrameTypeName(*kept.frameType));
    }
    if (kept.blocked)
      PortLine(port, "BlockPort " + port.name + (*kept.blocked ? " true" : " false") + " hal-stlp");
    Memberships(port.name, Stale(port.own, port.shared), {});
  }

  void Lag(limid_t lag, int trunkId) {
    const std::string name = sim::NameOf(lag);
    const KeptAttributes kept = KeptFor(lag);
    const Flags books = FlagsIn(DomainBooks().lagMembership(), lag);
    const Flags shared = SharedFlags(lag);
    const Flags stale = Stale(books, shared);
    Line("lag " + name + " " + std::to_string(trunkId));
    if (!leftPortsReplayed_)
      JoinAndLeave(name);
    if (!sim::common().HasLag(lag)) {
      DeletedLag(name, trunkId, kept, books, shared);
      return;
    }
    EarlierLag(name, trunkId, stale);
    Flags listed = books;
    const Flags unlisted = Unlisted(listed, shared);
    if (!unlisted.empty()) {
      // Kept in the books for a LAG of the same name that was deleted with its member list gone:
      // removing it from those VLANs then took it out of the shared table only.
      Memberships(name, unlisted, {});
      Line("lagDeleted " + name + " unlisted");
      RemovalsFailing(name, unlisted);
      Line("lag " + name + " " + std::to_string(trunkId));
    }
    LagAttributes(name, kept);
    MembersAndFlags(name, HalBcmCommon::GetInstance()->GetLagMembers(lag), listed, shared);
  }

  // A second add with the other flag reaches the members that the chip does not hold in the VLAN
  // (the chip refuses the others, and the add fails), and later members take the books' first
  // flag. So the members that the chip holds with the second flag joined before it was given and
  // were then removed from the VLAN directly (a caller's mistake, which the library asserts).
  void MembersAndFlags(const std::string& name, const std::set<limid_t>& members, const Flags& kept,
                       const Flags& shared) {
    std::vector<limid_t> early, late;
    for (const limid_t& member : members) {
      if (TookSecondFlags(member, kept, shared))
        early.push_back(member);
      else
        late.push_back(member);
    }
    Memberships(name, kept, {});
    for (const limid_t& member : early)
      LagEventLine("memberAdded", name, member);
    const Flags second = SecondFlags(kept, shared);
    for (const limid_t& member : early) {
      for (const auto& [vlan, tagged] : second)
        Line("delMember vlan" + std::to_string(vlan) + " " + sim::NameOf(member));
    }
    Memberships(name, second, {});
    for (const limid_t& member : late)
      LagEventLine("memberAdded", name, member);
  }

  // The shared table's flags where a second add changed them.
  static Flags SecondFlags(const Flags& kept, const Flags& shared) {
    Flags second;
    for (const auto& [vlan, tagged] : kept) {
      const auto entry = shared.find(vlan);
      if (entry != shared.end() && entry->second != tagged)
        second.insert(*entry);
    }
    return second;
  }

  static bool TookSecondFlags(limid_t member, const Flags& kept, const Flags& shared) {
    const std::optional<int> port = ChipPortOfGport(GportOf(member).value_or(-1));
    for (const auto& [vlan, tagged] : port ? SecondFlags(kept, shared) : Flags{}) {
      if (!sim::chip().HasVlan(vlan))
        continue;
      const auto& onChip = sim::chip().Vlan(vlan).members;  // port: untagged
      const auto entry = onChip.find(*port);
      if (entry != onChip.end() && entry->second != tagged)
        return true;
    }
    return false;
  }

  // Listed in the shared table by a LAG of the same name that was deleted.
  void EarlierLag(const std::string& name, int trunkId, const Flags& stale) {
    if (stale.empty())
      return;
    Memberships(name, stale, {});
    Line("lagDeleted " + name);
    Line("lag " + name + " " + std::to_string(trunkId));
  }

  void DeletedLag(const std::string& name, int trunkId, const KeptAttributes& kept,
                  const Flags& books, const Flags& shared) {
    // Deleted while its member list was gone, neither service heard of it: the bridge domain still
    // holds its VLANs, the bridge port values that no request reaches a deleted LAG with.
    if (!books.empty() || kept.tpid || kept.nativeVlan || kept.priority || kept.qinq) {
      EarlierLag(name, trunkId, Stale(books, shared));
      LagAttributes(name, kept);
      Memberships(name, books, shared);
      Line("lagDeleted " + name + " unlisted");
      Flags listed = books;
      RemovalsFailing(name, Unlisted(listed, shared));
      return;
    }
    // The shared table still lists it; what the bridge port keeps of it, frame types and rules,
    // was given after the deletion (or, of rules, kept when the chip refused to delete them).
    Memberships(name, shared, {});
    Line("lagDeleted " + name);
    LagAttributes(name, kept);
  }

  // The ports that joined a LAG and left it again join this one and leave it: any LAG gives the
  // same leaving, as long as it holds nothing yet.
  void JoinAndLeave(const std::string& lag) {
    for (const PortView& port : ports_) {
      if (port.leftLag) {
        LagEventLine("memberAdded", lag, port.id);
        LagEventLine("memberDeleted", lag, port.id);
      }
    }
    leftPortsReplayed_ = true;
  }

  void LagAttributes(const std::string& name, const KeptAttributes& kept) {
    if (kept.tpid)
      Line("SetTpid " + name + " " + Tpid(*kept.tpid));
    Rules(name, kept);
    if (kept.qinq)
      Line("SetVlanQinQ " + name + " enable");
    if (kept.nativeVlan)
      Line("SetNativeVlan " + name + " " + std::to_string(*kept.nativeVlan));
    if (kept.priority)
      Line("SetPrio4Untagged " + name + " " + std::to_string(*kept.priority));
    if (kept.frameType)
      Line("SetAcceptableFrameType " + name + " " + FrameTypeName(*kept.frameType));
  }

  // What the port was given after the LAG events: its own VLANs, and the chip values that differ
  // from what the last LAG event (or a fresh chip) left.
  void AfterJoining(const PortView& port) {
    Memberships(port.name, port.own, port.shared);
    const KeptAttributes& kept = port.kept;
    const sim::PortState fresh;
    const sim::PortState* chip = port.chipPort ? &sim::chip().Port(*port.chipPort) : nullptr;
    if (port.lag || port.leftLag)
      Rules(port.name, OwnRules(port, true));
    if (port.lag) {
      const LagGives given = GivenBy(*port.lag);
      if (kept.qinq)
        PortLine(port, "SetVlanQinQ " + port.name + " enable");
      else if (given.qinq && chip && chip->dtagMode == BCM_PORT_DTAG_MODE_NONE)
        PortLine(port, "SetVlanQinQ " + port.name + " disable");
      const long long frameType = kept.frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES);
      if (frameType != given.frameType)
        PortLine(port, "SetAcceptableFrameType " + port.name + " " + FrameTypeName(frameType));
      if (chip)
        ChipValues(port, *chip, {given.nativeVlan, given.priority, given.tpid});
    } else if (port.leftLag) {
      if (kept.qinq)
        PortLine(port, "SetVlanQinQ " + port.name + " enable");
      if (kept.frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES) != HAL_BP_ADMIT_ALL_FRAMES)
        PortLine(port,
                 "SetAcceptableFrameType " + port.name + " " + FrameTypeName(*kept.frameType));
      if (chip)
        ChipValues(port, *chip, {kLeftLagNativeVlan, 0, kDefaultTpid});
    } else if (chip) {
      ChipValues(port, *chip, {fresh.untaggedVlan, 0, kept.tpid.value_or(kDefaultTpid)});
    }
    if (chip && QinQOn(*chip) != ReplayedQinQ(port, *chip)) {
      Apart("ports", port.name, "the chip's Q-in-Q mode is other than the books ask for");
    }
    if (chip && chip->discardMode != DiscardFor(kept)) {
      Apart("ports", port.name,
            "the chip discards other frames than the books' frame type and block ask for");
    }
    if (chip && chip->innerTpid != fresh.innerTpid)
      Line("SetInnerTpid " + port.name + " " + Tpid(chip->innerTpid));
    if (chip && !port.lag && chip->egressClass != static_cast<uint32_t>(*port.chipPort)) {
      const std::string why =
          "the chip keeps for " + port.name + " the egress class of a LAG it is no member of";
      Apart("ports", port.name, why);
      // The entries of that class list the port; the replay puts under the port's own class the
      // rules that it gives the port after any LAG events (joining takes the others off).
      if (HasEgressEntries(chip->egressClass))
        Apart("egress", std::to_string(chip->egressClass), why);
      const bool joined = port.lag || port.leftLag;
      if (!(joined ? OwnRules(port, true) : kept).egressRules.empty())
        Apart("egress", std::to_string(*port.chipPort), why);
    }
  }

  static bool QinQOn(const sim::PortState& chip) {
    return chip.dtagMode != BCM_PORT_DTAG_MODE_NONE;
  }

  // Q-in-Q as the replay leaves it: the port's own, or a member's from its LAG unless the member
  // was switched off on its own (see AfterJoining).
  static bool ReplayedQinQ(const PortView& port, const sim::PortState& chip) {
    if (port.kept.qinq || !port.lag)
      return port.kept.qinq;
    return GivenBy(*port.lag).qinq && QinQOn(chip);
  }

  static bool HasEgressEntries(uint32_t portClass) {
    for (const auto& entry : sim::chip().EgressTable()) {
      if (entry.first.portClass == static_cast<int>(portClass))
        return true;
    }
    return false;
  }

  struct Expected {
    unsigned nativeVlan;
    unsigned priority;
    unsigned tpid;
  };

  // The port's chip values where they differ from what the sequence so far leaves. Native VLAN
  // and priority are the chip's alone for a port; the TPID is the books' too, so a chip TPID
  // other than the one the port keeps cannot be asked for without writing a false entry.
  void ChipValues(const PortView& port, const sim::PortState& chip, const Expected& expected) {
    if (chip.untaggedVlan != expected.nativeVlan)
      Line("SetNativeVlan " + port.name + " " + std::to_string(chip.untaggedVlan));
    if (static_cast<unsigned>(chip.untaggedPriority) != expected.priority)
      Line("SetPrio4Untagged " + port.name + " " + std::to_string(chip.untaggedPriority));
    if (chip.outerTpid == expected.tpid)
      return;
    if (port.kept.tpid == chip.outerTpid) {
      Line("SetTpid " + port.name + " " + Tpid(chip.outerTpid));
      return;
    }
    Apart("ports", port.name,
          "the chip holds TPID " + Tpid(chip.outerTpid) + " where the books give " +
              Tpid(expected.tpid));
  }

  // Removing the last member of a VLAN leaves the VLAN's entry in the shared table, empty.
  // Removing a port that is no member makes one too: the entry is made before the port is looked
  // at, and nothing else changes; the removal fails, at the port table or at the chip.
  void EmptySharedEntries() {
    for (const auto& [vlan, members] : sim::common().VlanMembers()) {
      if (!members.empty())
        continue;
      const PortView* outsider = Outsider(vlan);
      if (outsider == nullptr) {
        Apart("member-table", std::to_string(vlan), "an empty entry no port can make");
        continue;
      }
      FailingLine("delMember vlan" + std::to_string(vlan) + " " + outsider->name);
    }
  }

  // A port outside the VLAN in the books and on the chip, and in no LAG; one without a gport
  // first, whose removal reaches no chip.
  const PortView* Outsider(unsigned vlan) const {
    const PortView* found = nullptr;
    for (const PortView& port : ports_) {
      const bool onChip =
          port.chipPort && sim::chip().HasVlan(static_cast<bcm_vlan_t>(vlan)) &&
          sim::chip().Vlan(static_cast<bcm_vlan_t>(vlan)).members.count(*port.chipPort) != 0;
      if (port.lag || port.own.count(vlan) != 0 || onChip)
        continue;
      if (!port.gport)
        return &port;
      if (found == nullptr)
        found = &port;
    }
    return found;
  }

  // The chip's VLAN membership against what the books make of it.
  void CheckVlans() {
    for (const PortView& port : ports_) {
      if (!IsLocalGport(port.gport) || !port.chipPort)
        continue;
      std::set<unsigned> books;
      for (const auto& entry : port.own)
        books.insert(entry.first);
      if (port.lag) {
        for (const auto& entry : FlagsIn(DomainBooks().lagMembership(), *port.lag))
          books.insert(entry.first);
      }
      for (bcm_vlan_t vlan : sim::chip().Vlans()) {
        const bool onChip = sim::chip().Vlan(vlan).members.count(*port.chipPort) != 0;
        if (onChip == (books.count(vlan) != 0))
          continue;
        const std::string where = port.name + " in VLAN " + std::to_string(vlan);
        const std::string why = onChip ? "the chip has " + where + ", the books do not"
                                       : "the books have " + where + ", the chip does not";
        Apart("port-vlans", port.name, why);
        Apart("vlans", std::to_string(vlan), why);
      }
    }
    for (bcm_vlan_t vlan : sim::chip().Vlans()) {
      const sim::VlanState& state = sim::chip().Vlan(vlan);
      if (state.control.broadcast_group == 0)
        continue;
      std::set<int> inGroup;
      for (const auto& member : sim::chip().GroupMembers(state.control.broadcast_group))
        inGroup.insert(ChipPortOfGport(member.first).value_or(-1));
      std::set<int> members;
      for (const auto& member : state.members)
        members.insert(member.first);
      if (inGroup != members) {
        Apart("vlans", std::to_string(vlan),
              "the broadcast group and the VLAN's members differ (a chip call refused part-way)");
      }
    }
  }

  // The egress class whose entries an interface's egress rules are: a port's own, a LAG's that of
  // its members; none for a LAG without members or a port off the chip.
  std::optional<uint32_t> EgressClassOf(limid_t id) const {
    std::optional<int> port = ChipPortOfGport(GportOf(id).value_or(-1));
    if (IsKind(id, sim::IdKind::Lag)) {
      // Only a member with a local-port gport was given the LAG's class.
      port = std::nullopt;
      for (const limid_t& member : session_.LagMembers(id)) {
        if (IsLocalGport(GportOf(member)))
          port = ChipPortOfGport(*GportOf(member));
      }
    }
    if (!port)
      return std::nullopt;
    return sim::chip().Port(*port).egressClass;
  }

  bool KeepsLagClass(limid_t id) const {
    for (const PortView& port : ports_) {
      if (port.id == id && port.chipPort && !port.lag)
        return sim::chip().Port(*port.chipPort).egressClass !=
               static_cast<uint32_t>(*port.chipPort);
    }
    return false;
  }

  bool HasBeenInLag(limid_t id) const {
    for (const PortView& port : ports_) {
      if (port.id == id)
        return port.lag || port.leftLag;
    }
    return false;
  }

  // Egress entries are keyed by class and VLANs alone: rules of two interfaces that share a class,
  // or two rules with the same match, take one entry, and deleting one takes the entry of both.
  // The books then keep a rule the chip no longer holds, or the chip an entry no rule explains.
  void CheckEgressRules() {
    std::set<sim::EgressKey> explained;
    // VLANs of rules whose class is not known here (a LAG without members has one of its own).
    std::set<std::pair<uint16_t, uint16_t>> explainedInAnyClass;
    for (const auto& [id, declared] : session_.Declared()) {
      const std::optional<uint32_t> portClass = EgressClassOf(id);
      for (const vlanxlate::VlanMapping& rule : KeptFor(id).egressRules) {
        const uint16_t outer = rule.match.hasOuterVlan ? rule.match.outerVlanTag.vlanId : 0;
        const uint16_t inner = rule.match.hasInnerVlan ? rule.match.innerVlanTag.vlanId : 0;
        if (!portClass) {
          explainedInAnyClass.insert({outer, inner});
          continue;
        }
        const sim::EgressKey key{static_cast<int>(*portClass), outer, inner};
        explained.insert(key);
        // Joining a LAG took the port's own entries off the chip; the replay does so too. A port
        // that keeps a LAG's class has its rules under its own class in the replay (see above).
        if (sim::chip().EgressTable().count(key) == 0 && !HasBeenInLag(id) && !KeepsLagClass(id)) {
          Apart("egress", std::to_string(key.portClass),
                sim::NameOf(id) + " keeps an egress rule the chip no longer holds");
        }
      }
    }
    for (const auto& entry : sim::chip().EgressTable()) {
      const sim::EgressKey& key = entry.first;
      if (explained.count(key) == 0 &&
          explainedInAnyClass.count({key.outerVlan, key.innerVlan}) == 0) {
        Apart("egress", std::to_string(key.portClass),
              "the chip holds an egress entry that no rule in the books explains");
      }
    }
  }

  // A LAG's ingress rule that its Q-in-Q layout took off the chip stays in the books when deleting
  // the LAG cannot delete its entry, and the deletion forgets the layout: the replay, without
  // Q-in-Q, puts the rule on the chip.
  void CheckLagIngressRules() {
    for (const auto& [lag, declared] : session_.Declared()) {
      if (!IsKind(lag, sim::IdKind::Lag))
        continue;
      const KeptAttributes kept = KeptFor(lag);
      if (kept.qinq)  // the replay's Q-in-Q takes the same rules off the chip
        continue;
      for (const vlanxlate::VlanMapping& rule : kept.ingressRules) {
        if (!IngressEntryOnChip(true, declared.trunkId, rule)) {
          Apart("ingress", sim::NameOf(lag),
                sim::NameOf(lag) + " keeps an ingress rule the chip does not hold");
        }
      }
    }
  }

  const Session& session_;
  std::vector<PortView> ports_;
  std::vector<std::string> lines_;
  std::vector<std::string> apart_;
  std::set<std::string> apartKeys_;
  bool leftPortsReplayed_ = false;
};

Action PrepareShow(const Session&, Arguments& args) {
  const bool json = args.TakeKeyword({"--json"}).has_value();
  args.ExpectEnd();
  return [json](Session& s) {
    if (!json && !s.Json()) {
      for (const std::string& line : RunningConfig(s))
        s.Print(line);
      return;
    }
    Table table({"line"});
    for (const std::string& line : RunningConfig(s))
      table.AddRow({line});
    PrintTable(s, "running-config", table, true);
  };
}

// The directory a file is written to.
std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

Action PrepareSave(const Session&, Arguments& args) {
  const std::string path = args.Take("file");
  args.ExpectEnd();
  // Refused before anything runs, so that a scenario stops at a file it could never write.
  const bool exists = access(path.c_str(), F_OK) == 0;
  if (access(exists ? path.c_str() : DirectoryOf(path).c_str(), W_OK) != 0)
    throw ScenarioError("cannot write " + path + ": " +
                        std::error_code(errno, std::generic_category()).message());
  return [path](Session& s) {
    const std::vector<std::string> lines = RunningConfig(s);
    std::ofstream file(path, std::ios::trunc);
    for (const std::string& line : lines)
      file << line << '\n';
    file.close();
    if (!file)
      throw ScenarioError("cannot write " + path + ": writing failed");
    s.Emit(Record("saved", Role::Result)
               .Text("saved ")
               .Add("lines", Json(lines.size()), std::to_string(lines.size()))
               .Text(" lines to ")
               .Add("file", path));
  };
}

}  // namespace

std::vector<std::string> RunningConfig(const Session& session) {
  return Writer(session).Lines();
}

std::vector<Command> ConfigCommands() {
  return {
      {"show running-config", "[--json]",
       "the scenario lines that rebuild the library's books and the chip on a fresh platform",
       PrepareShow},
      {"save", "<file>", "write the running configuration to a file that source or a run replays",
       PrepareSave},
  };
}

}  // namespace halbdsim
