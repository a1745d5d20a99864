#include "chip_changes.h"

#include "commands.h"

namespace halbdsim {

namespace {

// What changed on a port: each change's text for people and its values under its field.
struct Changes {
  std::vector<std::string> texts;
  Json values = Json::object();

  void Add(const char* field, const std::string& text, Json value) {
    texts.push_back(std::string(field) + " " + text);
    values[field] = std::move(value);
  }
};

void Field(Changes& changes, const char* name, long long before, long long after,
           bool hex = false) {
  if (before == after)
    return;
  auto text = [hex](long long value) {
    return hex ? Hex(static_cast<unsigned>(value)) : std::to_string(value);
  };
  changes.Add(name, text(before) + "->" + text(after), {{"from", before}, {"to", after}});
}

void Named(Changes& changes, const char* name, int before, int after,
           const std::vector<const char*>& names) {
  auto text = [&names](int value) {
    return value >= 0 && static_cast<size_t>(value) < names.size() ? std::string(names[value])
                                                                   : std::to_string(value);
  };
  if (before != after) {
    changes.Add(name, text(before) + "->" + text(after),
                {{"from", text(before)}, {"to", text(after)}});
  }
}

// VLANs in one map and not, or not alike, in the other.
void VlanList(Changes& changes, const char* field, const std::map<unsigned, bool>& from,
              const std::map<unsigned, bool>& other, bool withTagging) {
  std::string list;
  Json values = Json::array();
  for (const auto& [vlan, untagged] : from) {
    const auto there = other.find(vlan);
    if (there != other.end() && there->second == untagged)
      continue;
    list += (list.empty() ? "" : ", ") + ("vlan" + std::to_string(vlan)) +
            (withTagging ? (untagged ? " untagged" : " tagged") : "");
    values.push_back(withTagging ? Json{{"vlan", vlan}, {"tagged", !untagged}} : Json(vlan));
  }
  if (!list.empty())
    changes.Add(field, list, std::move(values));
}

Changes PortChanges(const PortSnapshot& a, const PortSnapshot& b) {
  Changes changes;
  VlanList(changes, "left", a.vlans, b.vlans, false);
  VlanList(changes, "joined", b.vlans, a.vlans, true);
  Field(changes, "native", a.state.untaggedVlan, b.state.untaggedVlan);
  Field(changes, "prio", a.state.untaggedPriority, b.state.untaggedPriority);
  Field(changes, "tpid", a.state.outerTpid, b.state.outerTpid, true);
  Named(changes, "dtag", a.state.dtagMode, b.state.dtagMode, {"none", "internal", "external"});
  Named(changes, "discard", a.state.discardMode, b.state.discardMode,
        {"none", "all", "untag", "tag"});
  Field(changes, "class", a.state.egressClass, b.state.egressClass);
  Field(changes, "ingress-rules", static_cast<long long>(a.ingressEntries),
        static_cast<long long>(b.ingressEntries));
  if (a.state.keyFirst != b.state.keyFirst || a.state.keySecond != b.state.keySecond) {
    changes.texts.emplace_back("lookup keys rewritten");
    changes.values["lookup-keys"] = "rewritten";
  }
  return changes;
}

}  // namespace

std::map<std::string, PortSnapshot> SnapshotPorts(const Session& session) {
  std::map<std::string, PortSnapshot> ports;
  for (const auto& [id, declared] : session.Declared()) {
    const std::optional<int> chipPort =
        declared.gport ? ChipPortOfGport(*declared.gport) : std::nullopt;
    if (static_cast<sim::IdKind>(id.bytes[0]) != sim::IdKind::Ethernet || !chipPort)
      continue;
    PortSnapshot& snapshot = ports[sim::NameOf(id)];
    snapshot.state = sim::chip().Port(*chipPort);
    for (bcm_vlan_t vlan : sim::chip().Vlans()) {
      const auto member = sim::chip().Vlan(vlan).members.find(*chipPort);
      if (member != sim::chip().Vlan(vlan).members.end())
        snapshot.vlans[vlan] = member->second;
    }
    for (const auto& entry : sim::chip().IngressTable()) {
      if (!entry.first.trunk && entry.first.portOrTrunk == *chipPort)
        ++snapshot.ingressEntries;
    }
  }
  return ports;
}

std::vector<Record> DescribeChanges(const std::map<std::string, PortSnapshot>& before,
                                    const std::map<std::string, PortSnapshot>& after) {
  std::vector<Record> records;
  for (const auto& [name, now] : after) {
    const auto was = before.find(name);
    if (was == before.end())
      continue;
    const Changes changes = PortChanges(was->second, now);
    if (changes.texts.empty())
      continue;
    std::string text = ":";
    for (size_t i = 0; i < changes.texts.size(); ++i)
      text += (i == 0 ? " " : "; ") + changes.texts[i];
    records.push_back(std::move(Record("change", Role::Effect)
                                    .Text("changed ")
                                    .Add("port", name)
                                    .Text(text)
                                    .Set("changes", changes.values)));
  }
  return records;
}

}  // namespace halbdsim
