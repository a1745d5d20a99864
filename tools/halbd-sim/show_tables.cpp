// The show commands: the simulated chip's state, the LAGs and the shared VLAN member table as
// aligned tables, and the SDK call trace.
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "commands.h"
#include "hal_bcm_common.h"
#include "library_books.h"
#include "line_reader.h"
#include "rule_syntax.h"
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

// Typed cells: the value a program reads, beside the text.
Cell Number(long long value) {
  return {std::to_string(value), value};
}
Cell Names(const std::vector<std::string>& names) {
  return {Join(names), names};
}
Cell Flag(bool on) {
  return {on ? "yes" : "-", on};
}
const Cell kNone{"-", nullptr};

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

// The frames a port takes in, by the chip's discard mode.
std::string Admits(int discardMode) {
  return Named(discardMode, {"all", "none", "tagged-only", "untagged-only"});
}

std::string QinQ(int dtagMode) {
  return Named(dtagMode, {"off", "internal", "on"});
}

Table PortTable(const Session& session) {
  Table table({"port",
               {"gport", ColumnKind::Number},
               "lag",
               "admits",
               "qinq",
               {"blocked", ColumnKind::Flag},
               "frame-type",
               {"tpid", ColumnKind::Number},
               {"inner-tpid", ColumnKind::Number},
               {"native", ColumnKind::Number},
               {"prio", ColumnKind::Number},
               "dtag",
               "discard",
               {"class", ColumnKind::Number},
               "keys"});
  for (const auto& [id, declared] : session.Declared()) {
    if (!declared.gport)
      continue;
    const std::optional<int> chipPort = ChipPortOfGport(*declared.gport);
    if (IsLag(id) || !chipPort)
      continue;
    const sim::PortState& state = sim::chip().Port(*chipPort);
    const KeptAttributes kept = KeptFor(id);
    table.AddRow({sim::NameOf(id), Hex(static_cast<unsigned>(*declared.gport)), LagOf(session, id),
                  Admits(state.discardMode), QinQ(state.dtagMode),
                  kept.blocked.value_or(false) ? "yes" : "-",
                  FrameTypeName(kept.frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES)),
                  Tpid(state.outerTpid), Tpid(state.innerTpid), std::to_string(state.untaggedVlan),
                  std::to_string(state.untaggedPriority), DtagMode(state.dtagMode),
                  Discard(state.discardMode), std::to_string(state.egressClass),
                  LookupKeys(state.keyFirst, state.keySecond)});
  }
  return session.Live().WithInterfaces(table);
}

// Per port, its chip VLANs and whether it sends them untagged, and which is its native VLAN.
Table PortVlanTable(const Session& session) {
  Table table({"port", "vlan", "tagging", "native"});
  for (const auto& [id, declared] : session.Declared()) {
    const std::optional<int> chipPort =
        declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
    if (IsLag(id) || !chipPort)
      continue;
    const unsigned native = sim::chip().Port(*chipPort).untaggedVlan;
    bool any = false;
    for (bcm_vlan_t vlan : sim::chip().Vlans()) {
      const auto& members = sim::chip().Vlan(vlan).members;
      const auto member = members.find(*chipPort);
      if (member == members.end())
        continue;
      table.AddRow({sim::NameOf(id), Number(vlan), member->second ? "untagged" : "tagged",
                    Flag(vlan == native)});
      any = true;
    }
    if (!any)
      table.AddRow({sim::NameOf(id), kNone, kNone, Flag(false)});
  }
  return table;
}

std::vector<std::string> DhcpAction(uint32_t action) {
  std::vector<std::string> words;
  if (action & HAL_VLAN_PROP_DHCP_TO_CPU)
    words.push_back("to-cpu");
  if (action & HAL_VLAN_PROP_DHCP_DROP)
    words.push_back("drop");
  const uint32_t others = action & ~(HAL_VLAN_PROP_DHCP_TO_CPU | HAL_VLAN_PROP_DHCP_DROP);
  if (others != 0)
    words.push_back(Hex(others));
  return words;
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
    table.AddRow({Number(vlan), Names(untagged), Names(tagged),
                  group != 0 ? Cell{Hex(static_cast<unsigned>(group)), group} : kNone,
                  Names(groupMembers), Names(DhcpAction(state.control.protocol_pkt.dhcp_action)),
                  (state.control.flags & BCM_VLAN_IGMP_SNOOP_DISABLE) ? "off" : "on"});
  }
  return table;
}

