// Commands of the two orchestrators: LAG events raised through the simulated LAG orchestrator,
// and VLAN orchestrator clients that print what they are told.
#include "chip_changes.h"
#include "commands.h"
#include "line_reader.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

// Events concern a LAG that the common tables know; a deleted one must be declared again.
limid_t TakeLiveLag(const Session& session, Arguments& args) {
  const std::string name = args.Take("lag");
  const limid_t lag = session.Resolve(name, "lag", kLag);
  if (!sim::common().HasLag(lag)) {
    throw ScenarioError(name + " was deleted: declare it again with 'lag'");
  }
  return lag;
}

// Raises a LAG event, then tells what it changed on the chip, port by port, before the handlers'
// answers.
Action LagEvent(
    const std::function<std::vector<sim::LagOrchestratorSim::Answer>(Session&)>& raise) {
  return Operation([raise](Session& s) {
    const auto before = SnapshotPorts(s);
    Session::Outcome answers = AnswerLines(raise(s));
    Session::Outcome changes{DescribeChanges(before, SnapshotPorts(s)), std::nullopt};
    return changes.Append(std::move(answers));
  });
}

// A LAG manager never raises an impossible membership change: the line is refused whole.
void RefuseImpossible(const std::optional<std::string>& refusal) {
  if (refusal)
    throw ScenarioError(*refusal);
}

Action PrepareMemberAdded(const Session& session, Arguments& args) {
  const limid_t lag = TakeLiveLag(session, args);
  const limid_t member = session.Resolve(args.Take("member"), "member", kPort);
  args.ExpectEnd();
  RefuseImpossible(sim::LagOrchestratorSim::AddMemberRefusal(lag, member));
  return LagEvent([=](Session& s) { return s.LagOrchestrator().AddMember(lag, member); });
}

Action PrepareMemberDeleted(const Session& session, Arguments& args) {
  const limid_t lag = TakeLiveLag(session, args);
  const limid_t member = session.Resolve(args.Take("member"), "member", kPort);
  args.ExpectEnd();
  RefuseImpossible(sim::LagOrchestratorSim::DeleteMemberRefusal(lag, member));
  return LagEvent([=](Session& s) { return s.LagOrchestrator().DeleteMember(lag, member); });
}

Action PrepareLagDeleted(const Session& session, Arguments& args) {
  const limid_t lag = TakeLiveLag(session, args);
  // "unlisted": the LAG manager dropped the member list from the common tables before it raised
  // the event, so the services cannot read the members any more.
  const bool unlisted = args.TakeKeyword({"unlisted"}).has_value();
  args.ExpectEnd();
  return LagEvent([=](Session& s) {
    if (unlisted) {
      // The first service told cannot read the members and throws: the bridge port never hears
      // of the deletion and keeps what it holds for the LAG.
      return s.LagOrchestrator().DeleteLagUnlisted(lag);
    }
    return s.LagOrchestrator().DeleteLag(lag);
  });
}

struct ClientKey {
  unsigned priority;
  std::string name;
};

ClientKey TakeClient(Arguments& args) {
  const unsigned priority = ParseNumber<unsigned>(args.Take("priority"), "priority");
  return {priority, args.Take("name")};
}

Action PrepareRegisterClient(const Session&, Arguments& args) {
  const ClientKey client = TakeClient(args);
  const auto events = args.TakeKeyword({"add-only", "remove-only"});
  args.ExpectEnd();
  const bool takesAdd = !events || *events == "add-only";
  const bool takesRemove = !events || *events == "remove-only";
  return Operation([=](Session& s) {
    s.RegisterClient(client.priority, client.name, takesAdd, takesRemove);
    return Session::Outcome{};
  });
}

Action PrepareDeregisterClient(const Session&, Arguments& args) {
  const ClientKey client = TakeClient(args);
  args.ExpectEnd();
  return Operation([=](Session& s) {
    s.DeregisterClient(client.priority, client.name);
    return Session::Outcome{};
  });
}

Action PrepareRefuse(const Session& session, Arguments& args) {
  const ClientKey client = TakeClient(args);
  if (!session.HasClient(client.priority, client.name)) {
    throw ScenarioError("no client " + std::to_string(client.priority) + " " + client.name +
                        " is registered");
  }
  const long long events =
      ParseChoice(args.Take("events"),
                  {{"none", 0}, {"vlan_add", 1}, {"vlan_remove", 2}, {"both", 3}}, "events");
  args.ExpectEnd();
  return [=](Session& s) {
    s.SetRefusals(client.priority, client.name, (events & 1) != 0, (events & 2) != 0);
  };
}

}  // namespace

std::vector<Command> EventCommands() {
  return {
      {"memberAdded", "<lag> <member>",
       "a port joins a LAG: raise the event (to move a port: memberDeleted, then memberAdded)",
       PrepareMemberAdded},
      {"memberDeleted", "<lag> <member>", "a port leaves a LAG: raise the event to the services",
       PrepareMemberDeleted},
      {"lagDeleted", "<lag> [unlisted]",
       "a LAG is deleted: raise the event, then forget the LAG (unlisted: forget it first)",
       PrepareLagDeleted},
      {"RegisterClient", "<priority> <name> [events]",
       "register a VLAN orchestrator client that prints what it is told (add-only, remove-only)",
       PrepareRegisterClient},
      {"DeregisterClient", "<priority> <name>", "deregister a VLAN orchestrator client",
       PrepareDeregisterClient},
      {"refuse", "<priority> <name> <events>",
       "make a client answer false to none, vlan_add, vlan_remove or both", PrepareRefuse},
  };
}

}  // namespace halbdsim
