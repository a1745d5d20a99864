// help COMMAND: what each argument of a command is, and an example line.
#include <algorithm>
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
     "untagged (the default); tag TPID VLAN PCP once or twice, outermost first; then src MAC, "
     "dst MAC, and dhcp or igmp, each optional; hex BYTES, a whole Ethernet frame; or --pcap "
     "IN.pcap [--out DIR], every frame of a capture, with DIR/eth1_49.pcap written for the "
     "frames leaving eth1/49"},
    {"VLAN", "a VLAN number, 1 to 4095"},
    {"LAG", "a declared LAG: lag5"},
    {"seconds", "a number of seconds, 0 to 1000000"},
    {"filter", "a port name, a VLAN or range of VLANs, as the table is keyed"},
    {"file", "a scenario file"},
    {"netns", "a network namespace that 'ip netns' names (default: halbd-sim's own)"},
    {"ifname",
     "the interface's name, at most 15 characters (default: hbd-eth1-1 for eth1/1, hbd-cpu for "
     "cpu)"},
    {"command", "a command name"},
    {"what",
     "result N, frame PORT [TAGS] (also dropped, copies N), unicast PORT, cpu DHCP|IGMP|none, "
     "member vlanN INTF [tagged|untagged], fdb VLAN MAC INTF|absent, or TABLE KEY COLUMN "
     "VALUE"},
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
    {"tap", "tap eth1/1 h1"},
    {"show fdb", "show fdb 10"},
    {"fdb flush", "fdb flush eth1/1"},
    {"fdb age", "fdb age 60"},
    {"wait", "wait 300"},
    {"show counters", "show counters eth1/1 --json"},
    {"show counters vlan", "show counters vlan 10"},
    {"clear counters", "clear counters"},
    {"expect", "expect ports eth1/1 native 10"},
    {"help", "help addMember"},
    {"exit", "exit"},
    {"quit", "quit"},
    {"source", "source examples/lag-uplink.scn"},
    {"show running-config", "show running-config"},
    {"save", "save switch.scn"},
};

// Commands of two words that share their first: what the family does, and what its members are.
struct Family {
  const char* member;
  const char* members;
  const char* summary;
  const char* example;
};
const std::map<std::string, Family> kFamilies = {
    {"show",
     {"table", "tables",
      "print a table of the chip's state or of what the library keeps: aligned text, or with "
      "--json one JSON object; a filter keeps the rows of one interface or range of VLANs; help "
      "show TABLE explains a table",
      "show vlans 10-20"}},
    {"chip",
     {"switch", "switches", "switch a capability of the simulated chip on or off",
      "chip packet-priority off"}},
};

// help FAMILY: its usage, what it does, and each member with its summary.
std::string FamilyHelp(const std::string& first, const Family& family, size_t width) {
  std::ostringstream out;
  std::string synopsis;
  std::vector<const Command*> members;
  for (const Command& command : AllCommands()) {
    const std::vector<std::string> words = NameWords(command.name);
    if (words.size() == 2 && words[0] == first) {
      if (members.empty())  // the family's own, such as show's [filter] [--json]
        synopsis = command.synopsis;
      members.push_back(&command);
    }
  }
  size_t column = 0;
  for (const Command* member : members)
    column = std::max(column, NameWords(member->name)[1].size() + 4);
  out << "usage: " << first << " <" << family.member << "> " << synopsis << '\n';
  PrintWrapped(out, "", family.summary, 2, width);
  out << family.members << ":\n";
  for (const Command* member : members)
    PrintWrapped(out, "  " + NameWords(member->name)[1], member->summary, column, width);
  out << "example: " << family.example << '\n';
  return out.str();
}

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

std::string HelpText(const std::vector<std::string>& words, size_t width) {
  std::ostringstream out;
  const auto family = words.size() == 1 ? kFamilies.find(Lower(words[0])) : kFamilies.end();
  if (words.empty())
    PrintHelp(out, width);
  else if (family != kFamilies.end())
    return FamilyHelp(family->first, family->second, width);
  else
    PrintCommandHelp(out, FindCommand(words, true));
  return out.str();
}

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
