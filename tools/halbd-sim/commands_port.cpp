// Commands of the bridge-port service: the six attributes, blocking, the outer TPID query and
// the VLAN mapping rules.
#include <climits>
#include <cstdio>

#include "commands.h"
#include "rule_syntax.h"

namespace halbdsim {

namespace {

const Choices kFrameTypes = {{"all", HAL_BP_ADMIT_ALL_FRAMES},
                             {"tagged-only", HAL_BP_ADMIT_ONLY_TAGGED},
                             {"untagged-only", HAL_BP_ADMIT_ONLY_UNTAGGED}};
const Choices kQinQModes = {{"disable", HAL_BP_QINQ_DISABLE}, {"enable", HAL_BP_QINQ_ENABLE}};
const Choices kStages = {{"ingress", static_cast<long long>(vlanxlate::Stage::Ingress)},
                         {"egress", static_cast<long long>(vlanxlate::Stage::Egress)}};
const Choices kBooleans = {{"true", 1}, {"false", 0}};

limid_t TakeInterface(const Session& session, Arguments& args, const std::string& name) {
  return session.Resolve(args.Take(name), name, kPort | kLag);
}

// The setters that take an interface and one number of the value's type.
template <typename Value>
Command NumberSetter(const std::string& name, const std::string& valueName,
                     const std::string& summary, int (HalBridgePortItf::*setter)(limid_t, Value),
                     Value (*parse)(const std::string&, const std::string&) = ParseNumber<Value>) {
  return {
      name, "<id> <" + valueName + ">", summary,
      [valueName, setter, parse](const Session& session, Arguments& args) -> Action {
        const limid_t id = TakeInterface(session, args, "id");
        const Value value = parse(args.Take(valueName), valueName);
        args.ExpectEnd();
        return Operation([=](Session& s) { return Result((s.BridgePort().*setter)(id, value)); });
      }};
}

Action PrepareAcceptableFrameType(const Session& session, Arguments& args) {
  const limid_t id = TakeInterface(session, args, "id");
  const auto type = static_cast<en_HalBridgePortAcceptableFrameTypes>(
      ParseChoiceOrNumber(args.Take("type"), kFrameTypes, INT_MIN, INT_MAX, "type"));
  args.ExpectEnd();
  return Operation(
      [=](Session& s) { return Result(s.BridgePort().SetAcceptableFrameType(id, type)); });
}

Action PrepareQinQ(const Session& session, Arguments& args) {
  const limid_t id = TakeInterface(session, args, "id");
  const auto mode = static_cast<en_HalBridgePortQinQ>(
      ParseChoiceOrNumber(args.Take("mode"), kQinQModes, INT_MIN, INT_MAX, "mode"));
  args.ExpectEnd();
  return Operation([=](Session& s) { return Result(s.BridgePort().SetVlanQinQ(id, mode)); });
}

Action PrepareBlockPort(const Session& session, Arguments& args) {
  const limid_t port = TakeInterface(session, args, "port");
  const bool block = ParseChoice(args.Take("block"), kBooleans, "block") != 0;
  const std::string client = args.Take("client");
  args.ExpectEnd();
  return Operation([=](Session&) { return Result(BlockPort(port, block, client)); });
}

Action PrepareGetTpid(const Session& session, Arguments& args) {
  const limid_t id = TakeInterface(session, args, "id");
  args.ExpectEnd();
  return Operation([=](Session&) {
    const unsigned tpid = GetTpid(id);
    char text[16];
    std::snprintf(text, sizeof text, "0x%04x", tpid);
    // A value, not a code: expect result does not read it.
    return Session::Outcome{{ValueResult("tpid", tpid, text)}, std::nullopt};
  });
}

// AddVlanMappingRule and DeleteVlanMappingRule share their arguments.
Command RuleCommand(const std::string& name, const std::string& summary,
                    int (HalBridgePortItf::*operation)(const limid_t&, vlanxlate::Stage,
                                                       const vlanxlate::VlanMapping&)) {
  return {name, "<id> <stage> RULE", summary,
          [operation](const Session& session, Arguments& args) -> Action {
            const limid_t id = TakeInterface(session, args, "id");
            const auto stage = static_cast<vlanxlate::Stage>(
                ParseChoiceOrNumber(args.Take("stage"), kStages, 0, UINT32_MAX, "stage"));
            // Only an added rule does something worth a warning.
            std::vector<std::string> warnings;
            const bool adding = operation == &HalBridgePortItf::AddVlanMappingRule;
            const vlanxlate::VlanMapping rule = ParseRule(args, adding ? &warnings : nullptr);
            const Action run = Operation(
                [=](Session& s) { return Result((s.BridgePort().*operation)(id, stage, rule)); });
            return [warnings, run](Session& s) {
              for (const std::string& warning : warnings)
                s.Emit(Warning(warning));
              run(s);
            };
          }};
}

}  // namespace

std::vector<Command> PortCommands() {
  return {
      {"SetAcceptableFrameType", "<id> <type>",
       "frames a port or LAG admits: all, tagged-only, untagged-only or a number",
       PrepareAcceptableFrameType},
      NumberSetter<unsigned short>("SetNativeVlan", "vlan",
                                   "untagged VLAN of a port or LAG (4095: none)",
                                   &HalBridgePortItf::SetNativeVlan),
      NumberSetter<unsigned char>("SetPrio4Untagged", "pcp",
                                  "priority (0 to 7) given to untagged frames of a port or LAG",
                                  &HalBridgePortItf::SetPrio4Untagged, ParsePriority),
      {"SetVlanQinQ", "<id> <mode>", "Q-in-Q of a port or LAG: disable, enable or a number",
       PrepareQinQ},
      NumberSetter<unsigned short>("SetTpid", "tpid", "outer TPID of a port or LAG",
                                   &HalBridgePortItf::SetTpid),
      NumberSetter<unsigned short>("SetInnerTpid", "tpid", "inner TPID of a port",
                                   &HalBridgePortItf::SetInnerTpid),
      {"BlockPort", "<port> <block> <client>",
       "block (true) or unblock (false) a port on request of a client (hal-stlp may)",
       PrepareBlockPort},
      {"GetTpid", "<id>", "outer TPID last set on a port or LAG", PrepareGetTpid},
      RuleCommand("AddVlanMappingRule",
                  "add a VLAN mapping rule at stage ingress, egress or a number",
                  &HalBridgePortItf::AddVlanMappingRule),
      RuleCommand("DeleteVlanMappingRule", "delete a VLAN mapping rule",
                  &HalBridgePortItf::DeleteVlanMappingRule),
  };
}

}  // namespace halbdsim
