// The simulated common chip library: identifier tables, LAG member lists, printable names and the
// shared VLAN member table.
#include <cstring>
#include <stdexcept>

#include "sim_internal.h"

namespace sim {
namespace {

using PortTable = std::map<limid_t, LimIdPortEntry>;

struct CommonTables {
  HalBcmCommon instance{};
  PortTable ports;
  PortTable gports;
  std::map<composed_id<int>, limid_t> devices;
  std::map<limid_t, std::set<limid_t>> lagMembers;
  VlanMemberTable vlanMembers;
};

CommonTables& Tables() {
  static CommonTables tables;
  return tables;
}

// Lower-bound descent of the ordered index: the last node not less than the key is the candidate,
// which is a hit only when the key is not less than it either.
const LimIdPortEntry& Lookup(const PortTable& table, limid_t id) {
  auto candidate = table.lower_bound(id);
  if (candidate == table.end() || id < candidate->first) {
    throw std::out_of_range("HAL ID not found");
  }
  return candidate->second;
}

// One lower-bound descent, as Lookup.
std::set<limid_t>& MembersOf(limid_t lag) {
  CommonTables& tables = Tables();
  const auto it = tables.lagMembers.lower_bound(lag);
  if (it == tables.lagMembers.end() || lag < it->first)
    throw std::out_of_range("LAG not found");
  return it->second;
}

}  // namespace

void Common::SetUnit(int unit) {
  Tables().instance.unit = unit;
  internal::SetChipUnit(unit);
}

void Common::AddPort(limid_t id, int gport) {
  Tables().ports[id] = LimIdPortEntry{id, gport};
  AddGportOnly(id, gport);
}

void Common::AddGportOnly(limid_t id, int gport) {
  Tables().gports[id] = LimIdPortEntry{id, gport};
  Tables().devices[composed_id<int>{gport, -1}] = id;
}

void Common::AddLag(limid_t lag, int trunkId) {
  AddGportOnly(lag, TrunkGport(trunkId));
  Tables().lagMembers[lag];
}

void Common::ListLagMember(limid_t lag, limid_t member) {
  MembersOf(lag).insert(member);
}

void Common::UnlistLagMember(limid_t lag, limid_t member) {
  MembersOf(lag).erase(member);
}

void Common::ForgetLag(limid_t lag) {
  Tables().lagMembers.erase(lag);
}

bool Common::HasLag(limid_t lag) const {
  return Tables().lagMembers.count(lag) != 0;
}

std::optional<limid_t> Common::LagOf(limid_t member) const {
  for (const auto& [lag, members] : Tables().lagMembers) {
    if (members.count(member) != 0)
      return lag;
  }
  return std::nullopt;
}

VlanMemberTable& Common::VlanMembers() {
  return Tables().vlanMembers;
}

Common& common() {
  static Common instance;
  return instance;
}

namespace internal {

std::set<int> TrunkPorts(int trunk) {
  std::set<int> ports;
  for (const auto& [lag, members] : Tables().lagMembers) {
    auto lagEntry = Tables().gports.find(lag);
    if (lagEntry == Tables().gports.end() || lagEntry->second.port != TrunkGport(trunk))
      continue;
    for (const limid_t& member : members) {
      auto entry = Tables().ports.find(member);
      if (entry == Tables().ports.end())
        continue;
      if (auto port = ResolvePort(entry->second.port))
        ports.insert(*port);
    }
  }
  return ports;
}

std::optional<int> TrunkOfPort(int port) {
  for (const auto& [lag, members] : Tables().lagMembers) {
    auto lagEntry = Tables().gports.find(lag);
    if (lagEntry == Tables().gports.end())
      continue;
    const int trunk = lagEntry->second.port & BCM_GPORT_TRUNK_ID_MASK;
    if (TrunkPorts(trunk).count(port) != 0)
      return trunk;
  }
  return std::nullopt;
}

void ResetCommon() {
  CommonTables& tables = Tables();
  tables.ports.clear();
  tables.gports.clear();
  tables.devices.clear();
  tables.lagMembers.clear();
  tables.vlanMembers.clear();
  common().SetUnit(0);
}

}  // namespace internal
}  // namespace sim

HalBcmCommon* HalBcmCommon::GetInstance() {
  return &sim::Tables().instance;
}

std::unique_ptr<char[]> HalBcmCommon::DecodeLimId(limid_t id) const {
  const std::string name = sim::NameOf(id);
  std::unique_ptr<char[]> text(new char[name.size() + 1]);
  std::memcpy(text.get(), name.c_str(), name.size() + 1);
  return text;
}

const std::set<limid_t>& HalBcmCommon::GetLagMembers(limid_t lag) const {
  return sim::MembersOf(lag);
}

const LimIdPortEntry& HalBcmCommon::LookupPort(limid_t id) const {
  return sim::Lookup(sim::Tables().ports, id);
}

const LimIdPortEntry& HalBcmCommon::LookupGport(limid_t id) const {
  return sim::Lookup(sim::Tables().gports, id);
}

limid_t HalBcmCommon::LookupDeviceId(composed_id<int> key) const {
  auto it = sim::Tables().devices.find(key);
  if (it == sim::Tables().devices.end())
    throw std::out_of_range("device ID not found");
  return it->second;
}

VlanMemberTable& HalBcmCommon::GetVlanMemberTable() {
  return sim::Tables().vlanMembers;
}
