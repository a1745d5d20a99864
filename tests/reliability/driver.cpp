// What an operation and an injected fault must lead to, and what the books and the chip keep in
// step whatever the chip refuses. What the library lets drift apart on purpose is learnt from the
// operations run so far: nothing is rolled back, a port that joins a LAG keeps its own rules in
// the store but not on the chip, the books keep a LAG's first tagged flag, and removing all
// members of a VLAN touches the chip only.
#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"
#include "hal_platform.h"
#include "sim/sim_platform.h"
#include "universe.h"

namespace reliability {
namespace {

using vlanxlate::VlanMapping;
using Steps = std::map<std::string, std::set<uint8_t>>;

// Steps whose results the operations ignore, logging and succeeding: the lookup keys follow a
// port's tag layout, stored ingress rules follow a Q-in-Q change, a joining port's own rules leave
// the chip and a deleted LAG's rules are deleted, each as far as the chip lets them.
const Steps kIgnoredSteps = {
    {"bcm_vlan_control_port_set", {kSetQinQ, kJoinLag, kLeaveLag, kDeleteLag}},
    {"bcm_vlan_translate_action_delete", {kSetQinQ, kJoinLag, kDeleteLag}},
    {"bcm_vlan_translate_action_add", {kSetQinQ}},
    {"bcm_vlan_translate_egress_action_delete", {kJoinLag, kDeleteLag}},
    {"bcm_port_class_get", {kJoinLag}}};
// Calls for which "not found" is an answer, with no failure and no line: a port that is no
// member, a VLAN without members, no earlier egress entry to replace.
const Steps kNotFoundAnswers = {{"bcm_vlan_gport_get", {kIsMember}},
                                {"bcm_vlan_gport_get_all", {kGetMembers}},
                                {"bcm_vlan_translate_egress_action_delete", {kAddRule}}};

bool Listed(const Steps& steps, const std::string& function, uint8_t kind) {
  const auto kinds = steps.find(function);
  return kinds != steps.end() && kinds->second.count(kind);
}

// An unknown LAG given to SetTpid, SetAcceptableFrameType or addMember: they let the
// std::out_of_range of the member lookup reach their caller.
bool PassesExceptionToCaller(uint8_t kind, const Op& op) {
  const limid_t id = InterfaceId(kind == kAddMember ? op.b : op.a);
  const bool unguarded = kind == kSetTpid || kind == kSetFrameType || kind == kAddMember;
  return unguarded && halbd::IsLag(id) && !sim::common().HasLag(id);
}

std::string Name(limid_t id) {
  return sim::NameOf(id);
}
std::string InVlan(limid_t id, unsigned short vlan) {
  return Name(id) + " in vlan" + std::to_string(vlan);
}
std::string KeyText(int kind, uint16_t outer, uint16_t inner) {
  return std::to_string(kind) + " " + std::to_string(outer) + "/" + std::to_string(inner);
}

uint16_t OuterOf(const VlanMapping& rule) {
  return rule.match.hasOuterVlan ? rule.match.outerVlanTag.vlanId : 0;
}
uint16_t InnerOf(const VlanMapping& rule) {
  return rule.match.hasInnerVlan ? rule.match.innerVlanTag.vlanId : 0;
}

// The trunk id of a LAG, or -1 for a LAG the common library does not know.
int TrunkOf(limid_t lag) {
  try {
    return HalBcmCommon::GetInstance()->LookupGport(lag).port & BCM_GPORT_TRUNK_ID_MASK;
  } catch (const std::out_of_range&) {
    return -1;
  }
}

// The port or trunk number that keys an interface's ingress entries, -1 for none.
int ChipOwner(limid_t id) {
  return halbd::IsLag(id) ? TrunkOf(id) : LocalPortOf(id);
}

// Where the chip holds an ingress rule of an interface: key type and VLANs follow the tag layout.
// On a Q-in-Q interface the customer's tag is the inner one, and only single-tag matches have a
// key there.
sim::IngressKey IngressKeyOf(limid_t id, const VlanMapping& rule, bool qinq) {
  const bool outer = rule.match.hasOuterVlan;
  const bool inner = rule.match.hasInnerVlan;
  if (qinq)
    return {halbd::IsLag(id), ChipOwner(id), outer && !inner ? 9 : 0, 0, OuterOf(rule)};
  const int type = outer ? (inner ? 7 : 8) : (inner ? 9 : 0);
  return {halbd::IsLag(id), ChipOwner(id), type, OuterOf(rule), InnerOf(rule)};
}

// The egress class whose entries serve an interface, or -1 when it has none on this chip. LAG
// classes count down from 127 on a chip with packet-priority actions (the universe's chip is one).
int EgressClassOf(limid_t id) {
  if (halbd::IsLag(id))
    return TrunkOf(id) < 0 ? -1 : 127 - TrunkOf(id);
  const int port = LocalPortOf(id);
  return port > 0 ? static_cast<int>(sim::chip().Port(port).egressClass) : -1;
}

const std::set<VlanMapping>& RulesOf(const std::map<limid_t, std::set<VlanMapping>>& store,
                                     limid_t id) {
  static const std::set<VlanMapping> none;
  const auto rules = store.find(id);
  return rules == store.end() ? none : rules->second;
}

// The chip's untagged flag of a port that is in the VLAN and in its replication group, if any.
std::optional<bool> UntaggedOnChip(unsigned short vlan, int port) {
  if (!sim::chip().HasVlan(vlan) || !sim::chip().Vlan(vlan).members.count(port))
    return std::nullopt;
  const bcm_multicast_t group = sim::chip().Vlan(vlan).control.broadcast_group;
  if (group != 0 &&
      !sim::chip().GroupMembers(group).count({sim::LocalGport(port), sim::Chip::EncapOf(port)}))
    return std::nullopt;
  return sim::chip().Vlan(vlan).members.at(port);
}

// The tagged flag that the shared VLAN member table lists for an interface, if it lists it.
std::optional<bool> SharedFlag(unsigned short vlan, limid_t id) {
  const VlanMemberTable& shared = sim::common().VlanMembers();
  const auto entry = shared.find(vlan);
  if (entry == shared.end() || !entry->second.count(id))
    return std::nullopt;
  return entry->second.at(id);
}

// What the library lets drift apart on purpose, learnt from the operations run so far.
struct Drift {
  bool exact = true;  // nothing failed: each VLAN's chip members are exactly the books'
  // Stored rules that may be off the chip: ports that joined a LAG, interfaces whose rules failed
  // to follow a Q-in-Q change, deleted LAGs (their Q-in-Q state is forgotten).
  std::set<limid_t> rulesOffChip;
  std::set<limid_t> staleEntries;  // rules that failed to leave their old key layout
  std::set<limid_t> joinedLag;
  std::set<limid_t> untracked;      // ports added or removed directly while in a LAG
  std::set<limid_t> membersUnsure;  // LAG members whose joining failed part-way
  std::set<limid_t> lagsDeleted;    // the shared VLAN member table keeps listing them
  // LAG memberships added again: the chip has the latest tagged flag, the books the first.
  std::set<std::pair<limid_t, limid_t>> lagFlagsRewritten;
  std::set<unsigned short> vlansCleared;  // emptied on the chip behind the books' back
  // An egress entry is keyed by class and VLANs and an install replaces what is there, so an
  // entry used by two rules (or two interfaces of one class) belongs to whichever wrote last.
  std::map<sim::EgressKey, std::set<std::pair<limid_t, VlanMapping>>> egressUsers;
};

class Driver {
 public:
  explicit Driver(const std::optional<Injection>& planned) {
    Reset();
    if (planned) {
      sim::chip().FailNth(planned->function, planned->nth, planned->rc);
      fault_ = Fault{true, planned->function, planned->rc, planned->callIndex};
    }
  }