Table IngressTable(const Session& session) {
  Table table({"port", "key", "outer", "inner", "action"});
  for (const auto& [key, action] : sim::chip().IngressTable()) {
    table.AddRow(
        {key.trunk ? session.NameOfTrunk(key.portOrTrunk) : session.NameOfChipPort(key.portOrTrunk),
         TranslateKey(key.keyType), Number(key.outerVlan), Number(key.innerVlan),
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
    table.AddRow({Number(key.portClass), Names(ports), Number(key.outerVlan), Number(key.innerVlan),
                  DescribeAction(action)});
  }
  return table;
}

std::string Rules(const std::vector<vlanxlate::VlanMapping>& rules) {
  std::string text;
  for (const vlanxlate::VlanMapping& rule : rules)
    text += (text.empty() ? "" : "; ") + RuleText(rule);
  return text.empty() ? "-" : text;
}

// Each LAG's members and what the library keeps for it and gives a port that joins it.
Table LagTable(const Session& session) {
  Table table({"lag",
               {"trunk", ColumnKind::Number},
               {"gport", ColumnKind::Number},
               {"members", ColumnKind::List},
               {"native", ColumnKind::Number},
               {"prio", ColumnKind::Number},
               {"tpid", ColumnKind::Number},
               "qinq",
               "frame-type",
               {"ingress-rules", ColumnKind::RuleList},
               {"egress-rules", ColumnKind::RuleList}});
  for (const auto& [id, declared] : session.Declared()) {
    if (!IsLag(id))
      continue;
    std::vector<std::string> members;
    for (const limid_t& member : session.LagMembers(id))
      members.push_back(sim::NameOf(member));
    const KeptAttributes kept = KeptFor(id);
    table.AddRow({sim::NameOf(id), std::to_string(declared.trunkId),
                  Hex(static_cast<unsigned>(*declared.gport)),
                  sim::common().HasLag(id) ? Join(members) : "(deleted)",
                  std::to_string(kept.nativeVlan.value_or(4095)),
                  std::to_string(kept.priority.value_or(0)), Tpid(kept.tpid.value_or(0x8100)),
                  kept.qinq ? "on" : "off",
                  FrameTypeName(kept.frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES)),
                  Rules(kept.ingressRules), Rules(kept.egressRules)});
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
    table.AddRow({Number(vlan), Names(untagged), Names(tagged)});
  }
  return table;
}

Table TraceTable(Session& session) {
  Table table({"call"});
  for (const std::string& call : session.TakeTrace())
    table.AddRow({call});
  return table;
}

// What a show table may be narrowed to: rows of one interface, or of a range of VLANs or
// classes, by the table's key.
enum class KeyKind { Interface, Vlan, ClassOrPort, Function };

struct Filter {
  std::string name;                               // an interface or function name
  std::pair<long long, long long> range{-1, -1};  // VLANs or classes
};

Filter ParseFilter(const Session& session, const std::string& text, KeyKind kind) {
  Filter filter;
  const bool numeric = !text.empty() && std::isdigit(static_cast<unsigned char>(text[0]));
  if (kind == KeyKind::Vlan) {
    filter.range = ParseRange(text.rfind("vlan", 0) == 0 ? text.substr(4) : text, 0, 4095, "vlan");
  } else if (kind == KeyKind::ClassOrPort && numeric) {
    filter.range = ParseRange(text, 0, UINT32_MAX, "class");
  } else if (kind == KeyKind::Function) {
    filter.name = text;
  } else {
    session.Resolve(text, "filter", kPort | kLag);
    filter.name = text;
  }
  return filter;
}

bool Matches(const Table& table, const std::vector<std::string>& row, const Filter& filter) {
  if (filter.range.first >= 0) {
    char* end = nullptr;
    const long long key = std::strtoll(row[0].c_str(), &end, 10);
    return !row[0].empty() && *end == '\0' && key >= filter.range.first &&
           key <= filter.range.second;
  }
  if (row[0] == filter.name || row[0].rfind(filter.name + "(", 0) == 0)
    return true;
  const int ports = table.ColumnIndex("ports");
  return ports >= 0 && (" " + row[ports] + " ").find(" " + filter.name + " ") != std::string::npos;
}

struct ShowTableKind {
  const char* name;
  const char* summary;
  KeyKind key;
  Table (*build)(Session&);
};

template <Table (*Build)(const Session&)>
Table Built(Session& session) {
  return Build(session);
}

Table BuiltMembers(Session&) {
  return MemberTable();
}

const std::vector<ShowTableKind>& ShowTableKinds() {
  static const std::vector<ShowTableKind> kinds = {
      {"ports",
       "per declared port: what it admits, Q-in-Q, blocked, frame type once unblocked; the chip's "
       "TPIDs, native VLAN, priority, modes, class, keys",
       KeyKind::Interface, Built<PortTable>},
      {"port-vlans", "per declared port: its chip VLANs, tagged or untagged, and its native VLAN",
       KeyKind::Interface, Built<PortVlanTable>},
      {"vlans", "per chip VLAN: members, broadcast group, DHCP action, IGMP snooping",
       KeyKind::Vlan, Built<VlanTable>},
      {"ingress", "the ingress VLAN translation table", KeyKind::Interface, Built<IngressTable>},
      {"egress", "the egress VLAN translation table, keyed by port class", KeyKind::ClassOrPort,
       Built<EgressTable>},
      {"lags", "the declared LAGs, their members and what the library keeps for joining ports",
       KeyKind::Interface, Built<LagTable>},
      {"member-table", "the shared VLAN member table that other HAL modules read", KeyKind::Vlan,
       BuiltMembers},
      {"trace", "the SDK calls since the last show trace", KeyKind::Function, TraceTable},
  };
  return kinds;
}

}  // namespace

