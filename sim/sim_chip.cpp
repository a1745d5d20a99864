// The simulated chip: state, set-up, fault plan and trace.
#include <cstdio>
#include <stdexcept>

#include "sim_internal.h"

extern "C" {
soc_control_t* soc_control[SOC_MAX_NUM_DEVICES] = {};

const char* _shr_errmsg[SHR_ERRMSG_COUNT] = {
    "Ok",                          // 0
    "Internal error",              // -1
    "Out of memory",               // -2
    "Invalid unit",                // -3
    "Invalid parameter",           // -4
    "Table empty",                 // -5
    "Table full",                  // -6
    "Entry not found",             // -7
    "Entry exists",                // -8
    "Operation timed out",         // -9
    "Operation still running",     // -10
    "Operation failed",            // -11
    "Operation disabled",          // -12
    "Invalid identifier",          // -13
    "No resources for operation",  // -14
    "Invalid configuration",       // -15
    "Feature unavailable",         // -16
    "Feature not initialized",     // -17
    "Invalid port",                // -18
    "Link down",                   // -19
    "Bus error",                   // -20
    "Operation not permitted",     // -21
    "Invalid state",               // -22
    "Unknown error",               // every other code
};
}  // extern "C"

namespace sim {

std::optional<int> ChipPortOfGport(int gport) {
  const uint32_t type = static_cast<uint32_t>(gport) >> BCM_GPORT_TYPE_SHIFT;
  const bool localGport =
      type == BCM_GPORT_TYPE_LOCAL && (gport & BCM_GPORT_LOCAL_RESERVED_MASK) == 0;
  const bool thisModuleGport =  // this chip is module 0
      type == BCM_GPORT_TYPE_MODPORT &&
      ((gport >> BCM_GPORT_MODPORT_MODULE_SHIFT) & BCM_GPORT_MODPORT_MODULE_MASK) == 0;
  const int port = (localGport || thisModuleGport) ? gport & BCM_GPORT_LOCAL_PORT_MASK : -1;
  if (port < 0 || port >= Chip::kNumPorts)
    return std::nullopt;
  return port;
}

namespace internal {
namespace {

constexpr bcm_multicast_t kL2GroupType = 0x1000000;
// A chip that lacks packet-priority actions in VLAN translation identifies itself this way.
constexpr uint32_t kChipTypeWithoutPktPrio = 47;

void PublishControl(ChipModel& model) {
  for (auto& slot : soc_control)
    slot = nullptr;
  if (model.unit >= 0 && model.unit < SOC_MAX_NUM_DEVICES)
    soc_control[model.unit] = &model.control;
}

}  // namespace

ChipModel& Model() {
  static ChipModel model;
  return model;
}

void SetChipUnit(int unit) {
  Model().unit = unit;
  PublishControl(Model());
}

void ResetChip() {
  ChipModel& model = Model();
  const int unit = model.unit;
  model = ChipModel{};
  model.unit = unit;
  model.control = soc_control_t{0, 1, 0};
  for (int port = 0; port < Chip::kNumPorts; ++port) {
    model.ports[port].egressClass = static_cast<uint32_t>(port);
  }
  PublishControl(model);
}

std::optional<int> ResolvePort(int portOrGport) {
  const uint32_t type = static_cast<uint32_t>(portOrGport) >> BCM_GPORT_TYPE_SHIFT;
  if (portOrGport < 0 || type != 0)
    return ChipPortOfGport(portOrGport);
  if (portOrGport >= Chip::kNumPorts)  // a plain port number
    return std::nullopt;
  return portOrGport;
}

bool IsVlanNumber(unsigned vlan) {
  return vlan != 0 && vlan <= kMaxVlan;
}

std::string Args(std::initializer_list<std::string> parts) {
  std::string text;
  for (const std::string& part : parts) {
    if (!text.empty())
      text += ", ";
    text += part;
  }
  return text;
}

std::string Dec(long long value) {
  return std::to_string(value);
}

std::string Hex(unsigned long long value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", value);
  return text;
}

std::string PortArg(int port) {
  // Negative values (bit 31 set) print in decimal too.
  return port < (1 << BCM_GPORT_TYPE_SHIFT) ? Dec(port) : Hex(static_cast<uint32_t>(port));
}

std::string Tpid(unsigned value) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%04x", value & 0xffff);
  return text;
}

std::string ActionArg(const bcm_vlan_action_set_t* action) {
  if (action == nullptr)
    return "null";
  std::string text;
  auto field = [&text](const char* name, long long value) {
    if (value == 0)
      return;
    text += text.empty() ? "" : ", ";
    text += std::string(name) + "=" + Dec(value);
  };
  field("new_outer_vlan", action->new_outer_vlan);
  field("new_inner_vlan", action->new_inner_vlan);
  field("new_inner_pkt_prio", action->new_inner_pkt_prio);
  field("priority", action->priority);
  field("outer_tpid", action->outer_tpid);
  field("inner_tpid", action->inner_tpid);
  field("outer_tpid_action", action->outer_tpid_action);
  field("inner_tpid_action", action->inner_tpid_action);
  field("dt_outer", action->dt_outer);
  field("dt_outer_pkt_prio", action->dt_outer_pkt_prio);
  field("dt_inner", action->dt_inner);
  field("dt_inner_pkt_prio", action->dt_inner_pkt_prio);
  field("ot_outer", action->ot_outer);
  field("ot_outer_pkt_prio", action->ot_outer_pkt_prio);
  field("it_outer", action->it_outer);
  field("it_outer_pkt_prio", action->it_outer_pkt_prio);
  field("it_inner", action->it_inner);
  field("it_inner_pkt_prio", action->it_inner_pkt_prio);
  if (action->flags != 0)
    text += (text.empty() ? "flags=" : ", flags=") + Hex(action->flags);
  return "{" + text + "}";
}

std::string ControlArg(const bcm_vlan_control_vlan_t& control) {
  return "{flags=" + Hex(control.flags) +
         ", broadcast_group=" + Hex(static_cast<uint32_t>(control.broadcast_group)) +
         ", dhcp_action=" + Hex(control.protocol_pkt.dhcp_action) + "}";
}

}  // namespace internal

