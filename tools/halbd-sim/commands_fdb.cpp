// The chip's address table: show it, flush it, set its age time, and let simulated time pass so
// that entries age. The table is the chip's own (sim::FdbEntries), never a record of the tool's.
#include <cctype>
#include <string>

#include "commands.h"
#include "line_reader.h"
#include "sim/datapath.h"

namespace halbdsim {

namespace {

constexpr long long kMaxSeconds = 1000000;

// The entries a filter word selects: a VLAN by number, else a declared port or LAG.
sim::FdbMatch ParseFdbFilter(const Session& session, const std::string& word) {
  sim::FdbMatch filter;
  if (!word.empty() && std::isdigit(static_cast<unsigned char>(word[0]))) {
    filter.vlan = static_cast<uint16_t>(ParseInteger(word, 1, 4095, "vlan"));
    return filter;
  }
  const limid_t id = session.Resolve(word, "port, LAG or VLAN", kPort | kLag);
  const DeclaredInterface& declared = session.Declared().at(id);
  if (declared.trunkId >= 0) {
    filter.trunk = declared.trunkId;
    return filter;
  }
  const std::optional<int> port = declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
  if (!port)
    throw ScenarioError(word + " is not a port of this chip: the chip learns nothing on it");
  filter.port = *port;
  return filter;
}

std::optional<sim::FdbMatch> TakeFdbFilter(const Session& session, Arguments& args) {
  if (args.Empty() || args.Peek() == "--json")
    return std::nullopt;
  return ParseFdbFilter(session, args.Take("VLAN, port or LAG"));
}

Table FilteredFdbTable(const Session& session, const std::optional<sim::FdbMatch>& filter) {
  Table table({"mac", {"vlan", ColumnKind::Number}, "interface", {"age", ColumnKind::Number}});
  for (const sim::FdbEntry& entry : sim::FdbEntries()) {
    if (filter && !sim::Matches(*filter, entry))
      continue;
    table.AddRow({sim::FormatMac(entry.mac), std::to_string(entry.vlan),
                  entry.trunk ? session.NameOfTrunk(entry.portOrTrunk)
                              : session.NameOfChipPort(entry.portOrTrunk),
                  std::to_string(sim::Clock() - entry.lastSeen)});
  }
  return table;
}

Action PrepareShowFdb(const Session& session, Arguments& args) {
  bool json = args.TakeKeyword({"--json"}).has_value();
  const std::optional<sim::FdbMatch> filter = TakeFdbFilter(session, args);
  json = args.TakeKeyword({"--json"}).has_value() || json;
  args.ExpectEnd();
  return [filter, json](Session& s) { PrintTable(s, "fdb", FilteredFdbTable(s, filter), json); };
}

Action PrepareFlush(const Session& session, Arguments& args) {
  const std::optional<sim::FdbMatch> filter = TakeFdbFilter(session, args);
  args.ExpectEnd();
  return [filter](Session& s) {
    const size_t flushed = sim::FlushFdb(filter.value_or(sim::FdbMatch{}));
    s.Print("flushed " + std::to_string(flushed) + (flushed == 1 ? " entry" : " entries"));
  };
}

// Runs what may age entries and says how many went.
template <typename Change>
void ReportAging(Session& session, Change change) {
  const size_t before = sim::FdbEntries().size();
  change();
  const size_t aged = before - sim::FdbEntries().size();
  if (aged > 0)
    session.Print(std::to_string(aged) + (aged == 1 ? " entry" : " entries") + " aged out");
}

Action PrepareAge(Arguments& args) {
  const auto seconds =
      static_cast<int>(ParseInteger(args.Take("seconds"), 0, kMaxSeconds, "seconds"));
  args.ExpectEnd();
  return [seconds](Session& s) { ReportAging(s, [seconds] { sim::SetAgeTime(seconds); }); };
}

Action PrepareWait(Arguments& args) {
  const long long seconds = ParseInteger(args.Take("seconds"), 0, kMaxSeconds, "seconds");
  args.ExpectEnd();
  return [seconds](Session& s) { ReportAging(s, [seconds] { sim::AdvanceClock(seconds); }); };
}

}  // namespace

Table FdbTable(const Session& session) {
  return FilteredFdbTable(session, std::nullopt);
}

void PrintTable(Session& session, const std::string& name, const Table& table, bool json) {
  if (json || session.Json()) {
    session.Out() << table.Json(name) << '\n';
    return;
  }
  for (const std::string& line : table.Lines())
    session.Print(line);
}

std::vector<Command> FdbCommands() {
  return {
      {"show fdb", "[VLAN | port | LAG] [--json]",
       "the addresses the chip learned: VLAN, interface (a LAG for its members) and seconds "
       "since last seen",
       PrepareShowFdb},
      {"fdb flush", "[VLAN | port | LAG]",
       "forget learned addresses: of a VLAN, an interface, or all",
       [](const Session& session, Arguments& args) { return PrepareFlush(session, args); }},
      {"fdb age", "<seconds>", "the chip's age time (300 at start; 0 never ages)",
       [](const Session&, Arguments& args) { return PrepareAge(args); }},
      {"wait", "<seconds>", "let simulated time pass: learned addresses age",
       [](const Session&, Arguments& args) { return PrepareWait(args); }},
  };
}

}  // namespace halbdsim
