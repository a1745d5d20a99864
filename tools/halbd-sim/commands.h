// The command table: every command's name, arguments, one-line help, and how a line of it is
// checked and turned into something to run.
#ifndef HALBD_SIM_COMMANDS_H
#define HALBD_SIM_COMMANDS_H

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "arguments.h"
#include "session.h"
#include "table.h"

namespace halbdsim {

// A fully checked line, ready to run: running it cannot fail on the scenario's account.
using Action = std::function<void(Session&)>;

struct Command {
  std::string name;      // one word, or two for families such as "show ports"
  std::string synopsis;  // the arguments, named as in the library's interfaces
  std::string summary;
  // Checks the arguments (ScenarioError on a mistake) without changing anything.
  std::function<Action(const Session&, Arguments&)> prepare;
};

// The commands of each area.
std::vector<Command> SetupCommands();    // the simulated platform and fault injection
std::vector<Command> PortCommands();     // the bridge-port service
std::vector<Command> DomainCommands();   // the bridge-domain service
std::vector<Command> EventCommands();    // LAG events and VLAN orchestrator clients
std::vector<Command> ShowCommands();     // the chip's state as tables
std::vector<Command> FrameCommands();    // where the chip sends a frame
std::vector<Command> ExpectCommands();   // checks that make a scenario test itself
std::vector<Command> FdbCommands();      // the chip's address table and its clock
std::vector<Command> CounterCommands();  // the chip's port and VLAN counters
std::vector<Command> LiveCommands();     // real interfaces for ports

// The chip port that receives for a declared port (the next argument): the port table's entry of
// the port, as the library finds it.
int TakeChipPort(const Session& session, Arguments& args);

// The SDK functions a fault can be planned for.
const std::vector<std::string>& SdkFunctionNames();

// How the frame command takes its frame, for help.
extern const char* const kFrameSyntaxHelp;

// Every command, in the order help lists them.
const std::vector<Command>& AllCommands();

// Finds the command of a line and checks its arguments; ScenarioError for an unknown command.
// Command names are matched without regard to case.
Action PrepareLine(const Session& session, const std::vector<std::string>& words);

// A line of a command that takes a VLAN range (vlan 10-20, addMember vlan10-20 ...,
// delMember vlan10-20 ...) as one line per VLAN; any other line as it is.
std::vector<std::vector<std::string>> ExpandRanges(const std::vector<std::string>& words);

// The command the words start with (or, wholeName, consist of); ScenarioError naming the nearest
// commands for an unknown one.
const Command& FindCommand(const std::vector<std::string>& words, bool wholeName);

// The first words of the commands, each once, in help order.
std::vector<std::string> CommandWords();

// The choices nearest to a mistyped word, at most three: within a few edits of it (letter case
// aside), or starting with it.
std::vector<std::string> Nearest(const std::string& word, const std::vector<std::string>& choices);
size_t EditDistance(const std::string& a, const std::string& b);

std::string Lower(const std::string& word);
// The blank-separated words of a command's name.
std::vector<std::string> NameWords(const std::string& name);
// The name and the synopsis.
std::string Usage(const Command& command);

// head, then text word-wrapped to width from column on; a head too long for the column stands on
// its own line.
void PrintWrapped(std::ostream& out, const std::string& head, const std::string& text,
                  size_t column, size_t width);

// One entry per command, wrapped to width columns, then the value syntax.
void PrintHelp(std::ostream& out, size_t width);
// One command: usage, what it does, its arguments, an example.
void PrintCommandHelp(std::ostream& out, const Command& command);
// What "help WORDS" says: the list for none, a family such as "show" with its members, or one
// command; ScenarioError for words that name none.
std::string HelpText(const std::vector<std::string>& words, size_t width);

// The table a show command prints (not the trace); none for another name.
std::optional<Table> ShowTable(const Session& session, const std::string& name);

// The datapath's tables, for show and expect.
Table FdbTable(const Session& session);
Table PortCounterTable(const Session& session);
Table VlanCounterTable(const Session& session);
// A table as aligned text under the command (the trace as its calls alone), or, with json or
// the session's JSON mode, as one JSON object {"kind": "table", "table": name, "rows": [...]}.
void PrintTable(Session& session, const std::string& name, const Table& table, bool json);

// The words of a show table that need explaining (chip terms), as lines; empty for others.
std::string ShowLegend(const std::string& commandName);

// How names and numbers are written, for help.
extern const char* const kNamesHelp;

// An action that runs one library operation through Session::RunOperation.
Action Operation(std::function<Session::Outcome(Session&)> operation);

// "result: <rc>", to which a query adds its values.
Record ResultRecord(int rc);
// "result: <text>" for an operation whose outcome is a value rather than a code.
Record ValueResult(const std::string& key, unsigned value, const std::string& text);
// That record as the outcome, its code the rc.
Session::Outcome Result(int rc);

// "answer <priority> <name>: true|false" for each client that handled a LAG event; the code is
// -1 when one answered false, none when none was told.
Session::Outcome AnswerLines(const std::vector<sim::LagOrchestratorSim::Answer>& answers);

// "warning: <text>", an effect: a line that does what was asked, perhaps not what was meant.
Record Warning(const std::string& text);

// The words, blank-separated.
std::string JoinWords(const std::vector<std::string>& words);

// "0x..." in lower case.
std::string Hex(unsigned value);

}  // namespace halbdsim

#endif  // HALBD_SIM_COMMANDS_H
