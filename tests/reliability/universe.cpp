#include "universe.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"
#include "hal_platform.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace reliability {
namespace {

using vlanxlate::Operation;
using vlanxlate::VlanMapping;
using Store = std::map<limid_t, std::set<VlanMapping>>;
using Steps = std::map<std::string, std::set<uint8_t>>;

template <typename T, size_t N>
const T& Pick(const T (&table)[N], uint8_t index) {
  return table[index % N];
}

// eth1/5 is on another module of the stack, eth1/9 and lag9 are unknown, eth1/6 is in the gport
// table only, eth1/7 sits on a chip port below the others', VLANs 30 and 4095 have no replication
// group and VLAN 4000 is not on the chip.
// In the order of the Interface enumeration, with the chip port of each local gport.
// clang-format off
const limid_t kInterfaces[] = {
    sim::EthernetPort(1, 1), sim::EthernetPort(1, 2), sim::EthernetPort(1, 3),
    sim::EthernetPort(1, 4), sim::EthernetPort(1, 5), sim::EthernetPort(1, 9),
    sim::Lag(1),             sim::Lag(2),             sim::Lag(9),
    sim::EthernetPort(1, 6), sim::Lag(3),             sim::EthernetPort(1, 7)};
const int kChipPorts[] = {1, 2, 3, 4, -1, -1, -1, -1, -1, 6, -1, 0};
// clang-format on
const limid_t kLags[] = {sim::Lag(1), sim::Lag(2), sim::Lag(3)};
const int kTrunkIds[] = {5, 6, 0};
const unsigned short kVlans[] = {10, 20, 30, 4000, 1, 4095};
const unsigned short kNativeVlans[] = {10, 20, 0, 4095, 4096};
const unsigned short kTpids[] = {0x88a8, 0x8100, 0x9100};
const unsigned char kPcps[] = {3, 0, 7, 8};
const int kQinQModes[] = {HAL_BP_QINQ_ENABLE, HAL_BP_QINQ_DISABLE, 2};
const int kFrameTypes[] = {HAL_BP_ADMIT_ONLY_TAGGED, HAL_BP_ADMIT_ONLY_UNTAGGED,
                           HAL_BP_ADMIT_ALL_FRAMES, 7};
const int kProperties[] = {HAL_VLAN_PROPERTY_DHCP, HAL_VLAN_PROPERTY_IGMP_SNOOPING, 2, -1};
const int kPropValues[] = {HAL_VLAN_PROP_DHCP_TO_CPU, HAL_VLAN_PROP_DHCP_DROP, 5, 2};
const vlanxlate::Stage kStages[] = {vlanxlate::Stage::Ingress, vlanxlate::Stage::Egress,
                                    vlanxlate::Stage(2)};
const char* const kClients[] = {"hal-stlp", "hal-stlp ", "HAL-STLP"};
// VLAN orchestrator clients, in both orders of priority and name; names that share a prefix, an
// empty one and one too long to sit inside a string object.
const std::pair<unsigned, const char*> kVlanClients[] = {
    {10, "igmp"}, {200, "dhcp"},  {10, "lldp"}, {10, "igmp-snooping-querier"},
    {0, ""},      {200, "dhcp6"}, {~0u, "lldp"}};
// Identification words of chip kinds (type, packet-priority word, family flags), and whether their
// translation tables take packet-priority actions: the top of the LAG classes follows.
struct ChipKind {
  uint32_t type, xlatePktPrio, familyFlags;
  bool packetPriority;
};
const ChipKind kChipKinds[] = {{0, 1, 0, true},           {47, 0, 0, false},   {0, 0, 0x20, false},
                               {0, 0, 0x20000000, false}, {47, 1, 0x20, true}, {0, 0, 0, true}};
int lagClassTop = 127;  // 63 on a chip without packet-priority actions
// Match, operation, action; the eighth rule has the first one's entry with another action, the
// tenth to twelfth differ from the first in one field each.
const VlanMapping kRules[] = {
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Replace, {{200, 0, 15}, {}}},
    {{true, {101, 0x8100, 15}, false, {}}, Operation::Add, {{201, 0, 5}, {}}},
    {{false, {}, true, {102, 0, 15}}, Operation::Replace, {{202, 0, 15}, {}}},
    {{true, {103, 0x8100, 15}, true, {13, 0, 15}}, Operation(4), {{203, 0, 15}, {23, 0, 15}}},
    {{true, {104, 0x8100, 15}, false, {}}, Operation::AddReplace, {{204, 0x88a8, 2}, {24, 0, 15}}},
    {{true, {105, 0x8100, 15}, false, {}}, Operation::Unknown, {{205, 0, 15}, {}}},
    {{true, {106, 0x8100, 15}, false, {}}, Operation(7), {{206, 0, 15}, {}}},
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Replace, {{300, 0, 15}, {}}},
    {{true, {107, 0x8100, 15}, false, {}}, Operation::Replace, {{207, 0x88a8, 3}, {}}},
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Replace, {{200, 0, 4}, {}}},
    {{true, {100, 0x9100, 15}, false, {}}, Operation::Replace, {{200, 0, 15}, {}}},
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Add, {{200, 0, 15}, {}}},
    {{false, {}, false, {}}, Operation::Replace, {{208, 0, 15}, {}}},
    {{true, {109, 0x8100, 15}, true, {19, 0, 15}}, Operation(4), {{209, 0, 6}, {0, 0, 5}}},
    {{true, {110, 0x8100, 15}, false, {}}, Operation::AddReplace, {{210, 0, 15}, {0, 0x8100, 1}}},
    {{false, {}, true, {111, 0, 15}}, Operation::Add, {{211, 0x88a8, 15}, {}}},
    // The first one's match with another priority; a double-tag match and three rules that differ
    // from it in one field of the inner tag; the first one with another action TPID, inner VLAN,
    // inner TPID: each field of the rule order decides between two rules of a row.
    {{true, {100, 0x8100, 3}, false, {}}, Operation::Replace, {{200, 0, 15}, {}}},
    {{true, {112, 0x8100, 15}, true, {12, 0, 15}}, Operation::Replace, {{212, 0, 15}, {}}},
    {{true, {112, 0x8100, 15}, true, {12, 0x8100, 15}}, Operation::Replace, {{212, 0, 15}, {}}},
    {{true, {112, 0x8100, 15}, true, {12, 0, 2}}, Operation::Replace, {{212, 0, 15}, {}}},
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Replace, {{200, 0x88a8, 15}, {}}},
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Replace, {{200, 0, 15}, {30, 0, 15}}},
    {{true, {100, 0x8100, 15}, false, {}}, Operation::Replace, {{200, 0, 15}, {0, 0x8100, 15}}},
};
// Chip port 8 has no interface: only another program (a diagnostic shell) puts it in a VLAN.
constexpr int kForeignChipPort = 8;
// The caller's view of each VLAN's members, refreshed by every listing of the VLAN.
std::map<unsigned short, std::set<limid_t>> listings;