  RunResult Run(const std::vector<Op>& ops) {
    for (const Op& op : ops)
      Step(op);
    return result_;
  }

 private:
  // A planned fault knows its call; one armed by a kFault operation hits the next operation's
  // first call of its function.
  struct Fault {
    bool active = false;
    std::string function;
    int rc = 0;
    std::optional<size_t> callIndex;
  };

  void Expect(bool ok, const std::string& what) {
    ++result_.checks;
    if (!ok)
      result_.violations.push_back(context_ + what);
  }

  void Step(const Op& op) {
    const uint8_t kind = op.kind % kOpKindCount;
    context_ = "step " + std::to_string(++step_) + " (" + Describe(op) + "): ";
    if (kind == kFault) {
      fault_ = Fault{true, SdkFunction(op.a), kFaultCodes[op.b % std::size(kFaultCodes)], {}};
      sim::chip().FailNext(fault_.function, 1, fault_.rc);
      return;
    }
    const size_t firstCall = sim::chip().Trace().size();
    const size_t firstRecord = sim::halLog().Records().size();
    const size_t assertions = sim::Assertions().size();
    const bool passesException = PassesExceptionToCaller(kind, op);
    LearnBefore(kind, op);
    const Outcome outcome = Apply(op);
    const std::vector<sim::LogRecord> log(sim::halLog().Records().begin() + firstRecord,
                                          sim::halLog().Records().end());
    const bool succeeded = !outcome.skipped && !outcome.failed && !outcome.threw;
    result_.allSucceeded = result_.allSucceeded && succeeded;

    Expect(outcome.threw == passesException,
           outcome.threw ? "exception escaped: " + outcome.exception
                         : "the unknown LAG's exception did not reach the caller");
    if (outcome.threw)
      Expect(outcome.outOfRange, "an exception other than std::out_of_range escaped");
    if (outcome.failed)
      Expect(!log.empty(), "failed without a log line");
    const bool hit = HitSince(firstCall);
    if (hit) {
      result_.faultHit = true;
      drift_.exact = false;
      CheckFault(kind, outcome, log);
    }
    if (fault_.active && !fault_.callIndex) {
      sim::chip().ClearFaults();  // an armed fault lasts for one operation
      fault_ = Fault{};
    }
    if (succeeded && !hit)
      CheckLagEventEffects(kind, op);
    if (!outcome.skipped)
      LearnAfter(kind, op, outcome, log, sim::Assertions().size() > assertions);
    CheckRules();
    CheckMemberships();
  }

