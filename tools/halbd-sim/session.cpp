#include "session.h"

#include <cstdlib>
#include <stdexcept>

#include "hal_bcm_common.h"
#include "line_reader.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

unsigned KindOf(limid_t id) {
  switch (static_cast<sim::IdKind>(id.bytes[0])) {
    case sim::IdKind::Ethernet:
      return kPort;
    case sim::IdKind::Lag:
      return kLag;
    case sim::IdKind::BridgeDomain:
      return kBridgeDomain;
  }
  return 0;
}

std::string KindList(unsigned kinds) {
  std::vector<std::string> names;
  if (kinds & kPort)
    names.push_back("a port");
  if (kinds & kLag)
    names.push_back("a LAG");
  if (kinds & kBridgeDomain)
    names.push_back("a bridge domain");
  return OrList(names);
}

const char* Bool(bool value) {
  return value ? "true" : "false";
}

}  // namespace

std::optional<int> ChipPortOfGport(int gport) {
  const unsigned type = static_cast<unsigned>(gport) >> BCM_GPORT_TYPE_SHIFT;
  const bool localGport =
      type == BCM_GPORT_TYPE_LOCAL && (gport & BCM_GPORT_LOCAL_RESERVED_MASK) == 0;
  const bool thisModuleGport =  // the simulated chip is module 0
      type == BCM_GPORT_TYPE_MODPORT &&
      ((gport >> BCM_GPORT_MODPORT_MODULE_SHIFT) & BCM_GPORT_MODPORT_MODULE_MASK) == 0;
  const int port = (localGport || thisModuleGport) ? gport & BCM_GPORT_LOCAL_PORT_MASK : -1;
  if (port < 0 || port >= sim::Chip::kNumPorts)
    return std::nullopt;
  return port;
}

Session::Session(std::ostream& out) : Session(out, std::make_shared<sim::LagOrchestratorSim>()) {}

Session::Session(std::ostream& out, std::shared_ptr<sim::LagOrchestratorSim> lagOrchestrator)
    : out_(out), lagOrchestrator_(std::move(lagOrchestrator)) {
  sim::Reset();
  bridgeDomain_ = HalBridgeDomainItf::getInstance(lagOrchestrator_);
  bridgePort_ = HalBridgePortItf::getInstance(lagOrchestrator_);
}

limid_t Session::Resolve(const std::string& text, const std::string& argName,
                         unsigned kinds) const {
  limid_t id;
  try {
    id = sim::ParseId(text);
  } catch (const std::exception&) {
    throw ScenarioError(argName + ": '" + text +
                        "' is not an interface name (eth<slot>/<port>, lag<n> or vlan<n>)");
  }
  const unsigned kind = KindOf(id);
  if ((kind & kinds) == 0)
    throw ScenarioError(argName + " must be " + KindList(kinds) + ": " + text);
  if (kind != kBridgeDomain && !IsDeclared(id)) {
    throw ScenarioError("unknown interface " + text + ": declare it with '" +
                        (kind == kPort ? "port" : "lag") + "'");
  }
  return id;
}

std::set<limid_t> Session::LagMembers(limid_t lag) const {
  if (!sim::common().HasLag(lag))
    return {};
  return HalBcmCommon::GetInstance()->GetLagMembers(lag);
}

std::string Session::NameOfChipPort(int port) const {
  for (const auto& [id, interface] : declared_) {
    if (interface.gport && ChipPortOfGport(*interface.gport) == port)
      return sim::NameOf(id);
  }
  return "port" + std::to_string(port);
}

std::string Session::NameOfTrunk(int trunkId) const {
  for (const auto& [id, interface] : declared_) {
    if (KindOf(id) == kLag && interface.trunkId == trunkId)
      return sim::NameOf(id);
  }
  return "trunk" + std::to_string(trunkId);
}

void Session::RegisterClient(unsigned priority, const std::string& name, bool takesAdd,
                             bool takesRemove) {
  // A second registration under the same key is refused by the orchestrator, which keeps the
  // first client; its answers stay the ones already set.
  std::shared_ptr<ClientState> state =
      clients_.emplace(ClientKey{priority, name}, std::make_shared<ClientState>()).first->second;
  const std::string label = "client " + std::to_string(priority) + " " + name + ": ";
  halswitchbd::VlanOrchestrator::Callback callback;
  if (takesAdd) {
    callback.vlan_add = [this, state, label](const unsigned short& vlan, const limid_t& interface,
                                             bool tagged) {
      const bool answer = !state->refuseAdd;
      AddNote(label + "vlan_add(vlan=" + std::to_string(vlan) + ", interface=" +
              sim::NameOf(interface) + ", tagged=" + Bool(tagged) + ") = " + Bool(answer));
      return answer;
    };
  }
  if (takesRemove) {
    callback.vlan_remove = [this, state, label](const unsigned short& vlan,
                                                const limid_t& interface) {
      const bool answer = !state->refuseRemove;
      AddNote(label + "vlan_remove(vlan=" + std::to_string(vlan) +
              ", interface=" + sim::NameOf(interface) + ") = " + Bool(answer));
      return answer;
    };
  }
  bridgeDomain_->GetVlanOrchestrator()->RegisterClient(priority, name, std::move(callback));
}

