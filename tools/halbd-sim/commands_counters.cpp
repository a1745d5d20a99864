// The chip's counters, per port and per VLAN, as the chip keeps them (sim::PortCounterTable,
// sim::VlanCounterTable): every frame walked counts, from frame lines and captures alike.
#include <set>
#include <string>

#include "commands.h"
#include "line_reader.h"
#include "sim/datapath.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

// The stages that drop a frame, one column each.
const char* const kDropStages[] = {"discard", "ingress-filter", "protocol", "forward", "flood"};

void AddPortRow(Table& table, const std::string& name, const sim::PortCounters& c) {
  const auto count = [](uint64_t n) { return Cell(std::to_string(n), n); };
  std::vector<Cell> row = {name, count(c.rxFrames), count(c.rxBytes), count(c.txFrames),
                           count(c.txBytes)};
  for (const char* stage : kDropStages) {
    auto drops = c.drops.find(stage);
    row.push_back(count(drops == c.drops.end() ? 0 : drops->second));
  }
  table.AddRow(std::move(row));
}

// Declared ports first, each once; then chip ports that counted without a declared name.
Table PortCounters(const Session& session, const std::optional<int>& only) {
  std::vector<Column> columns = {"port",
                                 {"rx-frames", ColumnKind::Number},
                                 {"rx-bytes", ColumnKind::Number},
                                 {"tx-frames", ColumnKind::Number},
                                 {"tx-bytes", ColumnKind::Number}};
  for (const char* stage : kDropStages)
    columns.emplace_back(stage, ColumnKind::Number);
  Table table(columns);
  const auto& counters = sim::PortCounterTable();
  std::set<int> shown;
  for (const auto& [id, declared] : session.Declared()) {
    const std::optional<int> port =
        declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
    if (!port || (only && *port != *only) || !shown.insert(*port).second)
      continue;
    auto counted = counters.find(*port);
    AddPortRow(table, session.NameOfChipPort(*port),
               counted == counters.end() ? sim::PortCounters{} : counted->second);
  }
  for (const auto& [port, counted] : counters) {
    if (shown.count(port) == 0 && (!only || port == *only))
      AddPortRow(table, session.NameOfChipPort(port), counted);
  }
  return table;
}

Table VlanCounters(const std::optional<uint16_t>& only) {
  Table table({{"vlan", ColumnKind::Number},
               {"forwarded", ColumnKind::Number},
               {"flooded", ColumnKind::Number},
               {"to-cpu", ColumnKind::Number}});
  const auto& counters = sim::VlanCounterTable();
  std::set<uint16_t> vlans;
  for (bcm_vlan_t vlan : sim::chip().Vlans())
    vlans.insert(vlan);
  for (const auto& entry : counters)
    vlans.insert(entry.first);
  for (uint16_t vlan : vlans) {
    if (only && vlan != *only)
      continue;
    auto counted = counters.find(vlan);
    const sim::VlanCounters c = counted == counters.end() ? sim::VlanCounters{} : counted->second;
    table.AddRow({std::to_string(vlan), std::to_string(c.forwarded), std::to_string(c.flooded),
                  std::to_string(c.toCpu)});
  }
  return table;
}

bool TakeJson(Arguments& args) {
  return args.TakeKeyword({"--json"}).has_value();
}

Action PrepareShowVlanCounters(Arguments& args) {
  bool json = TakeJson(args);
  std::optional<uint16_t> vlan;
  if (!args.Empty() && args.Peek() != "--json")
    vlan = static_cast<uint16_t>(ParseInteger(args.Take("vlan"), 1, 4095, "vlan"));
  json = TakeJson(args) || json;
  args.ExpectEnd();
  return [vlan, json](Session& s) { PrintTable(s, "vlan-counters", VlanCounters(vlan), json); };
}

Action PrepareShowCounters(const Session& session, Arguments& args) {
  bool json = TakeJson(args);
  std::optional<int> port;
  if (!args.Empty() && args.Peek() != "--json") {
    const std::string name = args.Take("port");
    const DeclaredInterface& declared = session.Declared().at(session.Resolve(name, "port", kPort));
    port = declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
    if (!port)
      throw ScenarioError(name + " is not a port of this chip: nothing counts for it");
  }
  json = TakeJson(args) || json;
  args.ExpectEnd();
  return [port, json](Session& s) { PrintTable(s, "counters", PortCounters(s, port), json); };
}

}  // namespace

Table PortCounterTable(const Session& session) {
  return PortCounters(session, std::nullopt);
}

Table VlanCounterTable(const Session&) {
  return VlanCounters(std::nullopt);
}

std::vector<Command> CounterCommands() {
  // "show counters vlan" first: the line "show counters vlan 10" is its, not a port's.
  return {
      {"show counters vlan", "[VLAN] [--json]",
       "per VLAN: frames forwarded (known unicast), flooded, sent to the CPU",
       [](const Session&, Arguments& args) { return PrepareShowVlanCounters(args); }},
      {"show counters", "[port] [--json]",
       "per port: frames and bytes received and sent, frames dropped by each stage",
       PrepareShowCounters},
      {"clear counters", "", "set every counter to zero",
       [](const Session&, Arguments& args) -> Action {
         args.ExpectEnd();
         return [](Session&) { sim::ClearCounters(); };
       }},
  };
}

}  // namespace halbdsim
