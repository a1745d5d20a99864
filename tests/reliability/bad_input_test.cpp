// Every public operation given its out-of-range and unknown values: it refuses (or, where the
// value has a meaning, fails safe), says why in the log, and leaves the chip and the books as they
// were, except for the values that the services keep on purpose after a failure.
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"
#include "sim/sim_platform.h"
#include "universe.h"

namespace reliability {
namespace {

using ::testing::ElementsAreArray;
using ::testing::UnorderedElementsAreArray;
using Lines = std::vector<std::string>;

enum Result { kRefused, kAccepted, kThrows };

struct BadInput {
  Op op;
  Result result;
  // The exact lines: "log(3): " unless a line says otherwise, and the text of rule n in place of
  // "#n" after a newline.
  Lines log;
  Lines changes;  // "+line" / "-line" of the state dump; nothing else changes
};

// Test names and failure messages name the case by its operation, not by the record's bytes.
void PrintTo(const BadInput& input, std::ostream* os) {
  *os << Describe(input.op);
}

BadInput Refused(Op op, Lines log, Lines changes = {}) {
  return {op, kRefused, std::move(log), std::move(changes)};
}
BadInput Accepted(Op op, Lines changes = {}, Lines log = {}) {
  return {op, kAccepted, std::move(log), std::move(changes)};
}
// The std::out_of_range of an unknown LAG reaches the caller.
BadInput Throws(Op op, Lines changes = {}) {
  return {op, kThrows, {}, std::move(changes)};
}

const BadInput kBadInputs[] = {
    // ---- Values out of range
    Refused({kSetNativeVlan, P1, kNative4096},
            {"Error setting eth1/1 native VLAN id(4096): Invalid VLAN range."}),
    Refused({kSetNativeVlan, L1, kNative4096},
            {"Error setting lag1 native VLAN id(4096): Invalid VLAN range."}),
    Refused({kSetPrio, P1, kPcp8},
            {"Error setting eth1/1 default priority(8): Invalid PCP range."}),
    Refused({kSetPrio, L1, kPcp8}, {"Error setting lag1 default priority(8): Invalid PCP range."}),
    Refused({kSetQinQ, P1, kQinQMode2},
            {"SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode: bad argument."}),
    // A LAG's mode is refused by its member.
    Refused({kSetQinQ, L1, kQinQMode2},
            {"SetVlanQinQByPort: Error setting eth1/2 VLAN QinQ mode: bad argument."}),
    // An unknown frame type fails safe: everything is discarded (mode 1).
    Accepted({kSetFrameType, P1, kFrameType7},
             {"bcm_port_discard_set(0, 0x4000001, 1) = 0", "+frame-type eth1/1 7"}),
    Refused({kAddRule, P1, kIngress, kUnknownOperation},
            {"GetIngressVlanXlateAction() invalid ingress VLAN translate action: Unknown",
             "InstallIngressVlanMappingRule() failed to get BCM VLAN translate action for eth1/1",
             "log(6): VLAN translate rule:\n#5\nQinQ: disable"}),
    Refused({kAddRule, P1, kEgress, kUnknownOperation},
            {"GetEgressVlanXlateAction() invalid egress VLAN translate action: Unknown",
             "InstallEgressVlanMappingRule() failed to get BCM VLAN translate action for eth1/1",
             "log(6): VLAN translate rule:\n#5"}),
    Refused({kAddRule, P1, kEgress, kAdd101},
            {"GetEgressVlanXlateAction() invalid egress VLAN translate action: Add",
             "InstallEgressVlanMappingRule() failed to get BCM VLAN translate action for eth1/1",
             "log(6): VLAN translate rule:\n#1"}),
    // Operation 7 installs an empty action.
    Accepted({kAddRule, P1, kIngress, kInvalidOperation},
             {"bcm_vlan_translate_action_add(0, 0x4000001, 8, 106, 0, {flags=0x4}) = 0",
              "+rule ingress eth1/1 #6"}),
    Accepted({kAddRule, P1, kEgress, kInvalidOperation},
             {"bcm_vlan_translate_egress_action_add(0, 1, 106, 0, {flags=0x8}) = 0",
              "+rule egress eth1/1 #6"}),
    Accepted({kAddRule, P1, kStage2, kReplace100}),
    Accepted({kDeleteRule, P1, kStage2, kReplace100}),
    Refused({kAddProperty, V10, kProperty2, kDhcpToCpu}, {"Unsupported property 2"}),
    Refused({kRemoveProperty, V10, kPropertyMinus1, kDhcpToCpu}, {"Unsupported property -1"}),
    // A DHCP value without a known bit writes the action back unchanged.
    Accepted({kAddProperty, V10, kDhcp, kDhcpOtherBit},
             {"bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, {flags=0x0, "
              "broadcast_group=0x0, dhcp_action=0x0}) = 0"}),
    // ---- Unknown ports (a refused TPID, frame type or block is still kept)
    Refused({kSetNativeVlan, kUnknownPort, kNative10},
            {"Error setting eth1/9 native VLAN id(10): HAL ID not found."}),
    Refused({kSetPrio, kUnknownPort, kPcp3},
            {"Error setting eth1/9 default priority: HAL ID not found."}),
    Refused({kSetQinQ, kUnknownPort, kQinQOn},
            {"SetVlanQinQByPort: Error setting eth1/9 VLAN QinQ mode: HAL ID not found."}),
    Refused({kSetTpid, kUnknownPort, kTpid88a8},
            {"[HAL-BP] Error setting eth1/9 outer TPID: HAL ID not found."},
            {"+tpid eth1/9 0x88a8"}),
    Refused({kSetInnerTpid, kUnknownPort, kTpid88a8},
            {"Error setting eth1/9 inner TPID: HAL ID not found."}),
    Refused({kSetFrameType, kUnknownPort, kTaggedOnly},
            {"[HAL-BP] Error getting device id port for: eth1/9 -  HAL ID not found.",
             "Error setting eth1/9 acceptable frame type 1."},
            {"+frame-type eth1/9 1"}),
    Refused({kBlock, kUnknownPort, kOn, kStlp},
            {"[HAL-BP] Error getting device id port for: eth1/9 -  HAL ID not found.",
             "Error blocking interface eth1/9."},
            {"+blocked eth1/9 1"}),
    Refused({kAddRule, kUnknownPort, kIngress, kReplace100},
            {"InstallIngressVlanMappingRule() failed to get BCM gport for eth1/9: HAL ID not found",
             "log(6): VLAN translate rule:\n#0\nQinQ: disable"}),
    Refused({kAddRule, kUnknownPort, kEgress, kReplace100},
            {"InstallEgressVlanMappingRule() failed to get BCM gport for eth1/9: HAL ID not found",
             "log(6): VLAN translate rule:\n#0"}),
    Accepted({kDeleteRule, kUnknownPort, kIngress, kReplace100}, {},
             {"log(6): Skipping deletion of already inexistent ingress VLAN translate rule:\n#0"}),
    Refused({kAddMember, V10, kUnknownPort, kTagged}, {"HAL ID not found: eth1/9."}),
    Refused({kDelMember, V10, kUnknownPort}, {"HAL ID not found: eth1/9."}),
    Refused({kIsMember, V10, kUnknownPort},
            {"Error looking for eth1/9 at vlan10: HAL ID not found."}),
    // ---- A VLAN the chip does not have (a removal leaves its empty entry in the shared table)
    Refused({kAddMember, kAbsentVlan, P1, kTagged},
            {"Error getting VLAN properties from VLAN 4000: Entry not found.",
             "Error adding gport 0x04000001 to VLAN 4000 Replication Group."}),
    Refused({kDelMember, kAbsentVlan, P1},
            {"Error getting VLAN properties from VLAN 4000: Entry not found.",
             "Error removing gport 0x04000001 from VLAN 4000 Replication Group."},
            {"+shared vlan4000"}),
    Refused({kDelAllMembers, kAbsentVlan},
            {"Error getting VLAN properties from VLAN vlan4000: Entry not found."}),
    Accepted({kIsMember, kAbsentVlan, P1}),
    Accepted({kGetMembers, kAbsentVlan}),
    Refused({kAddProperty, kAbsentVlan, kDhcp, kDhcpToCpu},
            {"Error getting vlan control of 4000: Entry not found."}),
    Refused({kRemoveProperty, kAbsentVlan, kIgmp, kDhcpToCpu},
            {"Error getting vlan control of 4000: Entry not found."}),
    // ---- Unknown LAGs
    Refused({kSetNativeVlan, kUnknownLag, kNative10},
            {"Error setting lag9 native VLAN id(10): LAG not found."}),
    Refused({kSetPrio, kUnknownLag, kPcp3},
            {"Error setting lag9 default priority(3): LAG not found."}),
    Refused({kSetQinQ, kUnknownLag, kQinQOn},
            {"Error setting lag9 VLAN Q-in-Q mode: LAG not found."}),
    Throws({kSetTpid, kUnknownLag, kTpid88a8}),
    Throws({kSetFrameType, kUnknownLag, kTaggedOnly}, {"+frame-type lag9 1"}),
    Throws({kAddMember, V10, kUnknownLag, kTagged}),
    Refused({kDelMember, V10, kUnknownLag}, {"delMember Couldn't find members for LAG lag9. Likely "
                                             "already removed by Lag orchestrator"}),
    Refused({kSetInnerTpid, kUnknownLag, kTpid88a8},
            {"Error setting lag9 inner TPID: HAL ID not found."}),
    Refused({kAddRule, kUnknownLag, kIngress, kReplace100},
            {"InstallIngressVlanMappingRule() failed to get BCM gport for lag9: HAL ID not found",
             "log(6): VLAN translate rule:\n#0\nQinQ: disable"}),
    // ---- Blocking: ports only, and only by the one client named exactly
    Refused({kBlock, L1, kOn, kStlp}, {"[HAL-BP] Only ethernet type port block is allowed."}),
    Refused({kBlock, P1, kOn, kStlpTrailingBlank},
            {"[HAL-BP] Discard port of interface (eth1/1) not allowed for low-level client "
             "(hal-stlp )"}),
    Refused({kBlock, P1, kOn, kStlpUpperCase}, {"[HAL-BP] Discard port of interface (eth1/1) not "
                                                "allowed for low-level client (HAL-STLP)"}),
};

// A switch in service: an access port, a LAG with a member in a VLAN, a rule, LAG attributes.
const Op kSetUp[] = {
    {kAddMember, V10, P1, kUntagged}, {kJoinLag, L1, P2},
    {kAddMember, V20, L1, kTagged},   {kAddRule, P1, kIngress, kReplace100},
    {kSetTpid, L1, kTpid88a8},        {kSetNativeVlan, L1, kNative20},
};

std::string Name(limid_t id) {
  return sim::NameOf(id);
}

int RuleIndex(const vlanxlate::VlanMapping& rule) {
  for (uint8_t i = 0; i < kRuleCount; ++i) {
    if (!(rule < RuleAt(i)) && !(RuleAt(i) < rule))
      return i;
  }
  return -1;
}

// One line per fact of the books.
std::set<std::string> Dump() {
  std::set<std::string> lines;
  const auto add = [&lines](const auto&... parts) {
    std::ostringstream line;
    (line << ... << parts);
    lines.insert(line.str());
  };
  HalBcmBridgePortInspector port(Port());
  for (const auto& [stage, store] : {std::pair("ingress ", &port.ingressVlanMappings()),
                                     std::pair("egress ", &port.egressVlanMappings())}) {
    for (const auto& [id, rules] : *store) {
      for (const auto& rule : rules)
        add("rule ", stage, Name(id), " #", RuleIndex(rule));
    }
  }
  const auto addMap = [&add](const char* what, const auto& map) {
    for (const auto& [id, value] : map)
      add(what, Name(id), " ", +value);
  };
  addMap("native ", port.nativeVlans());
  addMap("priority ", port.untaggedPrios());
  addMap("frame-type ", port.acceptableFrameTypes());
  addMap("blocked ", port.blockedPorts());
  for (const auto& [id, tpid] : port.tpids())
    add("tpid ", Name(id), " 0x", std::hex, tpid);
  for (const limid_t& id : port.qinqPorts())
    add("qinq ", Name(id));
  HalBcmBridgeDomainInspector domain(Domain());
  for (const auto& [lag, bridgeDomains] : domain.lagMembership())
    addMap(("lag " + Name(lag) + " ").c_str(), bridgeDomains);
  for (const auto& [intf, info] : domain.intfInfo()) {
    add("intf ", Name(intf), " inLAG ", info.inLAG);
    addMap(("intf " + Name(intf) + " ").c_str(), info.bridgeDomains);
  }
  for (const auto& [vlan, members] : sim::common().VlanMembers()) {
    add("shared vlan", vlan);
    addMap(("shared vlan" + std::to_string(vlan) + " ").c_str(), members);
  }
  return lines;
}

// The lines of the books' dump that went (-) and came (+), and the chip's writes: the chip
// changes only through SDK calls that succeed, and its reads change nothing.
Lines Changes(const std::set<std::string>& before, const std::set<std::string>& after) {
  Lines changes;
  for (const sim::SdkCall& call : sim::chip().Trace()) {
    if (call.rc >= 0 && call.function.find("_get") == std::string::npos)
      changes.push_back(call.Text());
  }
  for (const std::string& line : before) {
    if (!after.count(line))
      changes.push_back("-" + line);
  }
  for (const std::string& line : after) {
    if (!before.count(line))
      changes.push_back("+" + line);
  }
  return changes;
}

// The full log line: its prefix, and the text of rule n in place of "#n" after a newline.
std::string LogLine(std::string line) {
  if (line.rfind("log(", 0) != 0)
    line = "log(3): " + line;
  const size_t at = line.find("\n#");
  if (at == std::string::npos)
    return line;
  const size_t end = line.find('\n', at + 1);
  std::ostringstream text;
  text << RuleAt(static_cast<uint8_t>(std::stoi(line.substr(at + 2, end - at - 2))));
  return line.substr(0, at + 1) + text.str() + (end == std::string::npos ? "" : line.substr(end));
}

class BadInputTest : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputTest, IsRefusedWithItsMessageAndChangesNothingElse) {
  const BadInput& input = GetParam();
  Reset();
  for (const Op& op : kSetUp)
    ASSERT_FALSE(Apply(op).failed) << Describe(op);
  sim::halLog().Clear();
  sim::chip().ClearTrace();
  const std::set<std::string> before = Dump();

  const Outcome outcome = Apply(input.op);

  EXPECT_EQ(outcome.threw    ? kThrows
            : outcome.failed ? kRefused
                             : kAccepted,
            input.result)
      << outcome.exception;
  EXPECT_TRUE(!outcome.threw || outcome.outOfRange) << outcome.exception;
  Lines log = input.log;
  std::transform(log.begin(), log.end(), log.begin(), LogLine);
  EXPECT_THAT(sim::halLog().Lines(), ElementsAreArray(log));
  EXPECT_THAT(Changes(before, Dump()), UnorderedElementsAreArray(input.changes));
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, BadInputTest, ::testing::ValuesIn(kBadInputs),
                         [](const ::testing::TestParamInfo<BadInput>& info) {
                           std::string name = Describe(info.param.op);
                           for (char& c : name)
                             c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

}  // namespace
}  // namespace reliability
