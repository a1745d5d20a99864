// expect: a scenario line that checks the last operation's result, the last frame's copies, a VLAN
// membership on the chip or a cell of a show table, so that a scenario tests itself.
#include <set>

#include "commands.h"
#include "line_reader.h"
#include "runner.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

void Check(const std::string& what, const std::string& expected, const std::string& actual) {
  if (expected != actual)
    throw ExpectationFailed("expect failed: " + what + ": expected " + expected + ", is " + actual);
}

std::string Rest(Arguments& args, const std::string& name) {
  std::string rest = args.Rest();
  if (rest.empty())
    throw ScenarioError("missing " + name);
  while (!args.Empty())
    args.Take(name);
  return rest;
}

Action PrepareResult(Arguments& args) {
  const int expected = ParseNumber<int>(args.Take("result"), "result");
  args.ExpectEnd();
  return [expected](Session& s) {
    const std::optional<int> actual = s.LastResult();
    Check("result", std::to_string(expected), actual ? std::to_string(*actual) : "no result");
    if (expected < 0)
      s.FailureExpected();
  };
}

// The copy the last frame left by on a port: its tags as frame prints them, or "none".
std::string CopyTo(const Session& session, const sim::FrameWalk& walk, const std::string& port) {
  for (const sim::FrameCopy& copy : walk.copies) {
    if (session.NameOfChipPort(copy.port) == port)
      return sim::FormatFrame(copy.frame);
  }
  return "none";
}

std::string WalkOutcome(const sim::FrameWalk& walk) {
  if (walk.dropped)
    return "dropped at " + walk.dropStage;
  return std::to_string(walk.copies.size()) + (walk.copies.size() == 1 ? " copy" : " copies");
}

Action PrepareFrame(const Session& session, Arguments& args) {
  const std::string port = args.Take("port");
  session.Resolve(port, "port", kPort);
  const std::string expected = Rest(args, "frame (untagged, [TPID VLAN pPCP]..., or none)");
  return [port, expected](Session& s) {
    if (!s.LastWalk())
      throw ExpectationFailed("expect failed: no frame was sent yet");
    Check("frame to " + port, expected, CopyTo(s, *s.LastWalk(), port));
  };
}

Action PrepareDropped(Arguments& args) {
  args.ExpectEnd();
  return [](Session& s) {
    const std::optional<sim::FrameWalk>& walk = s.LastWalk();
    Check("frame", "dropped",
          !walk           ? "no frame sent"
          : walk->dropped ? "dropped"
                          : WalkOutcome(*walk));
  };
}

Action PrepareCopies(Arguments& args) {
  const unsigned count = ParseNumber<unsigned>(args.Take("copies"), "copies");
  args.ExpectEnd();
  return [count](Session& s) {
    Check("frame", std::to_string(count) + (count == 1 ? " copy" : " copies"),
          s.LastWalk() ? WalkOutcome(*s.LastWalk()) : "no frame sent");
  };
}

// A port's membership of a VLAN on the chip; a LAG's is that of its members, alike or "mixed".
std::string Membership(const Session& session, unsigned vlan, limid_t id) {
  std::set<limid_t> ports = {id};
  if (static_cast<sim::IdKind>(id.bytes[0]) == sim::IdKind::Lag)
    ports = session.LagMembers(id);
  std::set<std::string> states;
  for (const limid_t& port : ports) {
    const auto& declared = session.Declared().at(port);
    const std::optional<int> chipPort =
        declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
    std::string state = "absent";
    if (chipPort && sim::chip().HasVlan(static_cast<bcm_vlan_t>(vlan))) {
      const auto& members = sim::chip().Vlan(static_cast<bcm_vlan_t>(vlan)).members;
      const auto member = members.find(*chipPort);
      if (member != members.end())
        state = member->second ? "untagged" : "tagged";
    }
    states.insert(state);
  }
  if (states.empty())
    return "absent";
  return states.size() == 1 ? *states.begin() : "mixed";
}

Action PrepareMember(const Session& session, Arguments& args) {
  const std::string domain = args.Take("bridgeDomain");
  session.Resolve(domain, "bridgeDomain", kBridgeDomain);
  const auto vlan = static_cast<unsigned>(ParseInteger(domain.substr(4), 0, 4095, "vlan"));
  const std::string name = args.Take("intf");
  const limid_t id = session.Resolve(name, "intf", kPort | kLag);
  std::string expected = "tagged or untagged";
  if (!args.Empty()) {
    expected = args.Take("tagging");
    ParseChoice(expected, {{"tagged", 0}, {"untagged", 1}, {"absent", 2}}, "tagging");
  }
  args.ExpectEnd();
  return [=](Session& s) {
    const std::string actual = Membership(s, vlan, id);
    const bool member = actual == "tagged" || actual == "untagged";
    Check("member " + domain + " " + name, expected,
          expected == "tagged or untagged" && member ? expected : actual);
  };
}

// The values a column has in the rows of a key, blank-separated when there are several.
std::string CellsOf(const Table& table, const std::string& key, int column) {
  std::string cells;
  for (const auto& row : table.Rows()) {
    if (row[0] == key || row[0] == "vlan" + key || "vlan" + row[0] == key)
      cells += (cells.empty() ? "" : " | ") + row[static_cast<size_t>(column)];
  }
  return cells.empty() ? "no row " + key : cells;
}

Action PrepareCell(const Session& session, const std::string& tableName, Arguments& args) {
  const std::optional<Table> table = ShowTable(session, tableName);
  const std::string key = args.Take("key");
  const std::string column = args.Take("column");
  if (table->ColumnIndex(column) < 0) {
    std::string columns;
    for (const Column& each : table->Columns())
      columns += (columns.empty() ? "" : ", ") + each.name;
    throw ScenarioError("no column '" + column + "' in " + tableName + " (" + columns + ")");
  }
  const std::string expected = Rest(args, "value");
  return [=](Session& s) {
    const Table now = *ShowTable(s, tableName);
    const std::string cells = CellsOf(now, key, now.ColumnIndex(column));
    // A key with several rows (a port's VLANs) holds when one of them has the value.
    const bool held = (" | " + cells + " | ").find(" | " + expected + " | ") != std::string::npos;
    Check(tableName + " " + key + " " + column, expected, held ? expected : cells);
  };
}

Action PrepareExpect(const Session& session, Arguments& args) {
  const std::string what = args.Take("what to expect");
  if (what == "result")
    return PrepareResult(args);
  if (what == "frame")
    return PrepareFrame(session, args);
  if (what == "dropped")
    return PrepareDropped(args);
  if (what == "copies")
    return PrepareCopies(args);
  if (what == "member")
    return PrepareMember(session, args);
  if (ShowTable(session, what))
    return PrepareCell(session, what, args);
  throw ScenarioError(
      "expect takes result, frame, dropped, copies, member, or a table (ports, port-vlans, vlans, "
      "ingress, egress, lags, member-table): '" +
      what + "'");
}

}  // namespace

std::vector<Command> ExpectCommands() {
  return {
      {"expect", "<what> ...",
       "check the last result, the last frame's copies, a VLAN member, or a show table's cell; "
       "a failure names FILE:LINE",
       PrepareExpect},
  };
}

}  // namespace halbdsim
