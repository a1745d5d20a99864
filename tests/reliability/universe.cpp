#include "universe.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"
#include "hal_platform.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace reliability {
namespace {

using vlanxlate::Operation;
using vlanxlate::Stage;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

template <typename T, size_t N>
const T& Pick(const T (&table)[N], uint8_t index) {
  return table[index % N];
}

limid_t Eth(unsigned port) {
  return sim::EthernetPort(1, port);
}

// eth1/5 sits on another module of the stack: kept in the books, never programmed here.
const limid_t kInterfaces[] = {Eth(1), Eth(2),      Eth(3),      Eth(4),     Eth(5),
                               Eth(9), sim::Lag(1), sim::Lag(2), sim::Lag(9)};
const limid_t kLags[] = {sim::Lag(1), sim::Lag(2)};
const int kTrunkIds[] = {5, 6};
const unsigned short kVlans[] = {10, 20, 30, 4000};
const unsigned short kNativeVlans[] = {10, 20, 0, 4095, 4096};
const unsigned char kPcps[] = {3, 0, 7, 8};
const en_HalBridgePortQinQ kQinQModes[] = {HAL_BP_QINQ_ENABLE, HAL_BP_QINQ_DISABLE,
                                           en_HalBridgePortQinQ(2)};
const unsigned short kTpids[] = {0x88a8, 0x8100, 0x9100};
const en_HalBridgePortAcceptableFrameTypes kFrameTypes[] = {
    HAL_BP_ADMIT_ONLY_TAGGED, HAL_BP_ADMIT_ONLY_UNTAGGED, HAL_BP_ADMIT_ALL_FRAMES,
    en_HalBridgePortAcceptableFrameTypes(7)};
const en_HalVlanProperty kProperties[] = {HAL_VLAN_PROPERTY_DHCP, HAL_VLAN_PROPERTY_IGMP_SNOOPING,
                                          en_HalVlanProperty(2), en_HalVlanProperty(-1)};
const en_HalVlanPropValue kPropValues[] = {HAL_VLAN_PROP_DHCP_TO_CPU, HAL_VLAN_PROP_DHCP_DROP,
                                           en_HalVlanPropValue(5), en_HalVlanPropValue(2)};
const Stage kStages[] = {Stage::Ingress, Stage::Egress, Stage(2)};
const char* const kClients[] = {"hal-stlp", "hal-stlp ", "HAL-STLP"};
// The SDK functions that a fault can hit, without their "bcm_".
const char kFunctions[] =
    "port_tpid_set port_inner_tpid_set port_untagged_vlan_set port_untagged_priority_set "
    "port_dtag_mode_set port_discard_set port_class_get port_class_set vlan_gport_add "
    "vlan_gport_delete vlan_gport_delete_all vlan_gport_get vlan_gport_get_all "
    "vlan_control_vlan_get vlan_control_vlan_set vlan_control_vlan_selective_get "
    "vlan_control_vlan_selective_set vlan_control_port_set vlan_translate_action_add "
    "vlan_translate_action_delete vlan_translate_egress_action_add "
    "vlan_translate_egress_action_delete multicast_l2_encap_get multicast_egress_add "
    "multicast_egress_delete multicast_egress_delete_all";

VlanMapping MakeRule(bool outer, uint16_t outerVlan, bool inner, uint16_t innerVlan,
                     Operation operation, VlanTag newOuter, VlanTag newInner = {}) {
  VlanMapping rule;
  rule.match.hasOuterVlan = outer;
  rule.match.outerVlanTag = VlanTag{outerVlan, static_cast<uint16_t>(outer ? 0x8100 : 0), 15};
  rule.match.hasInnerVlan = inner;
  rule.match.innerVlanTag = VlanTag{innerVlan, 0, 15};
  rule.operation = operation;
  rule.action.outerVlanTag = newOuter;
  rule.action.innerVlanTag = newInner;
  return rule;
}

const VlanMapping kRules[kRuleCount] = {
    MakeRule(true, 100, false, 0, Operation::Replace, {200, 0, 15}),
    MakeRule(true, 101, false, 0, Operation::Add, {201, 0, 5}),
    MakeRule(false, 0, true, 102, Operation::Replace, {202, 0, 15}),
    MakeRule(true, 103, true, 13, Operation::ReplaceReplace, {203, 0, 15}, {23, 0, 15}),
    MakeRule(true, 104, false, 0, Operation::AddReplace, {204, 0x88a8, 2}, {24, 0, 15}),
    MakeRule(true, 105, false, 0, Operation::Unknown, {205, 0, 15}),
    MakeRule(true, 106, false, 0, Operation(7), {206, 0, 15}),
    MakeRule(true, 100, false, 0, Operation::Replace, {300, 0, 15}),
    MakeRule(true, 107, false, 0, Operation::Replace, {207, 0x88a8, 3}),
};

// The LAG orchestrator that both services register with on the first calls of their factories.
std::shared_ptr<sim::LagOrchestratorSim> Lags() {
  static const auto lags = std::make_shared<sim::LagOrchestratorSim>();
  return lags;
}

int Handled(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
  const auto handled = [](const sim::LagOrchestratorSim::Answer& answer) { return answer.handled; };
  return std::all_of(answers.begin(), answers.end(), handled) ? 0 : -1;
}

// An answer for an operation that no caller would make in the current state.
constexpr int kSkipped = 1;

// An operation's arguments decoded, the services it goes to, and where the queries answer.
struct Call {
  const Op& op;
  limid_t bd = sim::BridgeDomain(VlanNumber(op.a));  // a as a VLAN
  limid_t id = InterfaceId(op.a);                    // a as an interface
  limid_t member = InterfaceId(op.b);                // b as an interface
  limid_t lag = LagId(op.a);                         // a as a LAG
  Stage stage = Pick(kStages, op.b);
  en_HalVlanProperty property = Pick(kProperties, op.b);
  en_HalVlanPropValue value = Pick(kPropValues, op.c);
  HalBridgeDomainItf& domain = Domain();
  HalBridgePortItf& port = Port();
  bool isMember = false;
  bool tagged = false;
  unsigned int number = 0;
};

// Each kind's name, what its arguments a, b, c are (v VLAN, i interface, l LAG, g tagged, f on or
// off, p property, d property value, n native VLAN, q PCP, m Q-in-Q mode, t TPID, y frame type,
// c client, s stage, r rule, F SDK function, e fault code) and the call a caller makes. The LAG
// orchestrator raises only what can happen on a switch: a LAG is created when it is unknown, a
// port joins when it is in no LAG and leaves the LAG that lists it, a known LAG is deleted.
struct OpInfo {
  const char* name;
  const char* args;
  int (*call)(Call&);
};
const OpInfo kOps[kOpKindCount] = {
    {"add-member", "vig",
     [](Call& x) { return x.domain.addMember(x.bd, x.member, x.op.c % 2, 0); }},
    {"del-member", "vi", [](Call& x) { return x.domain.delMember(x.bd, x.member); }},
    {"del-all-members", "v", [](Call& x) { return x.domain.delAllMembers(x.bd); }},
    {"is-member", "vi",
     [](Call& x) { return x.domain.isMember(x.bd, x.member, x.isMember, x.tagged, x.number); }},
    {"get-members", "v", [](Call& x) { return x.domain.getNumMembers(x.bd, x.number); }},
    {"add-property", "vpd",
     [](Call& x) { return x.domain.AddPropertyValue(x.bd, x.property, x.value); }},
    {"remove-property", "vpd",
     [](Call& x) { return x.domain.RemovePropertyValue(x.bd, x.property, x.value); }},
    {"native-vlan", "in",
     [](Call& x) { return x.port.SetNativeVlan(x.id, Pick(kNativeVlans, x.op.b)); }},
    {"prio", "iq", [](Call& x) { return x.port.SetPrio4Untagged(x.id, Pick(kPcps, x.op.b)); }},
    {"qinq", "im", [](Call& x) { return x.port.SetVlanQinQ(x.id, Pick(kQinQModes, x.op.b)); }},
    {"tpid", "it", [](Call& x) { return x.port.SetTpid(x.id, Pick(kTpids, x.op.b)); }},
    {"inner-tpid", "it", [](Call& x) { return x.port.SetInnerTpid(x.id, Pick(kTpids, x.op.b)); }},
    {"frame-type", "iy",
     [](Call& x) { return x.port.SetAcceptableFrameType(x.id, Pick(kFrameTypes, x.op.b)); }},
    {"block", "ifc", [](Call& x) { return BlockPort(x.id, x.op.b % 2, Pick(kClients, x.op.c)); }},
    {"add-rule", "isr",
     [](Call& x) { return x.port.AddVlanMappingRule(x.id, x.stage, RuleAt(x.op.c)); }},
    {"delete-rule", "isr",
     [](Call& x) { return x.port.DeleteVlanMappingRule(x.id, x.stage, RuleAt(x.op.c)); }},
    {"create-lag", "l",
     [](Call& x) {
       if (sim::common().HasLag(x.lag))
         return kSkipped;
       sim::common().AddLag(x.lag, Pick(kTrunkIds, x.op.a));
       return Handled(Lags()->CreateLag(x.lag));
     }},
    {"join", "li",
     [](Call& x) {
       const bool port = LocalPortOf(x.member) > 0 || x.member == kInterfaces[kRemotePort];
       if (!sim::common().HasLag(x.lag) || !port || LagOf(x.member) != nullptr)
         return kSkipped;
       return Handled(Lags()->AddMember(x.lag, x.member));
     }},
    {"leave", "li",
     [](Call& x) {
       const limid_t* lag = LagOf(x.member);
       return lag && *lag == x.lag ? Handled(Lags()->DeleteMember(x.lag, x.member)) : kSkipped;
     }},
    {"delete-lag", "l",
     [](Call& x) {
       return sim::common().HasLag(x.lag) ? Handled(Lags()->DeleteLag(x.lag)) : kSkipped;
     }},
    {"fault", "Fe", [](Call&) { return kSkipped; }}};  // the driver arms the fault

std::string Number(int value) {
  return std::to_string(value);
}

std::string Hex4(unsigned value) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%04x", value);
  return text;
}

