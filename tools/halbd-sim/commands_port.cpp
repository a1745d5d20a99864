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

// How a setter's request and result enter the shell's copy of the service's books.
using Record = void (*)(LibraryBook&, limid_t, unsigned, int);

// The setters that take an interface and one number of the value's type.
template <typename Value>
Command NumberSetter(const std::string& name, const std::string& valueName,
                     const std::string& summary, int (HalBridgePortItf::*setter)(limid_t, Value),
                     Record record,
                     Value (*parse)(const std::string&, const std::string&) = ParseNumber<Value>) {
  return {name, "<id> <" + valueName + ">", summary,
          [valueName, setter, record, parse](const Session& session, Arguments& args) -> Action {
            const limid_t id = TakeInterface(session, args, "id");
            const Value value = parse(args.Take(valueName), valueName);
            args.ExpectEnd();
            return Operation([=](Session& s) {
              const int rc = (s.BridgePort().*setter)(id, value);
              if (record != nullptr)
                record(s.Book(), id, value, rc);
              return Result(rc);
            });
          }};
}

Action PrepareAcceptableFrameType(const Session& session, Arguments& args) {
  const limid_t id = TakeInterface(session, args, "id");
  const auto type = static_cast<en_HalBridgePortAcceptableFrameTypes>(
      ParseChoiceOrNumber(args.Take("type"), kFrameTypes, INT_MIN, INT_MAX, "type"));
  args.ExpectEnd();
  return Operation([=](Session& s) {
    // The library keeps the type, for the LAG's members too, before it reaches the chip.
    s.Book().FrameTypeSet(id, type, s.LagMembers(id));
    return Result(s.BridgePort().SetAcceptableFrameType(id, type));
  });
}

Action PrepareQinQ(const Session& session, Arguments& args) {
  const limid_t id = TakeInterface(session, args, "id");
  const auto mode = static_cast<en_HalBridgePortQinQ>(
      ParseChoiceOrNumber(args.Take("mode"), kQinQModes, INT_MIN, INT_MAX, "mode"));
  args.ExpectEnd();
  return Operation([=](Session& s) {
    const int rc = s.BridgePort().SetVlanQinQ(id, mode);
    s.Book().QinQSet(id, mode != HAL_BP_QINQ_DISABLE, rc);
    return Result(rc);
  });
}

Action PrepareBlockPort(const Session& session, Arguments& args) {
  const limid_t port = TakeInterface(session, args, "port");
  const bool block = ParseChoice(args.Take("block"), kBooleans, "block") != 0;
  const std::string client = args.Take("client");
  args.ExpectEnd();
  return Operation([=](Session& s) {
    const int rc = BlockPort(port, block, client);
    s.Book().BlockSet(port, block, client);
    return Result(rc);
  });
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
                                                       const vlanxlate::VlanMapping&),
                    void (LibraryBook::*record)(limid_t, bool, const std::string&, int)) {
  return {name, "<id> <stage> RULE", summary,
          [operation, record](const Session& session, Arguments& args) -> Action {
            const limid_t id = TakeInterface(session, args, "id");
            const auto stage = static_cast<vlanxlate::Stage>(
                ParseChoiceOrNumber(args.Take("stage"), kStages, 0, UINT32_MAX, "stage"));
            const std::string text = args.Rest();
            // Only an added rule does something worth a warning.
            std::vector<std::string> warnings;
            const bool adding = operation == &HalBridgePortItf::AddVlanMappingRule;
            const vlanxlate::VlanMapping rule = ParseRule(args, adding ? &warnings : nullptr);
            const Action run = Operation([=](Session& s) {
              const int rc = (s.BridgePort().*operation)(id, stage, rule);
              (s.Book().*record)(id, stage == vlanxlate::Stage::Ingress, text, rc);
              return Result(rc);
            });
            return [warnings, run](Session& s) {
              for (const std::string& warning : warnings)
                s.Emit(Warning(warning));
              run(s);
            };
          }};
}

void RecordNativeVlan(LibraryBook& book, limid_t id, unsigned vlan, int rc) {
  book.NativeVlanSet(id, vlan, rc);
}
void RecordPriority(LibraryBook& book, limid_t id, unsigned priority, int rc) {
  book.PrioritySet(id, priority, rc);
}
void RecordTpid(LibraryBook& book, limid_t id, unsigned tpid, int) {
  book.TpidSet(id, tpid);  // kept also when the chip refused it
}

}  // namespace

std::vector<Command> PortCommands() {
  return {
      {"SetAcceptableFrameType", "<id> <type>",
       "frames a port or LAG admits: all, tagged-only, untagged-only or a number",
       PrepareAcceptableFrameType},
      NumberSetter<unsigned short>("SetNativeVlan", "vlan",
                                   "untagged VLAN of a port or LAG (4095: none)",
                                   &HalBridgePortItf::SetNativeVlan, RecordNativeVlan),
      NumberSetter<unsigned char>(
          "SetPrio4Untagged", "pcp", "priority (0 to 7) given to untagged frames of a port or LAG",
          &HalBridgePortItf::SetPrio4Untagged, RecordPriority, ParsePriority),
      {"SetVlanQinQ", "<id> <mode>", "Q-in-Q of a port or LAG: disable, enable or a number",
       PrepareQinQ},
      NumberSetter<unsigned short>("SetTpid", "tpid", "outer TPID of a port or LAG",
                                   &HalBridgePortItf::SetTpid, RecordTpid),
      NumberSetter<unsigned short>("SetInnerTpid", "tpid", "inner TPID of a port",
                                   &HalBridgePortItf::SetInnerTpid, nullptr),
      {"BlockPort", "<port> <block> <client>",
       "block (true) or unblock (false) a port on request of a client (hal-stlp may)",
       PrepareBlockPort},
      {"GetTpid", "<id>", "outer TPID last set on a port or LAG", PrepareGetTpid},
      RuleCommand("AddVlanMappingRule",
                  "add a VLAN mapping rule at stage ingress, egress or a number",
                  &HalBridgePortItf::AddVlanMappingRule, &LibraryBook::RuleAdded),
      RuleCommand("DeleteVlanMappingRule", "delete a VLAN mapping rule",
                  &HalBridgePortItf::DeleteVlanMappingRule, &LibraryBook::RuleDeleted),
  };
}

}  // namespace halbdsim