  bool HitSince(size_t firstCall) const {
    const auto& trace = sim::chip().Trace();
    if (!fault_.active || fault_.callIndex)
      return fault_.active && *fault_.callIndex >= firstCall && *fault_.callIndex < trace.size();
    return std::any_of(trace.begin() + firstCall, trace.end(),
                       [&](const sim::SdkCall& call) { return call.function == fault_.function; });
  }

  // The faulty call is reported with the SDK's text, through error() with the very code where the
  // message carries one; the operation fails unless it ignores that step by design. Without a
  // clean baseline (a fault armed by the fuzzer) an operation may fail for reasons of its own, so
  // only the log and a required failure are checked there.
  void CheckFault(uint8_t kind, const Outcome& outcome, const std::vector<sim::LogRecord>& log) {
    const int rc = fault_.rc;
    const bool strict = fault_.callIndex.has_value();
    const std::string call = fault_.function + " = " + std::to_string(rc);
    if (rc == BCM_E_NOT_FOUND && Listed(kNotFoundAnswers, fault_.function, kind)) {
      if (strict)
        Expect(!outcome.failed && log.empty(), call + " failed the operation or was logged");
      return;
    }
    const std::string text = bcm_errmsg(rc);
    Expect(std::any_of(log.begin(), log.end(),
                       [&](const sim::LogRecord& r) {
                         return r.text.find(text) != std::string::npos &&
                                (!r.isError || r.levelOrCode == rc);
                       }),
           call + " not logged with the SDK's text");
    if (!Listed(kIgnoredSteps, fault_.function, kind))
      Expect(outcome.failed, call + " not reported as a failure");
    else if (strict)
      Expect(!outcome.failed, call + " failed an operation that ignores that step");
  }