std::string OpName(uint8_t kind) {
  std::istringstream names(
      "add-member del-member del-all-members is-member get-members add-property remove-property "
      "native-vlan prio qinq tpid inner-tpid frame-type block add-rule delete-rule create-lag join "
      "leave delete-lag fault list-members register-client deregister-client chip-mode log-throws "
      "foreign-member");
  const std::vector<std::string> all{std::istream_iterator<std::string>(names), {}};
  return all[kind % all.size()];
}

struct Arg {  // an argument read as an interface, a LAG, a VLAN or a rule
  static limid_t Interface(uint8_t i) { return Pick(kInterfaces, i); }
  static limid_t Lag(uint8_t i) { return Pick(kLags, i); }
  static unsigned short Vlan(uint8_t i) { return Pick(kVlans, i); }
  static const VlanMapping& Rule(uint8_t i) { return Pick(kRules, i); }
};

int LocalPortOf(limid_t port) {  // the chip port of an interface with a local gport, else -1
  const auto at = std::find(std::begin(kInterfaces), std::end(kInterfaces), port);
  return at == std::end(kInterfaces) ? -1 : kChipPorts[at - std::begin(kInterfaces)];
}

std::set<limid_t> LagMembers(limid_t lag) {
  return sim::common().HasLag(lag) ? HalBcmCommon::GetInstance()->GetLagMembers(lag)
                                   : std::set<limid_t>{};
}

const limid_t* LagOf(limid_t port) {  // the LAG that lists a port, if any
  const auto lag = std::find_if(std::begin(kLags), std::end(kLags),
                                [&](limid_t lag) { return LagMembers(lag).count(port) != 0; });
  return lag == std::end(kLags) ? nullptr : lag;
}

const std::set<VlanMapping>& RulesOf(const Store& store, limid_t id) {
  static const std::set<VlanMapping> none;
  const auto rules = store.find(id);
  return rules == store.end() ? none : rules->second;
}

HalBcmBridgePort& Port() {
  return *HalBcmBridgePort::GetInstance(Lags());
}
HalBcmBridgeDomain& Domain() {
  return *HalBcmBridgeDomain::getInstance(Lags());
}

int Handled(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
  const auto handled = [](const auto& answer) { return answer.handled; };
  return std::all_of(answers.begin(), answers.end(), handled) ? 0 : -1;
}

