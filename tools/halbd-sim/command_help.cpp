// help COMMAND: what each argument of a command is, and an example line.
#include <map>
#include <sstream>

#include "commands.h"
#include "line_reader.h"

namespace halbdsim {

const char* const kNamesHelp =
    "NAMES: eth<slot>/<port>, lag<n>, vlan<n>; numbers decimal or 0x hex; '#' starts a comment\n"
    "RANGES: vlan 10-20, addMember vlan10-20 eth1/1 tagged, delMember vlan10-20 eth1/1";

namespace {

// The arguments that synopses name, and what they take.
const std::map<std::string, std::string> kArguments = {
    {"id", "a declared port or LAG: eth1/1, lag5"},
    {"intf", "a declared port or LAG: eth1/1, lag5"},
    {"port", "a declared port: eth1/1"},
    {"member", "a declared port: eth1/1"},
    {"lag", "a declared LAG: lag5"},
    {"name",
     "the name to declare (eth<slot>/<port> for port, lag<n> for lag); for a client, its "
     "name"},
    {"bridgeDomain", "a VLAN as vlan<n>, or a range vlan10-20 where the command takes one"},
    {"vlan", "a VLAN number, 0 to 4095; vlan also takes a range 10-20"},
    {"vlanId", "the VLAN number the bridge domain stands for (default: that of its name)"},
    {"tagged", "tagged or untagged (also true or false)"},
    {"attributes", "a number handed to the library as is (default 0)"},
    {"type", "all, tagged-only, untagged-only, or a raw number"},
    {"mode", "disable, enable, or a raw number"},
    {"pcp", "a priority, 0 to 7 (larger values are refused by the library)"},
    {"tpid", "a TPID, e.g. 0x8100 or 0x88a8"},
    {"block", "true to block, false to unblock"},
    {"client", "the client asking; only hal-stlp may block"},
    {"stage", "ingress or egress"},
    {"RULE",
     "[match [outer TAG] [inner TAG]] OPERATION [outer TAG] [inner TAG] (help lists the "
     "syntax)"},
    {"property", "dhcp or igmp-snooping"},
    {"value", "for dhcp: to-cpu, drop or a number"},
    {"gport", "local P, module M P, or none (in no identifier table)"},
    {"trunkId", "the chip's trunk number of the LAG"},
    {"function", "an SDK function the library calls, e.g. bcm_vlan_gport_add (Tab lists them)"},
    {"count", "how many calls fail, 1 or more"},
    {"nth", "which call from now fails, 1 for the next"},
    {"rc", "the SDK code the call returns, e.g. -4 bad parameter, -7 not found, -8 exists"},
    {"priority", "the client's priority; clients are told in ascending (priority, name) order"},
    {"events", "none, vlan_add, vlan_remove or both"},
    {"FRAME",
     "untagged (the default); tag TPID VLAN PCP once or twice, outermost first; hex BYTES, a "
     "whole Ethernet frame; or --pcap IN.pcap [--out DIR], every frame of a capture, with "
     "DIR/eth1_49.pcap written for the frames leaving eth1/49"},
    {"filter", "a port name, a VLAN or range of VLANs, as the table is keyed"},
    {"file", "a scenario file"},
    {"command", "a command name"},
    {"what",
     "result N, frame PORT [TAGS] (also dropped), member vlanN INTF [tagged|untagged], "
     "or TABLE KEY COLUMN VALUE"},
};

// One line that runs, for each command.
const std::map<std::string, std::string> kExamples = {
    {"port", "port eth1/1 local 1"},
    {"lag", "lag lag5 5"},
    {"vlan", "vlan 10-20"},
    {"chip packet-priority", "chip packet-priority off"},
    {"chip module-gports", "chip module-gports on"},
    {"fail", "fail bcm_vlan_gport_add 1 -6"},
    {"fail-nth", "fail-nth bcm_port_tpid_set 2 -4"},
    {"clear-faults", "clear-faults"},
    {"trace", "trace on"},
    {"SetAcceptableFrameType", "SetAcceptableFrameType eth1/1 tagged-only"},
    {"SetNativeVlan", "SetNativeVlan eth1/1 10"},
    {"SetPrio4Untagged", "SetPrio4Untagged lag5 3"},
    {"SetVlanQinQ", "SetVlanQinQ eth1/1 enable"},
    {"SetTpid", "SetTpid lag5 0x88a8"},
    {"SetInnerTpid", "SetInnerTpid eth1/1 0x8100"},
    {"BlockPort", "BlockPort eth1/2 true hal-stlp"},
    {"GetTpid", "GetTpid eth1/1"},
    {"AddVlanMappingRule", "AddVlanMappingRule eth1/1 ingress match outer 100 replace outer 200"},
    {"DeleteVlanMappingRule",
     "DeleteVlanMappingRule eth1/1 ingress match outer 100 replace outer 200"},
    {"create", "create vlan10"},
    {"destroy", "destroy vlan10"},
    {"addMember", "addMember vlan10-20 eth1/1 tagged"},
    {"isMember", "isMember vlan10 eth1/1"},
    {"delMember", "delMember vlan10-20 eth1/1"},
    {"delAllMembers", "delAllMembers vlan10"},
    {"getNumMembers", "getNumMembers vlan10"},
    {"getMembers", "getMembers vlan10"},
    {"AddPropertyValue", "AddPropertyValue vlan10 dhcp to-cpu"},
    {"RemovePropertyValue", "RemovePropertyValue vlan10 igmp-snooping"},
    {"memberAdded", "memberAdded lag5 eth1/3"},
    {"memberDeleted", "memberDeleted lag5 eth1/3"},
    {"lagDeleted", "lagDeleted lag5"},
    {"RegisterClient", "RegisterClient 200 igmp-snooping"},
    {"DeregisterClient", "DeregisterClient 200 igmp-snooping"},
    {"refuse", "refuse 200 igmp-snooping vlan_add"},
    {"frame", "frame eth1/1 tag 0x8100 10 3 --trace"},
    {"expect", "expect ports eth1/1 native 10"},
    {"help", "help addMember"},
    {"exit", "exit"},
    {"quit", "quit"},
    {"source", "source examples/lag-uplink.scn"},
    {"show running-config", "show running-config"},
    {"save", "save switch.scn"},
};

// The argument names of a synopsis: "<id>", "[vlanId]", "on|off" and "RULE" give id, vlanId,
// on|off and RULE.
std::vector<std::string> ArgumentNames(const std::string& synopsis) {
  std::vector<std::string> names;
  for (std::string word : NameWords(synopsis)) {
    word.erase(0, word.find_first_not_of("<["));
    word.erase(word.find_last_not_of(">]") + 1);
    names.push_back(word);
  }
  return names;
}

}  // namespace

void PrintCommandHelp(std::ostream& out, const Command& command) {
  out << "usage: " << Usage(command) << '\n';
  PrintWrapped(out, "", command.summary, 2, 80);
  bool first = true;
  for (const std::string& name : ArgumentNames(command.synopsis)) {
    const auto argument = kArguments.find(name);
    if (argument == kArguments.end())
      continue;
    out << (first ? "arguments:\n" : "");
    PrintWrapped(out, "  " + name + ":", argument->second, 16, 80);
    first = false;
  }
  if (command.name.rfind("show ", 0) == 0) {
    PrintWrapped(out, "  --json:", "the table as one JSON document", 16, 80);
    out << ShowLegend(command.name);
  }
  const auto example = kExamples.find(command.name);
  if (example != kExamples.end())
    out << "example: " << example->second << '\n';
}

}  // namespace halbdsim