std::string Argument(char kind, uint8_t i) {
  static const std::map<char, std::string (*)(uint8_t)> kTexts = {
      {'v', [](uint8_t i) { return "vlan" + Number(VlanNumber(i)); }},
      {'i', [](uint8_t i) { return sim::NameOf(InterfaceId(i)); }},
      {'l', [](uint8_t i) { return sim::NameOf(LagId(i)); }},
      {'g', [](uint8_t i) { return std::string(i % 2 ? "tagged" : "untagged"); }},
      {'f', [](uint8_t i) { return std::string(i % 2 ? "on" : "off"); }},
      {'p', [](uint8_t i) { return Number(Pick(kProperties, i)); }},
      {'d', [](uint8_t i) { return Number(Pick(kPropValues, i)); }},
      {'n', [](uint8_t i) { return Number(Pick(kNativeVlans, i)); }},
      {'q', [](uint8_t i) { return Number(Pick(kPcps, i)); }},
      {'m', [](uint8_t i) { return Number(Pick(kQinQModes, i)); }},
      {'t', [](uint8_t i) { return Hex4(Pick(kTpids, i)); }},
      {'y', [](uint8_t i) { return Number(Pick(kFrameTypes, i)); }},
      {'c', [](uint8_t i) { return '"' + std::string(Pick(kClients, i)) + '"'; }},
      {'s', [](uint8_t i) { return "stage " + Number(static_cast<int>(Pick(kStages, i))); }},
      {'r', [](uint8_t i) { return "rule #" + Number(i % kRuleCount); }},
      {'F', [](uint8_t i) { return SdkFunction(i); }},
      {'e', [](uint8_t i) { return Number(Pick(kFaultCodes, i)); }}};
  return kTexts.at(kind)(i);
}

}  // namespace