// 0 done, -1 refused (or a LAG client did not handle the event), or one of these.
constexpr int kSkipped = 1, kThrewOutOfRange = 2, kThrewOther = 3;

// LAG events come as on a switch: a LAG is created when it is unknown, a port joins when it is in
// no LAG and leaves the LAG that lists it.
int Call(const Op& op) {
  HalBcmBridgeDomain& domain = Domain();
  HalBcmBridgePort& port = Port();
  const limid_t bd = sim::BridgeDomain(Arg::Vlan(op.a)), id = Arg::Interface(op.a);
  const limid_t member = Arg::Interface(op.b), lag = Arg::Lag(op.a);
  const limid_t* memberLag = LagOf(member);
  const bool lagKnown = sim::common().HasLag(lag);
  const auto property = en_HalVlanProperty(Pick(kProperties, op.b));
  const auto value = en_HalVlanPropValue(Pick(kPropValues, op.c));
  bool isMember = false, tagged = false;
  unsigned int number = 0;
  const auto& [priority, client] = Pick(kVlanClients, op.a);
  // clang-format off
  switch (op.kind % kOpKindCount) {
    case kAddMember: return domain.addMember(bd, member, op.c % 2, 0);
    case kDelMember: return domain.delMember(bd, member);
    case kDelAllMembers: return domain.delAllMembers(bd);
    case kIsMember: return domain.isMember(bd, member, isMember, tagged, number);
    case kGetMembers: return domain.getNumMembers(bd, number);
    case kAddProperty: return domain.AddPropertyValue(bd, property, value);
    case kRemoveProperty: return domain.RemovePropertyValue(bd, property, value);
    case kSetNativeVlan: return port.SetNativeVlan(id, Pick(kNativeVlans, op.b));
    case kSetPrio: return port.SetPrio4Untagged(id, Pick(kPcps, op.b));
    case kSetQinQ: return port.SetVlanQinQ(id, en_HalBridgePortQinQ(Pick(kQinQModes, op.b)));
    case kSetTpid: return port.SetTpid(id, Pick(kTpids, op.b));
    case kSetInnerTpid: return port.SetInnerTpid(id, Pick(kTpids, op.b));
    case kSetFrameType: return port.SetAcceptableFrameType(
        id, en_HalBridgePortAcceptableFrameTypes(Pick(kFrameTypes, op.b)));
    case kBlock: return BlockPort(id, op.b % 2, Pick(kClients, op.c));
    case kAddRule: return port.AddVlanMappingRule(id, Pick(kStages, op.b), Arg::Rule(op.c));
    case kDeleteRule: return port.DeleteVlanMappingRule(id, Pick(kStages, op.b), Arg::Rule(op.c));
    case kCreateLag:
      if (lagKnown) return kSkipped;
      sim::common().AddLag(lag, Pick(kTrunkIds, op.a));
      return Handled(Lags()->CreateLag(lag));
    case kJoinLag:
      if (!lagKnown || memberLag || (LocalPortOf(member) < 0 && member != kInterfaces[kRemotePort]))
        return kSkipped;
      return Handled(Lags()->AddMember(lag, member));
    case kLeaveLag:
      return memberLag && *memberLag == lag ? Handled(Lags()->DeleteMember(lag, member)) : kSkipped;
    case kDeleteLag: return lagKnown ? Handled(Lags()->DeleteLag(lag)) : kSkipped;
    case kListMembers: return domain.getMembers(bd, listings[Arg::Vlan(op.a)]);
    case kRegisterClient: {  // refusing additions (bit 1 of c), removals (2); without them (4, 8)
      halswitchbd::VlanOrchestrator::Callback callback;
      if ((op.c & 4) == 0)
        callback.vlan_add = [c = op.c](auto&, auto&, bool) { return (c & 1) == 0; };
      if ((op.c & 8) == 0)
        callback.vlan_remove = [c = op.c](auto&, auto&) { return (c & 2) == 0; };
      domain.GetVlanOrchestrator()->RegisterClient(priority, client, std::move(callback));
      return 0;
    }
    case kDeregisterClient: return domain.GetVlanOrchestrator()->DeregisterClient(priority, client), 0;
    case kChipMode:  // the chip's kind is fixed once the library has called it
      if (sim::chip().Trace().empty()) {
        const ChipKind& kind = Pick(kChipKinds, op.b);
        sim::chip().SetControlWords(kind.type, kind.xlatePktPrio, kind.familyFlags);
        lagClassTop = kind.packetPriority ? 127 : 63;
      }
      return sim::chip().SetReportModuleGports(op.c % 2), 0;
    case kForeignMember:  // what the chip answers is no result of the library's
      bcm_vlan_gport_add(0, Arg::Vlan(op.a), sim::LocalGport(kForeignChipPort),
                         op.b % 2 ? BCM_VLAN_GPORT_ADD_UNTAGGED : 0);
      return kSkipped;
    default: return kSkipped;  // a fault: the driver arms it
  }
  // clang-format on
}

