// Commands that set up the simulated platform (ports, LAGs, chip VLANs, chip capabilities) and
// inject chip failures.
#include <algorithm>
#include <climits>

#include "commands.h"
#include "line_reader.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

// The chip calls the library makes; a fault can be planned for each.
const std::vector<std::string> kSdkFunctions = {
    "bcm_port_tpid_set",
    "bcm_port_inner_tpid_set",
    "bcm_port_untagged_vlan_set",
    "bcm_port_untagged_priority_set",
    "bcm_port_dtag_mode_set",
    "bcm_port_discard_set",
    "bcm_port_class_get",
    "bcm_port_class_set",
    "bcm_vlan_gport_add",
    "bcm_vlan_gport_delete",
    "bcm_vlan_gport_delete_all",
    "bcm_vlan_gport_get",
    "bcm_vlan_gport_get_all",
    "bcm_vlan_control_vlan_get",
    "bcm_vlan_control_vlan_set",
    "bcm_vlan_control_vlan_selective_get",
    "bcm_vlan_control_vlan_selective_set",
    "bcm_vlan_control_port_set",
    "bcm_vlan_translate_action_add",
    "bcm_vlan_translate_action_delete",
    "bcm_vlan_translate_egress_action_add",
    "bcm_vlan_translate_egress_action_delete",
    "bcm_multicast_l2_encap_get",
    "bcm_multicast_egress_add",
    "bcm_multicast_egress_delete",
    "bcm_multicast_egress_delete_all",
};

constexpr int kMaxPortNumber = BCM_GPORT_LOCAL_PORT_MASK;
constexpr bcm_vlan_t kReservedVlan = 4095;

// The identifier a set-up command declares; it must be of the kind the command declares.
limid_t ParseNameOfKind(const std::string& name, sim::IdKind kind, const std::string& mistake) {
  try {
    const limid_t id = sim::ParseId(name);
    if (static_cast<sim::IdKind>(id.bytes[0]) == kind)
      return id;
  } catch (const std::exception&) {
    // reported below, like a name of the wrong kind
  }
  throw ScenarioError(mistake + ": '" + name + "'");
}

std::optional<int> TakeGport(Arguments& args) {
  const std::string kind = args.Take("gport kind");
  if (kind == "none")
    return std::nullopt;
  if (kind == "local") {
    return sim::LocalGport(
        static_cast<int>(ParseInteger(args.Take("local port"), 0, kMaxPortNumber, "local port")));
  }
  if (kind == "module") {
    const auto module = static_cast<int>(
        ParseInteger(args.Take("module"), 0, BCM_GPORT_MODPORT_MODULE_MASK, "module"));
    const auto port =
        static_cast<int>(ParseInteger(args.Take("module port"), 0, kMaxPortNumber, "module port"));
    return sim::ModuleGport(module, port);
  }
  throw ScenarioError("gport kind must be local, module or none: '" + kind + "'");
}

// One chip port, or one gport of another chip, stands for one interface: a second name for it
// would make every lookup by gport answer one of the two.
void RefuseSharedGport(const Session& session, int gport) {
  const std::optional<int> chipPort = ChipPortOfGport(gport);
  for (const auto& [id, declared] : session.Declared()) {
    if (!declared.gport || declared.trunkId >= 0)
      continue;
    if (chipPort && ChipPortOfGport(*declared.gport) == chipPort) {
      throw ScenarioError("chip port " + std::to_string(*chipPort) + " is already " +
                          sim::NameOf(id));
    }
    if (*declared.gport == gport)
      throw ScenarioError("gport " + Hex(static_cast<unsigned>(gport)) + " is already " +
                          sim::NameOf(id));
  }
}

// A trunk is one LAG's while that LAG lives; a deleted LAG's trunk may be given again.
void RefuseSharedTrunk(const Session& session, limid_t lag, int trunkId) {
  for (const auto& [id, declared] : session.Declared()) {
    if (declared.trunkId == trunkId && !(id == lag) && sim::common().HasLag(id))
      throw ScenarioError("trunk " + std::to_string(trunkId) + " is already " + sim::NameOf(id));
  }
}

Action PreparePort(const Session& session, Arguments& args) {
  const std::string name = args.Take("port name");
  const limid_t port =
      ParseNameOfKind(name, sim::IdKind::Ethernet, "port name must read eth<slot>/<port>");
  if (session.IsDeclared(port))
    throw ScenarioError(name + " is already declared");
  const std::optional<int> gport = TakeGport(args);
  args.ExpectEnd();
  if (gport)
    RefuseSharedGport(session, *gport);
  return [=](Session& s) {
    s.Declare(port, DeclaredInterface{gport, -1});
    Record declared("port", Role::Effect);
    declared.Set("port", sim::NameOf(port));
    if (!gport) {
      s.Emit(declared.Add("gport", Json(), "no gport: in no identifier table"));
      return;
    }
    sim::common().AddPort(port, *gport);
    s.Emit(declared.Text("gport ").AddHex("gport", static_cast<unsigned>(*gport)));
  };
}