limid_t InterfaceId(uint8_t index) {
  return Pick(kInterfaces, index);
}
limid_t LagId(uint8_t index) {
  return Pick(kLags, index);
}
unsigned short VlanNumber(uint8_t index) {
  return Pick(kVlans, index);
}
const VlanMapping& RuleAt(uint8_t index) {
  return Pick(kRules, index);
}
std::string SdkFunction(uint8_t index) {
  static const std::vector<std::string> functions = [] {
    std::vector<std::string> names;
    std::istringstream words(kFunctions);
    for (std::string word; words >> word;)
      names.push_back("bcm_" + word);
    return names;
  }();
  return functions[index % functions.size()];
}

int LocalPortOf(limid_t port) {
  const limid_t* const end = kInterfaces + 4;
  const limid_t* const at = std::find(kInterfaces, end, port);
  return at == end ? -1 : static_cast<int>(at - kInterfaces) + 1;
}

std::string Describe(const Op& op) {
  const OpInfo& info = kOps[op.kind % kOpKindCount];
  const uint8_t args[] = {op.a, op.b, op.c};
  std::string text = info.name;
  for (size_t i = 0; info.args[i] != '\0'; ++i)
    text += " " + Argument(info.args[i], args[i]);
  return text;
}

HalBcmBridgePort& Port() {
  return *HalBcmBridgePort::GetInstance(Lags());
}
HalBcmBridgeDomain& Domain() {
  return *HalBcmBridgeDomain::getInstance(Lags());
}

