// The show commands: the simulated chip's state, the LAGs and the shared VLAN member table as
// aligned tables, and the SDK call trace.
#include <cstdio>

#include "commands.h"
#include "hal_bcm_common.h"
#include "sim/sim_platform.h"
#include "table.h"

namespace halbdsim {

namespace {

std::string Tpid(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04x", value);
  return text;
}

std::string Named(int value, const std::vector<const char*>& names) {
  if (value >= 0 && static_cast<size_t>(value) < names.size())
    return names[value];
  return std::to_string(value);
}

std::string DtagMode(int mode) {
  return Named(mode, {"none", "internal", "external"});
}
std::string Discard(int mode) {
  return Named(mode, {"none", "all", "untag", "tag"});
}

std::string TranslateKey(int key) {
  switch (key) {
    case bcmVlanTranslateKeyInvalid:
      return "-";
    case bcmVlanTranslateKeyPortDouble:
      return "double";
    case bcmVlanTranslateKeyPortOuter:
      return "outer";
    case bcmVlanTranslateKeyPortInner:
      return "inner";
  }
  return std::to_string(key);
}

// The port's two ingress lookup keys, "-" while neither was set.
std::string LookupKeys(int first, int second) {
  if (first == bcmVlanTranslateKeyInvalid && second == bcmVlanTranslateKeyInvalid)
    return "-";
  return TranslateKey(first) + "," + TranslateKey(second);
}

// The fields of an action record that are set, as the trace lists them, with the tag and TPID
// actions named.
std::string DescribeAction(const bcm_vlan_action_set_t& a) {
  std::string text;
  auto add = [&text](const char* name, const std::string& value) {
    text += (text.empty() ? "" : " ") + std::string(name) + "=" + value;
  };
  auto number = [&add](const char* name, long long value) {
    if (value != 0)
      add(name, std::to_string(value));
  };
  auto tagAction = [&add](const char* name, int value) {
    if (value != 0)
      add(name, Named(value, {"none", "add", "replace", "delete", "copy"}));
  };
  auto tpidAction = [&add](const char* name, int value) {
    if (value != 0)
      add(name, Named(value, {"none", "modify"}));
  };
  number("new_outer_vlan", a.new_outer_vlan);
  number("new_inner_vlan", a.new_inner_vlan);
  number("new_inner_pkt_prio", a.new_inner_pkt_prio);
  number("priority", a.priority);
  if (a.outer_tpid != 0)
    add("outer_tpid", Tpid(a.outer_tpid));
  if (a.inner_tpid != 0)
    add("inner_tpid", Tpid(a.inner_tpid));
  tpidAction("outer_tpid_action", a.outer_tpid_action);
  tpidAction("inner_tpid_action", a.inner_tpid_action);
  tagAction("dt_outer", a.dt_outer);
  tagAction("dt_outer_pkt_prio", a.dt_outer_pkt_prio);
  tagAction("dt_inner", a.dt_inner);
  tagAction("dt_inner_pkt_prio", a.dt_inner_pkt_prio);
  tagAction("ot_outer", a.ot_outer);
  tagAction("ot_outer_pkt_prio", a.ot_outer_pkt_prio);
  tagAction("it_outer", a.it_outer);
  tagAction("it_outer_pkt_prio", a.it_outer_pkt_prio);
  tagAction("it_inner", a.it_inner);
  tagAction("it_inner_pkt_prio", a.it_inner_pkt_prio);
  if (a.flags != 0)
    add("flags", Hex(a.flags));
  return text;
}

std::string Join(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text.empty() ? "-" : text;
}

bool IsLag(limid_t id) {
  return static_cast<sim::IdKind>(id.bytes[0]) == sim::IdKind::Lag;
}

// The LAG whose member list holds the port, "-" for none.
std::string LagOf(const Session& session, limid_t port) {
  for (const auto& [id, declared] : session.Declared()) {
    if (IsLag(id) && sim::common().HasLag(id) &&
        HalBcmCommon::GetInstance()->GetLagMembers(id).count(port) != 0) {
      return sim::NameOf(id);
    }
  }
  return "-";
}

Table PortTable(const Session& session) {
  Table table({"port", "gport", "lag", "tpid", "inner-tpid", "native", "prio", "dtag", "discard",
               "class", "keys"});
  for (const auto& [id, declared] : session.Declared()) {
    if (!declared.gport)
      continue;
    const std::optional<int> chipPort = ChipPortOfGport(*declared.gport);
    if (IsLag(id) || !chipPort)
      continue;
    const sim::PortState& state = sim::chip().Port(*chipPort);
    table.AddRow({sim::NameOf(id), Hex(static_cast<unsigned>(*declared.gport)), LagOf(session, id),
                  Tpid(state.outerTpid), Tpid(state.innerTpid), std::to_string(state.untaggedVlan),
                  std::to_string(state.untaggedPriority), DtagMode(state.dtagMode),
                  Discard(state.discardMode), std::to_string(state.egressClass),
                  LookupKeys(state.keyFirst, state.keySecond)});
  }
  return table;
}

std::string DhcpAction(uint32_t action) {
  std::vector<std::string> words;
  if (action & HAL_VLAN_PROP_DHCP_TO_CPU)
    words.push_back("to-cpu");
  if (action & HAL_VLAN_PROP_DHCP_DROP)
    words.push_back("drop");
  const uint32_t others = action & ~(HAL_VLAN_PROP_DHCP_TO_CPU | HAL_VLAN_PROP_DHCP_DROP);
  if (others != 0)
    words.push_back(Hex(others));
  return Join(words);
}

Table VlanTable(const Session& session) {
  Table table(
      {"vlan", "untagged", "tagged", "broadcast-group", "group-members", "dhcp", "igmp-snooping"});
  for (bcm_vlan_t vlan : sim::chip().Vlans()) {
    const sim::VlanState& state = sim::chip().Vlan(vlan);
    std::vector<std::string> untagged;
    std::vector<std::string> tagged;
    for (const auto& [port, isUntagged] : state.members) {
      (isUntagged ? untagged : tagged).push_back(session.NameOfChipPort(port));
    }
    const bcm_multicast_t group = state.control.broadcast_group;
    std::vector<std::string> groupMembers;
    if (group != 0) {
      for (const auto& member : sim::chip().GroupMembers(group)) {
        const std::optional<int> port = ChipPortOfGport(member.first);
        groupMembers.push_back(port ? session.NameOfChipPort(*port)
                                    : Hex(static_cast<unsigned>(member.first)));
      }
    }
    table.AddRow({std::to_string(vlan), Join(untagged), Join(tagged),
                  group != 0 ? Hex(static_cast<unsigned>(group)) : "-", Join(groupMembers),
                  DhcpAction(state.control.protocol_pkt.dhcp_action),
                  (state.control.flags & BCM_VLAN_IGMP_SNOOP_DISABLE) ? "off" : "on"});
  }
  return table;
}

Table IngressTable(const Session& session) {
  Table table({"port", "key", "outer", "inner", "action"});
  for (const auto& [key, action] : sim::chip().IngressTable()) {
    table.AddRow(
        {key.trunk ? session.NameOfTrunk(key.portOrTrunk) : session.NameOfChipPort(key.portOrTrunk),
         TranslateKey(key.keyType), std::to_string(key.outerVlan), std::to_string(key.innerVlan),
         DescribeAction(action)});
  }
  return table;
}

Table EgressTable(const Session& session) {
  Table table({"class", "ports", "outer", "inner", "action"});
  for (const auto& [key, action] : sim::chip().EgressTable()) {
    std::vector<std::string> ports;
    for (const auto& [id, declared] : session.Declared()) {
      const std::optional<int> chipPort =
          declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
      if (!IsLag(id) && chipPort &&
          sim::chip().Port(*chipPort).egressClass == static_cast<uint32_t>(key.portClass)) {
        ports.push_back(sim::NameOf(id));
      }
    }
    table.AddRow({std::to_string(key.portClass), Join(ports), std::to_string(key.outerVlan),
                  std::to_string(key.innerVlan), DescribeAction(action)});
  }
  return table;
}

Table LagTable(const Session& session) {
  Table table({"lag", "trunk", "gport", "members"});
  for (const auto& [id, declared] : session.Declared()) {
    if (!IsLag(id))
      continue;
    std::vector<std::string> members;
    if (sim::common().HasLag(id)) {
      for (const limid_t& member : HalBcmCommon::GetInstance()->GetLagMembers(id)) {
        members.push_back(sim::NameOf(member));
      }
    }
    table.AddRow({sim::NameOf(id), std::to_string(declared.trunkId),
                  Hex(static_cast<unsigned>(*declared.gport)),
                  sim::common().HasLag(id) ? Join(members) : "(deleted)"});
  }
  return table;
}

Table MemberTable() {
  Table table({"vlan", "untagged", "tagged"});
  for (const auto& [vlan, members] : sim::common().VlanMembers()) {
    std::vector<std::string> untagged;
    std::vector<std::string> tagged;
    for (const auto& [id, isTagged] : members) {
      (isTagged ? tagged : untagged).push_back(sim::NameOf(id));
    }
    table.AddRow({std::to_string(vlan), Join(untagged), Join(tagged)});
  }
  return table;
}

void PrintLines(Session& session, const std::vector<std::string>& lines) {
  for (const std::string& line : lines)
    session.Print(line);
}

Command Show(const std::string& what, const std::string& summary, Table (*build)(const Session&)) {
  return {"show " + what, "", summary, [build](const Session&, Arguments& args) -> Action {
            args.ExpectEnd();
            return [build](Session& s) { PrintLines(s, build(s).Lines()); };
          }};
}

}  // namespace

std::vector<Command> ShowCommands() {
  return {
      Show("ports",
           "per declared port of the chip: TPIDs, native VLAN, priority, modes, class, keys",
           PortTable),
      Show("vlans", "per chip VLAN: members, broadcast group, DHCP action, IGMP snooping",
           VlanTable),
      Show("ingress", "the ingress VLAN translation table", IngressTable),
      Show("egress", "the egress VLAN translation table, keyed by port class", EgressTable),
      Show("lags", "the declared LAGs and their member lists", LagTable),
      Show("member-table", "the shared VLAN member table that other HAL modules read",
           [](const Session&) { return MemberTable(); }),
      {"show trace", "", "the SDK calls since the last show trace",
       [](const Session&, Arguments& args) -> Action {
         args.ExpectEnd();
         return [](Session& s) { PrintLines(s, s.TakeTrace()); };
       }},
  };
}

}  // namespace halbdsim

namespace halbdsim {

std::string ShowLegend(const std::string& commandName) {
  if (commandName != "show ports")
    return "";
  return "legend:\n"
         "  admits: frames the port takes in: all, tagged-only, untagged-only, none\n"
         "  qinq: on when the port adds an outer tag (chip dtag external)\n"
         "  dtag: the chip's double-tag mode: none, internal, external (Q-in-Q)\n"
         "  discard: what the chip drops on ingress: none, all, untag (untagged frames), tag\n"
         "    (tagged frames)\n"
         "  class: the egress class keying egress translation (a LAG's members share one)\n"
         "  keys: the two ingress translation lookups: double (outer and inner VLAN), outer,\n"
         "    inner\n";
}

}  // namespace halbdsim