Action PrepareLag(const Session& session, Arguments& args) {
  const std::string name = args.Take("lag name");
  const limid_t lag = ParseNameOfKind(name, sim::IdKind::Lag, "LAG name must read lag<n>");
  if (sim::common().HasLag(lag))
    throw ScenarioError(name + " is already declared");
  const auto trunkId =
      static_cast<int>(ParseInteger(args.Take("trunkId"), 0, sim::kMaxTrunkId, "trunkId"));
  args.ExpectEnd();
  RefuseSharedTrunk(session, lag, trunkId);
  return [=](Session& s) {
    s.Declare(lag, DeclaredInterface{sim::TrunkGport(trunkId), trunkId});
    sim::common().AddLag(lag, trunkId);
    s.Emit(Record("lag", Role::Effect)
               .Set("lag", sim::NameOf(lag))
               .Set("trunk", trunkId)
               .Text("gport ")
               .AddHex("gport", static_cast<unsigned>(sim::TrunkGport(trunkId))));
    s.RunOperation([&] { return AnswerLines(s.LagOrchestrator().CreateLag(lag)); });
  };
}

Action PrepareVlan(const Session&, Arguments& args) {
  const auto vlan = static_cast<bcm_vlan_t>(ParseInteger(args.Take("vlan"), 0, 4095, "vlan"));
  const bool withGroup = !args.TakeKeyword({"no-broadcast-group"});
  args.ExpectEnd();
  if (sim::chip().HasVlan(vlan)) {
    throw ScenarioError("VLAN " + std::to_string(vlan) + " already exists on the chip");
  }
  const int rc = sim::Chip::VlanCreationCode(vlan);
  if (rc != BCM_E_NONE) {
    throw ScenarioError("the chip refuses to create VLAN " + std::to_string(vlan) + ": " +
                        _shr_errmsg[-rc] + " (" + std::to_string(rc) +
                        "); VLAN 0 marks priority-tagged frames");
  }
  return [=](Session& s) {
    if (vlan == kReservedVlan) {
      s.Emit(
          Warning("VLAN 4095 is reserved by 802.1Q; the library also writes it as the "
                  "untagged VLAN of a port without a native VLAN"));
    }
    const bcm_multicast_t group = sim::chip().CreateVlan(vlan, withGroup);
    Record created("vlan", Role::Effect);
    created.Set("vlan", unsigned{vlan});
    if (group != 0)
      created.Text("broadcast group ").AddHex("broadcast-group", static_cast<unsigned>(group));
    else
      created.Add("broadcast-group", Json(), "no broadcast group");
    s.Emit(created);
  };
}

Command ChipSwitch(const std::string& what, const std::string& summary,
                   void (sim::Chip::*set)(bool)) {
  return {"chip " + what, "on|off", summary,
          [what, set](const Session&, Arguments& args) -> Action {
            const bool on = ParseOnOff(args.Take(what), what);
            args.ExpectEnd();
            return [=](Session&) { (sim::chip().*set)(on); };
          }};
}

std::string TakeSdkFunction(Arguments& args) {
  std::string function = args.Take("function");
  if (std::find(kSdkFunctions.begin(), kSdkFunctions.end(), function) == kSdkFunctions.end()) {
    throw ScenarioError("unknown SDK function '" + function + "'");
  }
  return function;
}

Action PrepareFail(const Session&, Arguments& args) {
  const std::string function = TakeSdkFunction(args);
  const auto count = static_cast<int>(ParseInteger(args.Take("count"), 1, INT_MAX, "count"));
  const int rc = ParseNumber<int>(args.Take("rc"), "rc");
  args.ExpectEnd();
  return [=](Session&) { sim::chip().FailNext(function, count, rc); };
}

Action PrepareFailNth(const Session&, Arguments& args) {
  const std::string function = TakeSdkFunction(args);
  const auto nth = static_cast<int>(ParseInteger(args.Take("nth"), 1, INT_MAX, "nth"));
  const int rc = ParseNumber<int>(args.Take("rc"), "rc");
  args.ExpectEnd();
  return [=](Session&) { sim::chip().FailNth(function, nth, rc); };
}

Action PrepareClearFaults(const Session&, Arguments& args) {
  args.ExpectEnd();
  return [](Session&) { sim::chip().ClearFaults(); };
}

Action PrepareTrace(const Session&, Arguments& args) {
  const bool on = ParseOnOff(args.Take("on|off"), "trace");
  args.ExpectEnd();
  return [=](Session& s) { s.SetTraceEcho(on); };
}

}  // namespace

const std::vector<std::string>& SdkFunctionNames() {
  return kSdkFunctions;
}

std::vector<Command> SetupCommands() {
  return {
      {"port", "<name> <gport>",
       "declare a port; gport: local P, module M P, or none (in no identifier table)", PreparePort},
      {"lag", "<name> <trunkId>", "declare a LAG with its trunk and raise its creation",
       PrepareLag},
      {"vlan", "<vlan> [no-broadcast-group]", "create a VLAN on the chip", PrepareVlan},
      ChipSwitch("packet-priority",
                 "whether the chip takes packet-priority actions in VLAN translation",
                 &sim::Chip::SetPacketPriorityCapable),
      ChipSwitch("module-gports", "whether the chip lists VLAN members as module gports",
                 &sim::Chip::SetReportModuleGports),
      {"fail", "<function> <count> <rc>", "the next count calls of an SDK function return rc",
       PrepareFail},
      {"fail-nth", "<function> <nth> <rc>", "only the nth call from now of an SDK function fails",
       PrepareFailNth},
      {"clear-faults", "", "cancel the planned failures", PrepareClearFaults},
      {"trace", "on|off", "print the SDK calls of each operation", PrepareTrace},
  };
}

}  // namespace halbdsim