void Session::DeregisterClient(unsigned priority, const std::string& name) {
  bridgeDomain_->GetVlanOrchestrator()->DeregisterClient(priority, name);
  clients_.erase(ClientKey{priority, name});
}

bool Session::HasClient(unsigned priority, const std::string& name) const {
  return clients_.count(ClientKey{priority, name}) != 0;
}

void Session::SetRefusals(unsigned priority, const std::string& name, bool refuseAdd,
                          bool refuseRemove) {
  ClientState& state = *clients_.at(ClientKey{priority, name});
  state.refuseAdd = refuseAdd;
  state.refuseRemove = refuseRemove;
}

void Session::AddNote(std::string text) {
  notes_.push_back(Note{sim::halLog().Records().size(), std::move(text)});
}

void Session::RunOperation(const std::function<Outcome()>& operation) {
  const size_t logStart = sim::halLog().Records().size();
  const size_t traceStart = sim::chip().Trace().size();
  const size_t assertStart = sim::Assertions().size();
  notes_.clear();
  Outcome outcome;
  try {
    outcome = operation();
  } catch (const std::out_of_range& e) {
    // The library lets some lookups fail through to its caller; showing that is the point.
    outcome = {std::string("exception std::out_of_range: ") + e.what()};
  } catch (const std::exception& e) {
    outcome = {std::string("exception: ") + e.what()};
  }
  if (!quiet_)
    PrintEffects(logStart, traceStart, assertStart);
  for (const std::string& line : outcome)
    Print(line);
  lastResult_ = ResultCodeOf(outcome);
  lastFailureCounted_ = lastResult_ && *lastResult_ < 0;
  if (lastFailureCounted_)
    ++unexpectedFailures_;
}

void Session::FailureExpected() {
  if (lastFailureCounted_)
    --unexpectedFailures_;
  lastFailureCounted_ = false;
}

std::optional<int> ResultCodeOf(const Session::Outcome& outcome) {
  static const std::string kResult = "result: ";
  static const std::string kAnswer = "answer ";
  std::optional<int> code;
  for (const std::string& line : outcome) {
    if (line.compare(0, kResult.size(), kResult) == 0) {
      const std::string word =
          line.substr(kResult.size(), line.find(' ', kResult.size()) - kResult.size());
      char* end = nullptr;
      const long value = std::strtol(word.c_str(), &end, 10);
      // "result: 0x8100" is a value, not a code.
      if (word.empty() || *end != '\0')
        return std::nullopt;
      return static_cast<int>(value);
    }
    if (line.compare(0, kAnswer.size(), kAnswer) == 0) {
      const bool handled = line.size() >= 4 && line.compare(line.size() - 4, 4, "true") == 0;
      code = (code.value_or(0) < 0 || !handled) ? -1 : 0;
    }
  }
  return code;
}

void Session::PrintEffects(size_t logStart, size_t traceStart, size_t assertStart) {
  const std::vector<sim::SdkCall>& trace = sim::chip().Trace();
  for (size_t i = traceStart; traceEcho_ && i < trace.size(); ++i)
    Print("sdk: " + trace[i].Text());

  const std::vector<sim::LogRecord>& records = sim::halLog().Records();
  size_t note = 0;
  for (size_t i = logStart; i <= records.size(); ++i) {
    while (note < notes_.size() && notes_[note].logIndex <= i)
      Print(notes_[note++].text);
    if (i == records.size())
      break;
    const sim::LogRecord& record = records[i];
    const std::string head = std::string(record.isError ? "error(" : "log(") +
                             std::to_string(record.levelOrCode) + "): ";
    // Rule dumps span several lines; their continuation lines stay under the message.
    size_t start = 0;
    for (size_t end = record.text.find('\n');; end = record.text.find('\n', start)) {
      const std::string line = record.text.substr(start, end - start);
      Print(start == 0 ? head + line : "  " + line);
      if (end == std::string::npos)
        break;
      start = end + 1;
    }
  }

  const std::vector<sim::AssertRecord>& assertions = sim::Assertions();
  for (size_t i = assertStart; i < assertions.size(); ++i) {
    Print("assert: " + assertions[i].expression + " at " + assertions[i].file + ":" +
          std::to_string(assertions[i].line));
  }
}

std::vector<std::string> Session::TakeTrace() {
  const std::vector<sim::SdkCall>& trace = sim::chip().Trace();
  std::vector<std::string> texts;
  for (; traceShown_ < trace.size(); ++traceShown_)
    texts.push_back(trace[traceShown_].Text());
  return texts;
}

void Session::Print(const std::string& line) {
  out_ << "  " << line << '\n';
}

}  // namespace halbdsim