int Apply(const Op& op) {
  try {
    const int rc = Call(op);
    return rc == 0 || rc == kSkipped ? rc : -1;
  } catch (const std::out_of_range&) {
    return kThrewOutOfRange;
  } catch (const std::exception&) {
    return kThrewOther;
  }
}

// A clean platform holding the universe, and empty books under both services.
void Reset() {
  sim::Reset();
  lagClassTop = 127;
  listings.clear();
  for (const Interface port : {P1, P2, P3, P4, P7})
    sim::common().AddPort(kInterfaces[port], sim::LocalGport(kChipPorts[port]));
  sim::common().AddPort(kInterfaces[kRemotePort], sim::ModuleGport(1, 5));
  sim::common().AddGportOnly(kInterfaces[kGportOnly], sim::LocalGport(kChipPorts[kGportOnly]));
  for (size_t lag = 0; lag < std::size(kLags); ++lag)
    sim::common().AddLag(kLags[lag], kTrunkIds[lag]);
  for (const unsigned short vlan : {10, 20, 30, 1, 4095})
    sim::chip().CreateVlan(vlan, vlan != 30 && vlan != 4095);
  ClearServiceBooks();
}

// Steps whose failures the operations log and ignore: the lookup keys follow a port's tag layout,
// stored ingress rules follow a Q-in-Q change, a joining port's own rules leave the chip and a
// deleted LAG's rules are deleted, each as far as the chip lets them.
const Steps kIgnoredSteps = {
    {"bcm_vlan_control_port_set", {kSetQinQ, kJoinLag, kLeaveLag, kDeleteLag}},
    {"bcm_vlan_translate_action_delete", {kSetQinQ, kJoinLag, kDeleteLag}},
    {"bcm_vlan_translate_action_add", {kSetQinQ}},
    {"bcm_vlan_translate_egress_action_delete", {kJoinLag, kDeleteLag}},
    {"bcm_port_class_get", {kJoinLag}}};
// Where "not found" is an answer, with no failure and no line: a port that is no member, a VLAN
// without members, no earlier egress entry to replace.
const Steps kNotFoundAnswers = {{"bcm_vlan_gport_get", {kIsMember}},
                                {"bcm_vlan_gport_get_all", {kGetMembers, kListMembers}},
                                {"bcm_vlan_translate_egress_action_delete", {kAddRule}}};

bool Listed(const Steps& steps, const std::string& function, uint8_t kind) {
  const auto kinds = steps.find(function);
  return kinds != steps.end() && kinds->second.count(kind);
}

// The port or trunk number that keys an interface's entries (a deleted LAG keeps its gport).
int ChipOwner(limid_t id) {
  try {
    return halbd::IsLag(id)
               ? HalBcmCommon::GetInstance()->LookupGport(id).port & BCM_GPORT_TRUNK_ID_MASK
               : LocalPortOf(id);
  } catch (const std::out_of_range&) {
    return -1;
  }
}

// Where the chip holds an ingress rule: on a Q-in-Q interface the customer's tag is the inner one
// and only single-tag matches have a key; elsewhere the key type follows the tags matched.
sim::IngressKey IngressKeyOf(limid_t id, const VlanMapping& rule, bool qinq) {
  const bool outer = rule.match.hasOuterVlan, inner = rule.match.hasInnerVlan;
  const uint16_t outerVlan = outer ? rule.match.outerVlanTag.vlanId : 0;
  if (qinq)
    return {halbd::IsLag(id), ChipOwner(id), outer && !inner ? 9 : 0, 0, outerVlan};
  return {halbd::IsLag(id), ChipOwner(id), outer ? (inner ? 7 : 8) : (inner ? 9 : 0), outerVlan,
          inner ? rule.match.innerVlanTag.vlanId : uint16_t{0}};
}

// The egress entry of a rule: the interface's class (a LAG's counts down from the top of the chip's
// kind) and the matched VLANs.
sim::EgressKey EgressKeyOf(limid_t id, const VlanMapping& rule) {
  const int port = LocalPortOf(id), owner = ChipOwner(id);
  const int portClass = halbd::IsLag(id) ? (owner < 0 ? -1 : lagClassTop - owner)
                        : port >= 0      ? static_cast<int>(sim::chip().Port(port).egressClass)
                                         : -1;
  const sim::IngressKey key = IngressKeyOf(id, rule, false);
  return {portClass, key.outerVlan, key.innerVlan};
}