using internal::Model;

std::string SdkCall::Text() const {
  return function + "(" + arguments + ") = " + std::to_string(rc);
}

bcm_multicast_t Chip::CreateVlan(bcm_vlan_t vlan, bool withBroadcastGroup) {
  if (VlanCreationCode(vlan) != BCM_E_NONE)
    throw std::invalid_argument("VLAN " + std::to_string(vlan) +
                                " cannot be created: " + _shr_errmsg[-BCM_E_PARAM]);
  VlanState& state = Model().vlans[vlan];
  state = VlanState{};
  if (withBroadcastGroup) {
    state.control.broadcast_group = internal::kL2GroupType | vlan;
    Model().groups[state.control.broadcast_group];
  }
  return state.control.broadcast_group;
}

int Chip::VlanCreationCode(bcm_vlan_t vlan) {
  return internal::IsVlanNumber(vlan) ? BCM_E_NONE : BCM_E_PARAM;
}

void Chip::DestroyVlan(bcm_vlan_t vlan) {
  auto it = Model().vlans.find(vlan);
  if (it == Model().vlans.end())
    return;
  Model().groups.erase(it->second.control.broadcast_group);
  Model().vlans.erase(it);
}

void Chip::SetControlWords(uint32_t chipType, uint32_t xlatePktPrio, uint32_t familyFlags) {
  Model().control = soc_control_t{chipType, xlatePktPrio, familyFlags};
}

void Chip::SetPacketPriorityCapable(bool capable) {
  if (capable) {
    SetControlWords(0, 1, 0);
  } else {
    SetControlWords(internal::kChipTypeWithoutPktPrio, 0, 0);
  }
}

void Chip::SetReportModuleGports(bool module) {
  Model().reportModuleGports = module;
}

bool Chip::PacketPriorityCapable() const {
  return Model().control.xlate_pkt_prio != 0;
}

bool Chip::ReportsModuleGports() const {
  return Model().reportModuleGports;
}

const PortState& Chip::Port(int port) const {
  return Model().ports.at(port);
}

bool Chip::HasVlan(bcm_vlan_t vlan) const {
  return Model().vlans.count(vlan) != 0;
}

const VlanState& Chip::Vlan(bcm_vlan_t vlan) const {
  return Model().vlans.at(vlan);
}

std::vector<bcm_vlan_t> Chip::Vlans() const {
  std::vector<bcm_vlan_t> vlans;
  for (const auto& entry : Model().vlans)
    vlans.push_back(entry.first);
  return vlans;
}

const std::set<std::pair<bcm_gport_t, bcm_if_t>>& Chip::GroupMembers(bcm_multicast_t group) const {
  return Model().groups.at(group);
}

bcm_if_t Chip::EncapOf(int port) {
  return 0x8000 + port;
}

const std::map<IngressKey, bcm_vlan_action_set_t>& Chip::IngressTable() const {
  return Model().ingress;
}

const std::map<EgressKey, bcm_vlan_action_set_t>& Chip::EgressTable() const {
  return Model().egress;
}

void Chip::FailNext(const std::string& function, int count, int rc) {
  Model().faults[function] = internal::FaultPlan{0, count, rc};
}

void Chip::FailNth(const std::string& function, int nth, int rc) {
  if (nth < 1)
    throw std::invalid_argument("calls are counted from 1");
  Model().faults[function] = internal::FaultPlan{nth - 1, 1, rc};
}

void Chip::ClearFaults() {
  Model().faults.clear();
}

const std::vector<SdkCall>& Chip::Trace() const {
  return Model().trace;
}

std::vector<std::string> Chip::TraceTexts() const {
  std::vector<std::string> texts;
  for (const SdkCall& call : Model().trace)
    texts.push_back(call.Text());
  return texts;
}

std::vector<std::string> Chip::TraceTexts(const std::string& function) const {
  std::vector<std::string> texts;
  for (const SdkCall& call : Model().trace) {
    if (call.function == function)
      texts.push_back(call.Text());
  }
  return texts;
}

void Chip::ClearTrace() {
  Model().trace.clear();
}

void Chip::SetTracing(bool tracing) {
  Model().tracing = tracing;
}

uint64_t Chip::CallCount() const {
  return Model().calls;
}

void Chip::SetNullChip(bool null) {
  Model().nullChip = null;
}

Chip& chip() {
  static Chip instance;
  return instance;
}

void Reset() {
  internal::ResetCommon();
  internal::ResetChip();
  internal::ResetLog();
}

}  // namespace sim