void Reset() {
  sim::Reset();
  for (int p = 1; p <= 4; ++p)
    sim::common().AddPort(kInterfaces[p - 1], sim::LocalGport(p));
  sim::common().AddPort(kInterfaces[kRemotePort], sim::ModuleGport(1, 5));
  for (size_t i = 0; i < 2; ++i)
    sim::common().AddLag(kLags[i], kTrunkIds[i]);
  sim::chip().CreateVlan(10);
  sim::chip().CreateVlan(20);
  sim::chip().CreateVlan(30, false);

  HalBcmBridgePortInspector port(Port());
  HalBcmBridgeDomainInspector domain(Domain());
  const auto clear = [](auto&... books) { (books.clear(), ...); };
  clear(port.ingressVlanMappings(), port.egressVlanMappings(), port.nativeVlans(),
        port.untaggedPrios(), port.qinqPorts(), port.tpids(), port.acceptableFrameTypes(),
        port.blockedPorts(), domain.lagMembership(), domain.intfInfo());
  domain.vlanOrchestrator() = std::make_shared<halswitchbd::VlanOrchestratorImpl>();
}

const limid_t* LagOf(limid_t port) {
  for (const limid_t& lag : kLags) {
    if (sim::common().HasLag(lag) && HalBcmCommon::GetInstance()->GetLagMembers(lag).count(port))
      return &lag;
  }
  return nullptr;
}

Outcome Apply(const Op& op) {
  Outcome outcome;
  try {
    Call call{op};
    const int rc = kOps[op.kind % kOpKindCount].call(call);
    outcome.skipped = rc == kSkipped;
    outcome.failed = rc != 0 && !outcome.skipped;
  } catch (const std::out_of_range& e) {
    outcome.threw = outcome.outOfRange = true;
    outcome.exception = e.what();
  } catch (const std::exception& e) {
    outcome.threw = true;
    outcome.exception = e.what();
  }
  return outcome;
}

}  // namespace reliability