class Driver {
 public:
  explicit Driver(const std::optional<Injection>& planned) : planned_(planned) {
    Reset();
    if (planned)
      sim::chip().FailNth(planned->function, planned->nth, planned->rc);
  }

  RunResult Run(const std::vector<Op>& ops) {
    for (const Op& op : ops)
      Step(op, op.kind % kOpKindCount, Arg::Interface(op.a), Arg::Interface(op.b));
    Expect(!planned_ || faultHit_, "): the planned fault hit no call");
    return result_;
  }

 private:
  void Expect(bool ok, const std::string& what) {
    ++result_.checks;
    if (!ok)
      result_.violations.push_back("step " + std::to_string(step_) + " (" + what);
  }
  static HalBcmBridgePortInspector Books() { return HalBcmBridgePortInspector(Port()); }

  void Step(const Op& op, uint8_t kind, limid_t id, limid_t member) {
    ++step_;
    const auto& trace = sim::chip().Trace();
    if (kind == kFault) {  // for the next operation: a function the run has called so far,
      // a's call of the run or, with c odd, a's of the functions in the order of their first
      // call; its first call fails or, by bits 1 and 2 of c, its second to fourth
      if (!trace.empty())
        armed_ = Injection{0, op.c % 2 ? CalledFunction(op.a) : trace[op.a % trace.size()].function,
                           1 + (op.c >> 1) % 4, Pick(kFaultCodes, op.b)};
      if (armed_)
        sim::chip().FailNth(armed_->function, armed_->nth, armed_->rc);
      return;
    }
    if (kind == kForeignMember) {  // not the library's step; an armed fault waits for the next
      if (!armed_)
        Call(op);
      return;
    }
    if (kind == kLogThrows) {
      logThrows_ = true;
      return sim::halLog().ThrowOnNextMessage();
    }
    const size_t firstCall = trace.size(), assertions = sim::Assertions().size();
    const size_t firstRecord = sim::halLog().Records().size();
    // SetTpid, SetAcceptableFrameType and addMember pass an unknown LAG's out_of_range on.
    const limid_t target = kind == kAddMember ? member : id;
    const bool passesException =
        (kind == kSetTpid || kind == kSetFrameType || kind == kAddMember) && halbd::IsLag(target) &&
        !sim::common().HasLag(target);
    if ((kind == kAddRule || kind == kDeleteRule) && op.b % 3 == 1)
      egressUsers_[EgressKeyOf(id, Arg::Rule(op.c))].emplace(id, Arg::Rule(op.c));
    const limid_t joining = kind == kJoinLag ? member : kInterfaces[kUnknownLag];  // no rules
    for (const VlanMapping& rule : RulesOf(Books().egressVlanMappings(), joining))
      egressUsers_[EgressKeyOf(member, rule)].emplace(member, rule);  // under its own class
    const bool stored = IsStored(op);
    HalBcmBridgeDomainInspector domain(Domain());
    const auto lagVlan = domain.lagMembership().find(member);
    if (kind == kAddMember && halbd::IsLag(member)) {  // added again: its members take the flag
      const bool again = lagVlan != domain.lagMembership().end() &&
                         lagVlan->second.count(sim::BridgeDomain(Arg::Vlan(op.a)));
      LagInVlan& record = lagsInVlans_[{Arg::Vlan(op.a), member}];
      record =
          again ? LagInVlan{record.firstFlag, LagMembers(member)} : LagInVlan{op.c % 2 != 0, {}};
    }

    const int rc = Apply(op);
    const std::vector<sim::LogRecord> log(sim::halLog().Records().begin() + firstRecord,
                                          sim::halLog().Records().end());
    bool hit = planned_ && planned_->callIndex >= firstCall && planned_->callIndex < trace.size();
    const bool threw = logThrows_ && !log.empty();  // the step's first message threw
    logThrows_ &= log.empty();
    result_.allSucceeded &= rc == 0;
    int armedCalls = 0;  // an armed fault hits the step that makes the nth call
    for (auto call = trace.begin() + firstCall; call != trace.end(); ++call)
      hit |= armed_ && call->function == armed_->function && ++armedCalls == armed_->nth;
    const std::string what = Describe(op) + "): ";
    Expect((rc > kSkipped) == (passesException || threw),
           what + "an exception reached the caller, or not");
    Expect(rc != kThrewOther || threw, what + "an exception other than std::out_of_range escaped");
    Expect(rc != -1 || !log.empty(), what + "failed without a log line");
    Expect(rc != -1 || kind < kAddRule || kind > kDeleteRule || IsStored(op) == stored,
           what + "a refused rule operation changed the store");
    if (hit)
      CheckFault(what, kind, rc == -1 || threw, log, armed_ ? *armed_ : *planned_, !armed_);
    if (std::exchange(armed_, std::nullopt))
      sim::chip().ClearFaults();
    if (rc == 0 && !hit && exact_)
      CheckLagEventEffects(what, kind, op);
    if (rc == 0 && !hit && kind == kListMembers)
      CheckListing(what, Arg::Vlan(op.a));
    // Past a failure, a step the operation logs and ignores (a rule the chip refuses under the new
    // tag layout, for one) or a port added or removed directly while in a LAG (a caller's mistake,
    // asserted), the chip and the books part ways.
    const bool logged = std::any_of(log.begin(), log.end(), [](const sim::LogRecord& r) {
      return r.isError || r.levelOrCode < 6;
    });
    exact_ &= !hit && rc != -1 && !threw && !logged && sim::Assertions().size() == assertions &&
              !(kind <= kDelMember && LagOf(member));
    if (rc <= 0)
      Learn(kind, op);
    if (!exact_)
      return;
    HalBcmBridgePortInspector books = Books();
    for (const limid_t each : kInterfaces) {
      if (!offChip_.count(each))
        CheckRules(what + sim::NameOf(each) + ": ", each, books.qinqPorts().count(each), books);
    }
    CheckMemberships(what);
  }

