// The state of one run: the library's services on the simulated platform, the interface names
// the scenario declared, the VLAN orchestrator clients it registered, and how an operation's
// effects are printed.
#ifndef HALBD_SIM_SESSION_H
#define HALBD_SIM_SESSION_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "hal_bridge_domain_itf.h"
#include "hal_bridge_port_itf.h"
#include "limid.h"
#include "live_ports.h"
#include "record.h"
#include "sim/frame_walk.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"

namespace halbdsim {

// Kinds of interface an argument accepts, combined with |.
enum Kind : unsigned { kPort = 1, kLag = 2, kBridgeDomain = 4 };

// What the scenario declared about a port or LAG.
struct DeclaredInterface {
  std::optional<int> gport;  // a port without one has no entry in any identifier table
  int trunkId = -1;          // LAGs only
};

using sim::ChipPortOfGport;  // the chip port of a declared gport

class Session {
 public:
  // What an operation returns after its effects, e.g. "result: 0".
  using Outcome = halbdsim::Outcome;

  // Resets the simulated platform and obtains both services with a fresh LAG orchestrator, so
  // that they register for its events (the bridge domain first). The services are process-wide
  // singletons: one session per process.
  explicit Session(std::ostream& out);
  // The same with a LAG orchestrator that the services registered with before: a process that
  // runs one session after another (a fuzzer) passes the same one each time, its books cleared.
  Session(std::ostream& out, std::shared_ptr<sim::LagOrchestratorSim> lagOrchestrator);

  std::ostream& Out() { return out_; }
  HalBridgePortItf& BridgePort() { return *bridgePort_; }
  HalBridgeDomainItf& BridgeDomain() { return *bridgeDomain_; }
  sim::LagOrchestratorSim& LagOrchestrator() { return *lagOrchestrator_; }
  // The ports that have real interfaces, and the forwarding between them.
  LivePorts& Live() { return live_; }
  const LivePorts& Live() const { return live_; }
  // The current members of a LAG in the common tables; none for a deleted one.
  std::set<limid_t> LagMembers(limid_t lag) const;

  // ---- names ----
  // The identifier a name stands for. It must be of one of the kinds, and a port or LAG must have
  // been declared, so that a typing mistake is not taken for an interface without table entries.
  limid_t Resolve(const std::string& text, const std::string& argName, unsigned kinds) const;
  bool IsDeclared(limid_t id) const { return declared_.count(id) != 0; }
  void Declare(limid_t id, DeclaredInterface interface) { declared_[id] = interface; }
  const std::map<limid_t, DeclaredInterface>& Declared() const { return declared_; }
  // Names for the chip tables; "port7" or "trunk3" for what no declared name stands for.
  std::string NameOfChipPort(int port) const;
  std::string NameOfTrunk(int trunkId) const;

  // ---- VLAN orchestrator clients of the scenario ----
  // Registers a client that prints what it is told and answers as SetRefusals says (true until
  // then). A client may take only one of the two events.
  void RegisterClient(unsigned priority, const std::string& name, bool takesAdd, bool takesRemove);
  void DeregisterClient(unsigned priority, const std::string& name);
  bool HasClient(unsigned priority, const std::string& name) const;
  void SetRefusals(unsigned priority, const std::string& name, bool refuseAdd, bool refuseRemove);

