// Commands of the bridge-domain service: membership, its queries, and the VLAN properties.
#include <climits>
#include <set>

#include "commands.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

const Choices kTagging = {{"tagged", 1}, {"untagged", 0}, {"true", 1}, {"false", 0}};
const Choices kProperties = {{"dhcp", HAL_VLAN_PROPERTY_DHCP},
                             {"igmp-snooping", HAL_VLAN_PROPERTY_IGMP_SNOOPING}};
const Choices kPropertyValues = {{"to-cpu", HAL_VLAN_PROP_DHCP_TO_CPU},
                                 {"drop", HAL_VLAN_PROP_DHCP_DROP}};

limid_t TakeBridgeDomain(const Session& session, Arguments& args) {
  return session.Resolve(args.Take("bridgeDomain"), "bridgeDomain", kBridgeDomain);
}

limid_t TakeIntf(const Session& session, Arguments& args) {
  return session.Resolve(args.Take("intf"), "intf", kPort | kLag);
}

unsigned VlanOf(limid_t bridgeDomain) {
  uint32_t kind = 0;
  uint32_t vlan = 0;
  limid_to_bridgedomain_components(bridgeDomain, &kind, &vlan);
  return vlan & 0xffff;
}

Action PrepareCreate(const Session& session, Arguments& args) {
  const limid_t bridgeDomain = TakeBridgeDomain(session, args);
  st_HalBridgeDomainId id{static_cast<unsigned short>(VlanOf(bridgeDomain))};
  if (!args.Empty())
    id.vlanId = ParseNumber<unsigned short>(args.Take("vlanId"), "vlanId");
  args.ExpectEnd();
  return Operation([=](Session& s) { return Result(s.BridgeDomain().create(bridgeDomain, id)); });
}

// The operations that take only the bridge domain.
Command DomainOnly(const std::string& name, const std::string& summary,
                   int (HalBridgeDomainItf::*operation)(limid_t)) {
  return {name, "<bridgeDomain>", summary,
          [operation](const Session& session, Arguments& args) -> Action {
            const limid_t bridgeDomain = TakeBridgeDomain(session, args);
            args.ExpectEnd();
            return Operation(
                [=](Session& s) { return Result((s.BridgeDomain().*operation)(bridgeDomain)); });
          }};
}

Action PrepareAddMember(const Session& session, Arguments& args) {
  const limid_t bridgeDomain = TakeBridgeDomain(session, args);
  const limid_t intf = TakeIntf(session, args);
  const bool tagged = ParseChoice(args.Take("tagged"), kTagging, "tagged") != 0;
  unsigned attributes = 0;
  if (!args.Empty())
    attributes = ParseNumber<unsigned>(args.Take("attributes"), "attributes");
  args.ExpectEnd();
  return Operation([=](Session& s) {
    return Result(s.BridgeDomain().addMember(bridgeDomain, intf, tagged, attributes));
  });
}

Action PrepareIsMember(const Session& session, Arguments& args) {
  const limid_t bridgeDomain = TakeBridgeDomain(session, args);
  const limid_t intf = TakeIntf(session, args);
  args.ExpectEnd();
  return Operation([=](Session& s) {
    bool member = false;
    bool tagged = false;
    unsigned attributes = 0;
    const int rc = s.BridgeDomain().isMember(bridgeDomain, intf, member, tagged, attributes);
    Record result = ResultRecord(rc);
    result.Text(" member=").Add("member", member).Text(" tagged=").Add("tagged", tagged);
    return Session::Outcome{{result.Text(" attributes=").Add("attributes", attributes)}, rc};
  });
}

Action PrepareDelMember(const Session& session, Arguments& args) {
  const limid_t bridgeDomain = TakeBridgeDomain(session, args);
  const limid_t intf = TakeIntf(session, args);
  args.ExpectEnd();
  return Operation(
      [=](Session& s) { return Result(s.BridgeDomain().delMember(bridgeDomain, intf)); });
}

Action PrepareGetNumMembers(const Session& session, Arguments& args) {
  const limid_t bridgeDomain = TakeBridgeDomain(session, args);
  args.ExpectEnd();
  return Operation([=](Session& s) {
    unsigned count = 0;
    const int rc = s.BridgeDomain().getNumMembers(bridgeDomain, count);
    return Session::Outcome{{ResultRecord(rc).Text(" count=").Add("count", count)}, rc};
  });
}

Action PrepareGetMembers(const Session& session, Arguments& args) {
  const limid_t bridgeDomain = TakeBridgeDomain(session, args);
  args.ExpectEnd();
  return Operation([=](Session& s) {
    std::set<limid_t> members;
    const int rc = s.BridgeDomain().getMembers(bridgeDomain, members);
    std::vector<std::string> names;
    names.reserve(members.size());
    for (const limid_t& member : members)
      names.push_back(sim::NameOf(member));
    return Session::Outcome{
        {ResultRecord(rc).Text(" members={").Add("members", names, JoinWords(names)).Text("}")},
        rc};
  });
}

Command PropertyCommand(const std::string& name, const std::string& summary,
                        int (HalBridgeDomainItf::*operation)(limid_t, en_HalVlanProperty,
                                                             en_HalVlanPropValue) const) {
  return {name, "<bridgeDomain> <property> [value]", summary,
          [operation](const Session& session, Arguments& args) -> Action {
            const limid_t bridgeDomain = TakeBridgeDomain(session, args);
            const auto property = static_cast<en_HalVlanProperty>(ParseChoiceOrNumber(
                args.Take("property"), kProperties, INT_MIN, INT_MAX, "property"));
            auto value = static_cast<en_HalVlanPropValue>(0);
            if (!args.Empty()) {
              value = static_cast<en_HalVlanPropValue>(
                  ParseChoiceOrNumber(args.Take("value"), kPropertyValues, 0, UINT_MAX, "value"));
            }
            args.ExpectEnd();
            return Operation([=](Session& s) {
              return Result((s.BridgeDomain().*operation)(bridgeDomain, property, value));
            });
          }};
}

}  // namespace

std::vector<Command> DomainCommands() {
  return {
      {"create", "<bridgeDomain> [vlanId]", "create a bridge domain (the chip is not touched)",
       PrepareCreate},
      DomainOnly("destroy", "destroy a bridge domain (the chip is not touched)",
                 &HalBridgeDomainItf::destroy),
      {"addMember", "<bridgeDomain> <intf> <tagged> [attributes]",
       "add a port or LAG to a VLAN, tagged or untagged", PrepareAddMember},
      {"isMember", "<bridgeDomain> <intf>", "ask the chip whether a port or LAG is a member",
       PrepareIsMember},
      {"delMember", "<bridgeDomain> <intf>", "remove a port or LAG from a VLAN", PrepareDelMember},
      DomainOnly("delAllMembers", "remove every member of a VLAN from the chip",
                 &HalBridgeDomainItf::delAllMembers),
      {"getNumMembers", "<bridgeDomain>", "count the chip's members of a VLAN",
       PrepareGetNumMembers},
      {"getMembers", "<bridgeDomain>", "list the chip's members of a VLAN", PrepareGetMembers},
      PropertyCommand("AddPropertyValue",
                      "switch on dhcp (value to-cpu, drop or a number) or igmp-snooping",
                      &HalBridgeDomainItf::AddPropertyValue),
      PropertyCommand("RemovePropertyValue", "switch off dhcp actions or igmp-snooping",
                      &HalBridgeDomainItf::RemovePropertyValue),
  };
}

}  // namespace halbdsim