  // What a LAG event that went through without a fault leaves: a joining port's own ingress
  // rules are off the chip (they stay in the store), a deleted LAG's rules are gone, except an
  // egress rule whose entry another rule rewrote (its deletion finds nothing).
  void CheckLagEventEffects(uint8_t kind, const Op& op) {
    const limid_t member = InterfaceId(op.b);
    for (const auto& [key, action] : sim::chip().IngressTable()) {
      if (kind == kJoinLag && !drift_.staleEntries.count(member))
        Expect(key.trunk || key.portOrTrunk != LocalPortOf(member),
               Name(member) + " joined its LAG with an ingress entry on chip");
    }
    HalBcmBridgePortInspector books(Port());
    const limid_t lag = LagId(op.a);
    if (kind != kDeleteLag || drift_.rulesOffChip.count(lag))
      return;
    Expect(RulesOf(books.ingressVlanMappings(), lag).empty(),
           Name(lag) + " deleted, ingress rules kept");
    for (const VlanMapping& rule : RulesOf(books.egressVlanMappings(), lag)) {
      const auto users =
          drift_.egressUsers.find({EgressClassOf(lag), OuterOf(rule), InnerOf(rule)});
      Expect(users != drift_.egressUsers.end() && users->second.size() > 1,
             Name(lag) + " deleted, an egress rule kept");
    }
  }

  void NoteEgressUse(limid_t id, const VlanMapping& rule) {
    const int portClass = EgressClassOf(id);
    if (portClass >= 0)
      drift_.egressUsers[{portClass, OuterOf(rule), InnerOf(rule)}].emplace(id, rule);
  }

  void LearnBefore(uint8_t kind, const Op& op) {
    const limid_t member = InterfaceId(op.b);
    const limid_t bridgeDomain = sim::BridgeDomain(VlanNumber(op.a));
    HalBcmBridgeDomainInspector domain(Domain());
    const auto& lags = domain.lagMembership();
    if ((kind == kAddRule || kind == kDeleteRule) && op.b % 3 == kEgress)
      NoteEgressUse(InterfaceId(op.a), RuleAt(op.c));
    if (kind == kAddMember && lags.count(member) && lags.at(member).count(bridgeDomain))
      drift_.lagFlagsRewritten.emplace(member, bridgeDomain);
    HalBcmBridgePortInspector books(Port());
    for (const VlanMapping& rule : RulesOf(books.egressVlanMappings(), member)) {
      if (kind == kJoinLag)
        NoteEgressUse(member, rule);
    }
  }

  void LearnAfter(uint8_t kind, const Op& op, const Outcome& outcome,
                  const std::vector<sim::LogRecord>& log, bool asserted) {
    const limid_t member = InterfaceId(op.b);
    const bool membership = kind == kAddMember || kind == kDelMember || kind == kDelAllMembers ||
                            kind == kJoinLag || kind == kLeaveLag || kind == kDeleteLag;
    if (membership && (outcome.failed || outcome.threw))
      drift_.exact = false;
    if ((kind == kAddMember || kind == kDelMember) &&
        (asserted || (!halbd::IsLag(member) && LagOf(member) != nullptr))) {
      drift_.untracked.insert(member);
      drift_.exact = false;
    }
    if (kind == kJoinLag) {
      drift_.joinedLag.insert(member);
      drift_.rulesOffChip.insert(member);
      if (outcome.failed)
        drift_.membersUnsure.insert(member);
    }
    for (const sim::LogRecord& record : kind == kSetQinQ ? log : std::vector<sim::LogRecord>{}) {
      if (record.text.rfind("InstallIngressVlanMappingRule() failed", 0) == 0)
        drift_.rulesOffChip.insert(InterfaceId(op.a));
      if (record.text.rfind("RemoveIngressVlanMappingRule() failed", 0) == 0)
        drift_.staleEntries.insert(InterfaceId(op.a));
    }
    if (kind == kDelAllMembers)
      drift_.vlansCleared.insert(VlanNumber(op.a));
    if (kind == kDeleteLag) {
      drift_.lagsDeleted.insert(LagId(op.a));
      drift_.rulesOffChip.insert(LagId(op.a));
    }
  }