  // ---- running ----
  // Runs one library operation and prints what it did: its chip calls (when echoing the trace),
  // what the VLAN clients were told and the HAL log lines in the order they happened, recorded
  // SDK assertions, and its outcome. An exception leaving the library is printed as its outcome.
  void RunOperation(const std::function<Outcome()>& operation);
  void SetTraceEcho(bool on) { traceEcho_ = on; }
  // Chip calls not yet shown by TakeTrace.
  std::vector<std::string> TakeTrace();
  // Writes one line of output, indented under the command: a note without values of its own.
  void Print(const std::string& line);
  // Writes a record as text or, with --json, as one JSON object a line; nothing of what --quiet
  // leaves out.
  void Emit(const Record& record);
  // Writes a mistake or a failed expect to err as text and, with --json, also to the output as
  // an object, so that the output alone tells the whole run.
  void EmitError(std::ostream& err, const Record& record);
  // The scenario line that the records from now on answer; none between lines.
  void SetPlace(std::optional<Place> place) { place_ = std::move(place); }
  const std::optional<Place>& CurrentPlace() const { return place_; }
  // The VLAN of a range line that the records from now on are for; none outside ranges.
  void SetRangeVlan(std::optional<unsigned> vlan) { rangeVlan_ = vlan; }
  void RequestQuit() { quit_ = true; }
  bool QuitRequested() const { return quit_; }

  // The last frame walk shown, for expect.
  void RememberWalk(const sim::FrameWalk& walk) { lastWalk_ = walk; }
  const std::optional<sim::FrameWalk>& LastWalk() const { return lastWalk_; }

  // ---- how output is given ----
  // Quiet: results and tables only, without the effects (client notes, log lines, SDK calls).
  void SetQuiet(bool on) { quiet_ = on; }
  bool Quiet() const { return quiet_; }
  // JSON Lines instead of text: every record one JSON object a line.
  void SetJson(bool on) { json_ = on; }
  bool Json() const { return json_; }
  // Columns that help wraps to: the terminal's, 80 without one.
  void SetTerminalWidth(size_t columns) { terminalWidth_ = columns; }
  size_t TerminalWidth() const { return terminalWidth_; }

  // ---- outcomes, for expect and --strict ----
  // The result code of the last operation: its "result: N", or -1 when a LAG event handler
  // answered false (0 when all answered true). Empty before any, and after an operation whose
  // outcome is a value rather than a code (GetTpid).
  std::optional<int> LastResult() const { return lastResult_; }
  // A line that --strict counts against the run: an operation that failed unexpectedly, or an
  // expect that did not hold.
  struct Failure {
    Place place;
    bool expect = false;
    std::string what;  // "result -1", or the expect's message
  };
  const std::vector<Failure>& Failures() const { return failures_; }
  // Operations that failed and were not followed by an expect of that failure.
  int UnexpectedFailures() const;
  int FailedExpects() const;
  // An expect of the last result held: a failure it names was meant, and is not counted.
  void FailureExpected();
  void ExpectFailed(const std::string& message);

 private:
  struct ClientState {
    bool refuseAdd = false;
    bool refuseRemove = false;
  };
  using ClientKey = std::pair<unsigned, std::string>;

  // Something a client was told, placed before the log line with this index.
  struct Note {
    size_t logIndex;
    Record record;
  };

  void AddNote(Record record);
  void PrintEffects(size_t logStart, size_t traceStart, size_t assertStart);

  std::ostream& out_;
  std::shared_ptr<sim::LagOrchestratorSim> lagOrchestrator_;
  HalBridgeDomainItf* bridgeDomain_ = nullptr;
  HalBridgePortItf* bridgePort_ = nullptr;
  std::map<limid_t, DeclaredInterface> declared_;
  LivePorts live_;
  std::optional<sim::FrameWalk> lastWalk_;
  std::map<ClientKey, std::shared_ptr<ClientState>> clients_;
  std::vector<Note> notes_;
  bool traceEcho_ = false;
  size_t traceShown_ = 0;
  bool quit_ = false;
  bool quiet_ = false;
  bool json_ = false;
  size_t terminalWidth_ = 80;
  std::optional<int> lastResult_;
  std::optional<size_t> lastFailure_;  // in failures_: the last operation's, while counted
  std::vector<Failure> failures_;
  std::optional<Place> place_;
  std::optional<unsigned> rangeVlan_;
};

}  // namespace halbdsim

#endif  // HALBD_SIM_SESSION_H