  std::string CalledFunction(uint8_t index) const {
    std::vector<std::string> functions;
    for (const sim::SdkCall& call : sim::chip().Trace()) {
      if (std::find(functions.begin(), functions.end(), call.function) == functions.end())
        functions.push_back(call.function);
    }
    return functions[index % functions.size()];
  }

  // A listing, into the caller's last view of the VLAN or not, holds the interface of each port
  // the chip has in the VLAN (a LAG's members by their own names), and nothing else.
  void CheckListing(const std::string& what, unsigned short vlan) {
    std::set<limid_t> onChip;
    if (sim::chip().HasVlan(vlan)) {
      for (const auto& [port, untagged] : sim::chip().Vlan(vlan).members)
        onChip.insert(HalBcmCommon::GetInstance()->LookupDeviceId({sim::LocalGport(port), -1}));
    }
    Expect(listings[vlan] == onChip, what + "the listing differs from the chip's members");
  }

  bool IsStored(const Op& op) {  // a rule operation's rule, in its interface's store
    const Store& store =
        op.b % 3 == 0 ? Books().ingressVlanMappings() : Books().egressVlanMappings();
    return RulesOf(store, Arg::Interface(op.a)).count(Arg::Rule(op.c)) != 0;
  }

  // The faulty call is logged with the SDK's text (through error() with the code, where the line
  // carries one) and fails the operation unless it ignores the step. Planned faults are strict:
  // every operation of their run succeeds without them.
  void CheckFault(std::string what, uint8_t kind, bool failed,
                  const std::vector<sim::LogRecord>& log, const Injection& fault, bool strict) {
    faultHit_ = true;
    what += fault.function + " = " + std::to_string(fault.rc);
    if (fault.rc == BCM_E_NOT_FOUND && Listed(kNotFoundAnswers, fault.function, kind))
      return Expect(!strict || (!failed && log.empty()), what + " failed the operation or logged");
    Expect(std::any_of(log.begin(), log.end(),
                       [&](const sim::LogRecord& r) {
                         return r.text.find(bcm_errmsg(fault.rc)) != std::string::npos &&
                                (!r.isError || r.levelOrCode == fault.rc);
                       }),
           what + " not logged with the SDK's text");
    const bool ignored = Listed(kIgnoredSteps, fault.function, kind);
    Expect(ignored || failed, what + " not reported as a failure");
    Expect(!ignored || !strict || !failed, what + " failed an operation that ignores that step");
  }

  // A LAG event that went through: a joining port's own ingress rules are off the chip (they stay
  // in the store), a deleted LAG's rules are gone, except an egress rule whose entry another rule
  // rewrote (its deletion finds nothing).
  void CheckLagEventEffects(const std::string& what, uint8_t kind, const Op& op) {
    const limid_t lag = Arg::Lag(op.a);
    for (const auto& [key, action] : sim::chip().IngressTable()) {
      Expect(kind != kJoinLag || key.trunk || key.portOrTrunk != LocalPortOf(Arg::Interface(op.b)),
             what + "a port joined its LAG with an ingress entry on chip");
    }
    if (kind != kDeleteLag)
      return;
    Expect(RulesOf(Books().ingressVlanMappings(), lag).empty(), what + "deleted LAG's rules kept");
    for (const VlanMapping& rule : RulesOf(Books().egressVlanMappings(), lag))
      Expect(egressUsers_[EgressKeyOf(lag, rule)].size() > 1, what + "deleted LAG's rule kept");
  }

