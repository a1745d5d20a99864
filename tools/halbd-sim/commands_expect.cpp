// expect: a scenario line that checks the last operation's result, the last frame's copies, its
// delivery (known unicast, to the CPU), a VLAN membership or a learned address on the chip, or a
// cell of a show table, so that a scenario tests itself.
#include <set>

#include "sim/datapath.h"

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

// "unicast to eth1/2" for a known unicast delivery; otherwise how the frame went.
std::string Delivery(const Session& session, const sim::FrameWalk& walk) {
  if (walk.knownUnicast)
    return "unicast to " + session.NameOfChipPort(walk.copies.front().port);
  return walk.dropped || walk.copies.empty() ? WalkOutcome(walk) : "flooded, " + WalkOutcome(walk);
}

Action PrepareUnicast(const Session& session, Arguments& args) {
  const std::string port = args.Take("port");
  session.Resolve(port, "port", kPort);
  args.ExpectEnd();
  return [port](Session& s) {
    Check("frame", "unicast to " + port,
          s.LastWalk() ? Delivery(s, *s.LastWalk()) : "no frame sent");
  };
}

Action PrepareCpu(Arguments& args) {
  const std::string expected = args.Take("reason (DHCP, IGMP or none)");
  args.ExpectEnd();
  return [expected](Session& s) {
    const std::optional<sim::FrameWalk>& walk = s.LastWalk();
    Check("frame to cpu", expected,
          !walk                     ? "no frame sent"
          : walk->cpuReason.empty() ? "none"
                                    : walk->cpuReason);
  };
}

// Where the chip learned an address in a VLAN: an interface name, or "absent".
Action PrepareFdb(const Session& session, Arguments& args) {
  const auto vlan = static_cast<uint16_t>(ParseInteger(args.Take("vlan"), 1, 4095, "vlan"));
  const std::string text = args.Take("mac");
  const std::optional<sim::MacAddress> mac = sim::ParseMac(text);
  if (!mac)
    throw ScenarioError("mac must be a MAC address such as 02:00:00:00:00:01: '" + text + "'");
  const std::string expected = args.Take("interface or absent");
  if (expected != "absent")
    session.Resolve(expected, "interface", kPort | kLag);
  args.ExpectEnd();
  return [=](Session& s) {
    std::string actual = "absent";
    for (const sim::FdbEntry& entry : sim::FdbEntries()) {
      if (entry.vlan == vlan && entry.mac == *mac) {
        actual =
            entry.trunk ? s.NameOfTrunk(entry.portOrTrunk) : s.NameOfChipPort(entry.portOrTrunk);
      }
    }
    Check("fdb " + std::to_string(vlan) + " " + sim::FormatMac(*mac), expected, actual);
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
  if (what == "unicast")
    return PrepareUnicast(session, args);
  if (what == "cpu")
    return PrepareCpu(args);
  if (what == "fdb")
    return PrepareFdb(session, args);
  if (ShowTable(session, what))
    return PrepareCell(session, what, args);
  throw ScenarioError(
      "expect takes result, frame, dropped, copies, unicast, cpu, member, fdb, or a table (ports, "
      "port-vlans, vlans, ingress, egress, lags, member-table, counters, vlan-counters): '" +
      what + "'");
}

}  // namespace

std::vector<Command> ExpectCommands() {
  return {
      {"expect", "<what> ...",
       "check the last result, the last frame's copies or delivery, a VLAN member, a learned "
       "address, or a show table's cell; a failure names FILE:LINE",
       PrepareExpect},
  };
}

}  // namespace halbdsim