  // The rule store reads a port's tag layout from qinqPorts, so that must be the chip's. A rule
  // is in the store only while the chip holds it, checked both ways: at ingress under the key
  // layout of the interface's current Q-in-Q state, at egress under its class unless several
  // users wrote the entry.
  void CheckRules() {
    HalBcmBridgePortInspector books(Port());
    for (uint8_t i = P1; i <= kUnknownLag; ++i) {
      const limid_t id = InterfaceId(i);
      const bool qinq = books.qinqPorts().count(id) != 0;
      if (LocalPortOf(id) > 0 && !drift_.joinedLag.count(id)) {
        const int dtag = sim::chip().Port(LocalPortOf(id)).dtagMode;
        Expect((dtag == BCM_PORT_DTAG_MODE_EXTERNAL) == qinq, Name(id) + ": Q-in-Q differs");
      }
      if (drift_.rulesOffChip.count(id))
        continue;
      const std::string of = " of " + Name(id);
      std::set<sim::IngressKey> ingress;
      for (const VlanMapping& rule : RulesOf(books.ingressVlanMappings(), id))
        ingress.insert(IngressKeyOf(id, rule, qinq));
      for (const sim::IngressKey& k : ingress) {
        Expect(
            sim::chip().IngressTable().count(k),
            "ingress rule " + KeyText(k.keyType, k.outerVlan, k.innerVlan) + of + " not on chip");
      }
      for (const auto& [k, action] : sim::chip().IngressTable()) {
        if (k.trunk == halbd::IsLag(id) && k.portOrTrunk == ChipOwner(id) &&
            !drift_.staleEntries.count(id))
          Expect(ingress.count(k), "ingress entry " + KeyText(k.keyType, k.outerVlan, k.innerVlan) +
                                       of + " not in the store");
      }
      const int portClass = EgressClassOf(id);
      std::set<sim::EgressKey> egress;
      for (const VlanMapping& rule : RulesOf(books.egressVlanMappings(), id))
        egress.insert({portClass, OuterOf(rule), InnerOf(rule)});
      for (const sim::EgressKey& k : egress) {
        const auto users = drift_.egressUsers.find(k);
        if (users == drift_.egressUsers.end() || users->second.size() == 1)
          Expect(sim::chip().EgressTable().count(k),
                 "egress rule " + KeyText(k.portClass, k.outerVlan, k.innerVlan) + of +
                     " not on chip");
      }
      for (const auto& [k, users] : drift_.egressUsers) {
        if (users.size() == 1 && users.begin()->first == id && k.portClass == portClass &&
            sim::chip().EgressTable().count(k))
          Expect(egress.count(k), "egress entry " + KeyText(k.portClass, k.outerVlan, k.innerVlan) +
                                      of + " not in the store");
      }
    }
  }

