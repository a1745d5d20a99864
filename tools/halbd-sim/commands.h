// The command table: every command's name, arguments, one-line help, and how a line of it is
// checked and turned into something to run.
#ifndef HALBD_SIM_COMMANDS_H
#define HALBD_SIM_COMMANDS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "arguments.h"
#include "session.h"

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
std::vector<Command> SetupCommands();   // the simulated platform and fault injection
std::vector<Command> PortCommands();    // the bridge-port service
std::vector<Command> DomainCommands();  // the bridge-domain service
std::vector<Command> EventCommands();   // LAG events and VLAN orchestrator clients
std::vector<Command> ShowCommands();    // the chip's state as tables
std::vector<Command> FrameCommands();   // where the chip sends a frame

// How the frame command takes its frame, for help.
extern const char* const kFrameSyntaxHelp;

// Every command, in the order help lists them.
const std::vector<Command>& AllCommands();

// Finds the command of a line and checks its arguments; ScenarioError for an unknown command.
Action PrepareLine(const Session& session, const std::vector<std::string>& words);

// One line per command, then the value syntax.
void PrintHelp(std::ostream& out);

// An action that runs one library operation through Session::RunOperation.
Action Operation(std::function<Session::Outcome(Session&)> operation);

// "result: <rc>".
Session::Outcome Result(int rc);

// "answer <priority> <name>: true|false" for each client that handled a LAG event.
Session::Outcome AnswerLines(const std::vector<sim::LagOrchestratorSim::Answer>& answers);

// "0x..." in lower case.
std::string Hex(unsigned value);

}  // namespace halbdsim

#endif  // HALBD_SIM_COMMANDS_H
