#include "library_book.h"

#include <algorithm>

#include "hal_bridge_port_itf.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

bool IsLag(limid_t id) {
  return static_cast<sim::IdKind>(id.bytes[0]) == sim::IdKind::Lag;
}

constexpr unsigned kNoNativeVlan = 4095;

}  // namespace

void LibraryBook::FrameTypeSet(limid_t id, long long type, const std::set<limid_t>& members) {
  kept_[id].frameType = type;
  for (const limid_t& member : members)
    kept_[member].frameType = type;
}

void LibraryBook::NativeVlanSet(limid_t id, unsigned vlan, int rc) {
  if (rc != 0 || !IsLag(id))
    return;
  kept_[id].nativeVlan = vlan == kNoNativeVlan ? std::nullopt : std::optional<unsigned>(vlan);
}

void LibraryBook::PrioritySet(limid_t id, unsigned priority, int rc) {
  if (rc != 0 || !IsLag(id))
    return;
  kept_[id].priority = priority == 0 ? std::nullopt : std::optional<unsigned>(priority);
}

void LibraryBook::QinQSet(limid_t id, bool on, int rc) {
  if (rc == 0)
    kept_[id].qinq = on;
}

void LibraryBook::TpidSet(limid_t id, unsigned tpid) {
  kept_[id].tpid = tpid;
}

void LibraryBook::BlockSet(limid_t port, bool block, const std::string& client) {
  // Only the spanning tree client may block, and only ports; a refusal keeps nothing.
  if (client == "hal-stlp" && static_cast<sim::IdKind>(port.bytes[0]) == sim::IdKind::Ethernet)
    kept_[port].blocked = block;
}

void LibraryBook::RuleAdded(limid_t id, bool ingress, const std::string& rule, int rc) {
  std::vector<std::string>& rules = ingress ? kept_[id].ingressRules : kept_[id].egressRules;
  if (rc == 0 && std::find(rules.begin(), rules.end(), rule) == rules.end())
    rules.push_back(rule);
}

void LibraryBook::RuleDeleted(limid_t id, bool ingress, const std::string& rule, int rc) {
  if (rc != 0)
    return;
  std::vector<std::string>& rules = ingress ? kept_[id].ingressRules : kept_[id].egressRules;
  rules.erase(std::remove(rules.begin(), rules.end(), rule), rules.end());
}

void LibraryBook::MemberAdded(limid_t lag, limid_t member) {
  KeptAttributes& kept = kept_[member];
  kept.frameType = Of(lag).frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES);
  kept.qinq = false;
}

void LibraryBook::MemberDeleted(limid_t member) {
  kept_[member].frameType = HAL_BP_ADMIT_ALL_FRAMES;
}

void LibraryBook::LagDeleted(limid_t lag, const std::set<limid_t>& members) {
  for (const limid_t& member : members)
    MemberDeleted(member);
  kept_.erase(lag);
}

KeptAttributes LibraryBook::Of(limid_t id) const {
  const auto kept = kept_.find(id);
  return kept == kept_.end() ? KeptAttributes{} : kept->second;
}

std::string FrameTypeName(long long type) {
  switch (type) {
    case HAL_BP_ADMIT_ALL_FRAMES:
      return "all";
    case HAL_BP_ADMIT_ONLY_TAGGED:
      return "tagged-only";
    case HAL_BP_ADMIT_ONLY_UNTAGGED:
      return "untagged-only";
    default:
      return std::to_string(type);
  }
}

}  // namespace halbdsim