  // A port's own VLANs in the books, and every member that a LAG lists in each of the LAG's
  // VLANs, are on the chip (VLAN and replication group) with the shared VLAN member table's
  // tagged flag and the LAG's; the books and the shared table list the same memberships, except
  // ports that were in a LAG (joining empties their books, not the table) and deleted LAGs (the
  // table keeps them). While nothing has failed, each VLAN's chip members and replication group
  // are exactly the ports that the books put there.
  void CheckMemberships() {
    HalBcmBridgeDomainInspector books(Domain());
    std::map<unsigned short, std::set<int>> expected;
    const auto onChip = [&](int port, unsigned short vlan, std::optional<bool> tagged,
                            const std::string& what) {
      expected[vlan].insert(port);
      const std::optional<bool> untagged = UntaggedOnChip(vlan, port);
      Expect(untagged.has_value(), what + " not on chip");
      if (tagged && untagged)
        Expect(*untagged == !*tagged, what + ": tagged flag differs on chip");
    };
    for (const auto& [port, info] : books.intfInfo()) {
      if (info.inLAG || drift_.untracked.count(port) || LocalPortOf(port) < 0)
        continue;
      for (const auto& [bridgeDomain, tagged] : info.bridgeDomains) {
        const unsigned short vlan = halbd::VlanOfBridgeDomain(bridgeDomain);
        if (drift_.vlansCleared.count(vlan))
          continue;
        Expect(SharedFlag(vlan, port).has_value(), InVlan(port, vlan) + " not in the shared table");
        onChip(LocalPortOf(port), vlan, SharedFlag(vlan, port), InVlan(port, vlan));
      }
    }
    for (const auto& [lag, bridgeDomains] : books.lagMembership()) {
      for (const auto& [bridgeDomain, tagged] : bridgeDomains) {
        const unsigned short vlan = halbd::VlanOfBridgeDomain(bridgeDomain);
        Expect(SharedFlag(vlan, lag).has_value(), InVlan(lag, vlan) + " not in the shared table");
        if (!sim::common().HasLag(lag) || drift_.vlansCleared.count(vlan))
          continue;
        for (const limid_t& member : HalBcmCommon::GetInstance()->GetLagMembers(lag)) {
          if (LocalPortOf(member) < 0 || drift_.membersUnsure.count(member) ||
              drift_.untracked.count(member))
            continue;
          const bool rewritten = drift_.lagFlagsRewritten.count({lag, bridgeDomain});
          onChip(LocalPortOf(member), vlan, rewritten ? std::nullopt : std::optional<bool>(tagged),
                 Name(member) + " of " + InVlan(lag, vlan));
        }
      }
    }
    for (const auto& [vlan, members] : sim::common().VlanMembers()) {
      const limid_t bridgeDomain = sim::BridgeDomain(vlan);
      for (const auto& [id, tagged] : members) {
        if (drift_.lagsDeleted.count(id) || drift_.joinedLag.count(id) ||
            drift_.untracked.count(id))
          continue;
        const auto lag = books.lagMembership().find(id);
        const auto port = books.intfInfo().find(id);
        Expect(
            halbd::IsLag(id)
                ? lag != books.lagMembership().end() && lag->second.count(bridgeDomain)
                : port != books.intfInfo().end() && port->second.bridgeDomains.count(bridgeDomain),
            InVlan(id, vlan) + " in the shared table but not in the books");
      }
    }
    for (const uint8_t index : {V10, V20, V30}) {
      const unsigned short vlan = VlanNumber(index);
      if (!drift_.exact || drift_.vlansCleared.count(vlan))
        continue;
      std::set<int> members;
      std::set<std::pair<bcm_gport_t, bcm_if_t>> group;
      for (const auto& [port, untagged] : sim::chip().Vlan(vlan).members) {
        members.insert(port);
        group.emplace(sim::LocalGport(port), sim::Chip::EncapOf(port));
      }
      const std::string name = "vlan" + std::to_string(vlan);
      Expect(members == expected[vlan], name + ": chip members differ from the books");
      const bcm_multicast_t broadcast = sim::chip().Vlan(vlan).control.broadcast_group;
      if (broadcast != 0)
        Expect(sim::chip().GroupMembers(broadcast) == group, name + ": group differs from members");
    }
  }

  RunResult result_;
  Drift drift_;
  Fault fault_;
  size_t step_ = 0;
  std::string context_;
};

}  // namespace

RunResult RunOps(const std::vector<Op>& ops, const std::optional<Injection>& planned) {
  return Driver(planned).Run(ops);
}

std::vector<Op> DecodeOps(const uint8_t* data, size_t size) {
  std::vector<Op> ops;
  for (size_t at = 0; at + 4 <= size && ops.size() < 64; at += 4)
    ops.push_back(Op{static_cast<uint8_t>(data[at] % kOpKindCount), data[at + 1], data[at + 2],
                     data[at + 3]});
  return ops;
}

}  // namespace reliability