  // Left apart on purpose: a port that joins a LAG keeps its rules in the store, not on the chip,
  // and the shared VLAN member table keeps listing it, as a deleted LAG; removing all members of a
  // VLAN touches the chip only.
  void Learn(uint8_t kind, const Op& op) {
    if (kind == kJoinLag || kind == kDeleteLag)
      offChip_.insert(kind == kJoinLag ? Arg::Interface(op.b) : Arg::Lag(op.a));
    if (kind == kDelAllMembers)
      vlansCleared_.insert(Arg::Vlan(op.a));
    for (auto& [key, record] : lagsInVlans_)
      if (kind == kLeaveLag)
        record.givenLatestFlag.erase(Arg::Interface(op.b));
    if (kind == kSetTpid)
      tpids_[Arg::Interface(op.a)] = Pick(kTpids, op.b);
    if (kind == kDeleteLag)  // a deleted LAG forgets its TPID
      tpids_.erase(Arg::Lag(op.a));
  }

  // qinqPorts is the chip's tag layout; the store and the chip hold the same rules, at ingress
  // under that layout, at egress under the class, except an entry written by two rules (or two
  // interfaces of one class): an install replaces it, the first delete takes it.
  void CheckRules(const std::string& of, limid_t id, bool qinq, HalBcmBridgePortInspector& books) {
    const int port = LocalPortOf(id);
    Expect(port < 0 || (sim::chip().Port(port).dtagMode == BCM_PORT_DTAG_MODE_EXTERNAL) == qinq,
           of + "Q-in-Q differs on chip");
    std::set<sim::IngressKey> ingress, onChip;
    for (const VlanMapping& rule : RulesOf(books.ingressVlanMappings(), id))
      ingress.insert(IngressKeyOf(id, rule, qinq));
    for (const auto& [k, action] : sim::chip().IngressTable()) {
      if (k.trunk == halbd::IsLag(id) && k.portOrTrunk == ChipOwner(id))
        onChip.insert(k);
    }
    const auto same = [](const auto& x, const auto& y) { return !(x < y) && !(y < x); };
    Expect(std::equal(ingress.begin(), ingress.end(), onChip.begin(), onChip.end(), same),
           of + "ingress entries differ from the rules");
    const std::set<VlanMapping>& egress = RulesOf(books.egressVlanMappings(), id);
    for (const VlanMapping& rule : egress) {
      Expect(egressUsers_[EgressKeyOf(id, rule)].size() > 1 ||
                 sim::chip().EgressTable().count(EgressKeyOf(id, rule)),
             of + "egress rule not on chip");
    }
    for (const auto& [k, users] : egressUsers_) {
      Expect(users.size() != 1 || users.begin()->first != id ||
                 !sim::chip().EgressTable().count(k) || egress.count(users.begin()->second),
             of + "egress entry not in the store");
    }
  }