void PrintTable(Session& session, const std::string& name, const Table& table, bool json) {
  std::vector<std::string> lines;
  if (name == "trace") {
    // The trace reads as the calls themselves, without a header.
    for (const auto& row : table.Rows())
      lines.push_back(row[0]);
  } else {
    lines = table.Lines();
  }
  Record document("table", Role::Document);
  // The rows under the table's own name, as {"vlans": [...]} has always read.
  document.Set("table", name).Set(name, table.JsonRows());
  document.Text(JoinLines(lines));
  if (json)
    document.RenderedIn(Rendering::JsonAlways);
  else if (lines.empty())  // an empty trace prints no line at all
    document.RenderedIn(Rendering::JsonOnly);
  session.Emit(document);
}

namespace {

Command Show(const ShowTableKind& kind) {
  return {std::string("show ") + kind.name, "[filter] [--json]", kind.summary,
          [&kind](const Session& session, Arguments& args) -> Action {
            const bool json = args.TakeKeyword({"--json"}).has_value();
            std::optional<Filter> filter;
            if (!args.Empty() && args.Peek() != "--json")
              filter = ParseFilter(session, args.Take("filter"), kind.key);
            const bool jsonAfter = args.TakeKeyword({"--json"}).has_value();
            args.ExpectEnd();
            return [&kind, filter, json = json || jsonAfter](Session& s) {
              Table table = kind.build(s);
              if (filter)
                table.KeepRows([&](const auto& row) { return Matches(table, row, *filter); });
              PrintTable(s, kind.name, table, json);
            };
          }};
}

}  // namespace

std::vector<Command> ShowCommands() {
  std::vector<Command> commands;
  for (const ShowTableKind& kind : ShowTableKinds())
    commands.push_back(Show(kind));
  return commands;
}

std::optional<Table> ShowTable(const Session& session, const std::string& name) {
  static const std::map<std::string, Table (*)(const Session&)> kBuilders = {
      {"ports", PortTable},
      {"port-vlans", PortVlanTable},
      {"vlans", VlanTable},
      {"ingress", IngressTable},
      {"egress", EgressTable},
      {"lags", LagTable},
      {"member-table", [](const Session&) { return MemberTable(); }},
      {"counters", PortCounterTable},
      {"vlan-counters", VlanCounterTable},
  };
  const auto builder = kBuilders.find(name);
  if (builder == kBuilders.end())
    return std::nullopt;
  return builder->second(session);
}

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
