#include "session.h"

#include <algorithm>
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

// What a client was told and how it answered, as "client 200 igmp: vlan_add(vlan=10, ...) = true".
Record Notification(unsigned priority, const std::string& name, const char* event) {
  Record record("notification", Role::Effect);
  record.Text("client ").Add("priority", priority).Text(" ").Add("client", name).Text(": ");
  record.Add("event", event).Text("(vlan=");
  return record;
}

}  // namespace

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
  halswitchbd::VlanOrchestrator::Callback callback;
  if (takesAdd) {
    callback.vlan_add = [this, state, priority, name](const unsigned short& vlan,
                                                      const limid_t& interface, bool tagged) {
      const bool answer = !state->refuseAdd;
      Record note = Notification(priority, name, "vlan_add");
      note.Add("vlan", unsigned{vlan})
          .Text(", interface=")
          .Add("interface", sim::NameOf(interface));
      note.Text(", tagged=").Add("tagged", tagged).Text(") = ").Add("answer", answer);
      AddNote(std::move(note));
      return answer;
    };
  }
  if (takesRemove) {
    callback.vlan_remove = [this, state, priority, name](const unsigned short& vlan,
                                                         const limid_t& interface) {
      const bool answer = !state->refuseRemove;
      Record note = Notification(priority, name, "vlan_remove");
      note.Add("vlan", unsigned{vlan})
          .Text(", interface=")
          .Add("interface", sim::NameOf(interface));
      note.Text(") = ").Add("answer", answer);
      AddNote(std::move(note));
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

void Session::AddNote(Record record) {
  notes_.push_back(Note{sim::halLog().Records().size(), std::move(record)});
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
    outcome = {{Record("exception", Role::Result)
                    .Text("exception ")
                    .Add("type", "std::out_of_range")
                    .Text(": ")
                    .Add("what", e.what())},
               std::nullopt};
  } catch (const std::exception& e) {
    outcome = {{Record("exception", Role::Result).Text("exception: ").Add("what", e.what())},
               std::nullopt};
  }
  if (!quiet_)
    PrintEffects(logStart, traceStart, assertStart);
  for (const Record& record : outcome.records)
    Emit(record);
  lastResult_ = outcome.code;
  lastFailure_.reset();
  if (lastResult_ && *lastResult_ < 0) {
    lastFailure_ = failures_.size();
    failures_.push_back(
        Failure{place_.value_or(Place{}), false, "result " + std::to_string(*lastResult_)});
  }
}

void Session::FailureExpected() {
  if (lastFailure_)
    failures_.erase(failures_.begin() + static_cast<std::ptrdiff_t>(*lastFailure_));
  lastFailure_.reset();
}

void Session::ExpectFailed(const std::string& message) {
  failures_.push_back(Failure{place_.value_or(Place{}), true, message});
}

int Session::UnexpectedFailures() const {
  return static_cast<int>(std::count_if(failures_.begin(), failures_.end(),
                                        [](const Failure& failure) { return !failure.expect; }));
}

int Session::FailedExpects() const {
  return static_cast<int>(failures_.size()) - UnexpectedFailures();
}

void Session::PrintEffects(size_t logStart, size_t traceStart, size_t assertStart) {
  const std::vector<sim::SdkCall>& trace = sim::chip().Trace();
  for (size_t i = traceStart; traceEcho_ && i < trace.size(); ++i) {
    Emit(Record("sdk", Role::Effect)
             .Text("sdk: ")
             .Add("call", trace[i].Text())
             .Set("function", trace[i].function)
             .Set("rc", trace[i].rc));
  }

  const std::vector<sim::LogRecord>& records = sim::halLog().Records();
  size_t note = 0;
  for (size_t i = logStart; i <= records.size(); ++i) {
    while (note < notes_.size() && notes_[note].logIndex <= i)
      Emit(notes_[note++].record);
    if (i == records.size())
      break;
    const sim::LogRecord& record = records[i];
    // Rule dumps span several lines; their continuation lines stay under the message.
    std::string text = record.text;
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 3))
      text.insert(at + 1, "  ");
    Record log("log", Role::Effect);
    log.Text(record.isError ? "error(" : "log(");
    if (record.isError)
      log.Set("error", true).Add("code", record.levelOrCode);
    else
      log.Set("error", false).Add("level", record.levelOrCode);
    Emit(log.Text("): " + text).Set("text", record.text));
  }

  const std::vector<sim::AssertRecord>& assertions = sim::Assertions();
  for (size_t i = assertStart; i < assertions.size(); ++i) {
    const std::string where = assertions[i].file + ":" + std::to_string(assertions[i].line);
    Emit(Record("assert", Role::Effect)
             .Text("assert: ")
             .Add("expression", assertions[i].expression)
             .Text(" at ")
             .Add("at", where));
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
  Emit(Record("note", Role::Result).Add("text", line));
}

void Session::Emit(const Record& record) {
  const Role role = record.GetRole();
  if (quiet_ && (role == Role::Echo || role == Role::Effect))
    return;
  const Rendering rendering = record.GetRendering();
  const bool asJson = json_ || rendering == Rendering::JsonAlways;
  if (rendering == (asJson ? Rendering::TextOnly : Rendering::JsonOnly))
    return;
  out_ << (asJson ? JsonLine(JsonOf(record, place_, rangeVlan_)) : TextOf(record, rangeVlan_));
}

void Session::EmitError(std::ostream& err, const Record& record) {
  out_.flush();
  err << record.TextForm() << std::endl;
  if (json_)
    out_ << JsonLine(JsonOf(record, place_, rangeVlan_)) << std::flush;
}

}  // namespace halbdsim