  // The chip's VLANs and replication groups hold exactly the ports the books put there, directly
  // or through their LAG, tagged as the shared table says (the latest request; the books keep the
  // first), which lists what the books list. A LAG added again with another flag gives it to its
  // members of the time; later members take the books' first one. A LAG's members have the LAG's
  // TPID.
  void CheckMemberships(const std::string& what) {
    HalBcmBridgeDomainInspector books(Domain());
    std::map<std::pair<unsigned short, limid_t>, bool> booked, shared;  // (VLAN, id): tagged
    std::map<std::pair<unsigned short, int>, bool> expected, onChip;    // (VLAN, port): untagged
    const auto book = [&](limid_t id, const std::map<limid_t, bool>& bridgeDomains) {
      for (const auto& [bridgeDomain, tagged] : bridgeDomains)
        booked[{halbd::VlanOfBridgeDomain(bridgeDomain), id}] = tagged;
    };
    for (const auto& [port, info] : books.intfInfo())
      book(port, info.bridgeDomains);
    for (const auto& [lag, bridgeDomains] : books.lagMembership())
      book(lag, bridgeDomains);
    for (const auto& [vlan, members] : sim::common().VlanMembers()) {
      for (const auto& [id, tagged] : members) {
        shared[{vlan, id}] = tagged;
        Expect(booked.count({vlan, id}) || offChip_.count(id), what + "listed in the table only");
      }
    }
    for (const unsigned short vlan : sim::chip().Vlans()) {
      std::set<std::pair<bcm_gport_t, bcm_if_t>> replicated;
      for (const auto& [port, untagged] : sim::chip().Vlan(vlan).members) {
        if (port == kForeignChipPort)  // neither in the books nor in the broadcast group
          continue;
        if (!vlansCleared_.count(vlan))
          onChip[{vlan, port}] = untagged;
        replicated.emplace(sim::LocalGport(port), sim::Chip::EncapOf(port));
      }
      const bcm_multicast_t group = sim::chip().Vlan(vlan).control.broadcast_group;
      Expect(
          vlansCleared_.count(vlan) || group == 0 || sim::chip().GroupMembers(group) == replicated,
          what + "vlan" + std::to_string(vlan) + "'s replication group differs from its members");
    }
    for (const auto& [key, tagged] : booked) {
      Expect(shared.count(key), what + sim::NameOf(key.second) + " not in the shared table");
      for (const limid_t& port :
           halbd::IsLag(key.second) ? LagMembers(key.second) : std::set<limid_t>{key.second}) {
        const auto lag = lagsInVlans_.find(key);
        const bool firstFlag =
            lag != lagsInVlans_.end() && !lag->second.givenLatestFlag.count(port);
        const bool taggedOnChip = firstFlag           ? lag->second.firstFlag
                                  : shared.count(key) ? shared[key]
                                                      : tagged;
        if (LocalPortOf(port) >= 0 && !vlansCleared_.count(key.first))
          expected[{key.first, LocalPortOf(port)}] = !taggedOnChip;
      }
    }
    Expect(onChip == expected, what + "the chip's VLAN members differ from the books");
    for (const limid_t& lag : kLags) {
      for (const limid_t& member : LagMembers(lag)) {
        Expect(LocalPortOf(member) < 0 || tpids_.count(member) ||
                   sim::chip().Port(LocalPortOf(member)).outerTpid ==
                       (tpids_.count(lag) ? tpids_.at(lag) : 0x8100),
               what + sim::NameOf(member) + " has another TPID than its LAG");
      }
    }
    for (const limid_t& id : kInterfaces)  // the exported accessor answers what was asked for
      Expect(GetTpid(id) == (tpids_.count(id) ? tpids_.at(id) : 0x8100),
             what + sim::NameOf(id) + " answers another TPID than the one asked for");
  }

  const std::optional<Injection> planned_;
  std::optional<Injection> armed_;
  RunResult result_;
  size_t step_ = 0;
  bool faultHit_ = false;
  bool exact_ = true;          // nothing failed: the chip holds exactly what the books say
  bool logThrows_ = false;     // the log's next message throws
  std::set<limid_t> offChip_;  // ports that joined a LAG, deleted LAGs
  std::set<unsigned short> vlansCleared_;
  // A LAG's first flag in a VLAN and, once added again, the members that took the latest flag.
  struct LagInVlan {
    bool firstFlag = false;
    // cppcheck-suppress unusedStructMember ; read through the map's entries, which it cannot see
    std::set<limid_t> givenLatestFlag;
  };
  std::map<std::pair<unsigned short, limid_t>, LagInVlan> lagsInVlans_;  // (VLAN, LAG)
  std::map<limid_t, unsigned short> tpids_;  // as asked for: a LAG's members take the LAG's
  std::map<sim::EgressKey, std::set<std::pair<limid_t, VlanMapping>>> egressUsers_;
};

}  // namespace

RunResult RunOps(const std::vector<Op>& ops, const std::optional<Injection>& planned) {
  return Driver(planned).Run(ops);
}

std::vector<Op> DecodeOps(const std::vector<uint8_t>& bytes) {
  std::vector<Op> ops;
  for (size_t at = 0; at + 4 <= bytes.size() && ops.size() < 64; at += 4)
    ops.push_back(Op{bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]});
  return ops;
}

std::string Describe(const Op& op) {
  return OpName(op.kind) + " " + std::to_string(op.a) + " " + std::to_string(op.b) + " " +
         std::to_string(op.c);
}

std::shared_ptr<sim::LagOrchestratorSim> Lags() {
  static const auto lags = std::make_shared<sim::LagOrchestratorSim>();
  return lags;
}

void ClearServiceBooks() {
  HalBcmBridgePortInspector port(Port());
  HalBcmBridgeDomainInspector domain(Domain());
  const auto clear = [](auto&... books) { (books.clear(), ...); };
  clear(port.ingressVlanMappings(), port.egressVlanMappings(), port.nativeVlans(),
        port.untaggedPrios(), port.qinqPorts(), port.tpids(), port.acceptableFrameTypes(),
        port.blockedPorts(), domain.lagMembership(), domain.intfInfo());
  domain.vlanOrchestrator() = std::make_shared<halswitchbd::VlanOrchestratorImpl>();
}

}  // namespace reliability
