// VLAN translation functions of the simulated chip.
#include "sim_internal.h"

using sim::internal::ActionArg;
using sim::internal::Args;
using sim::internal::ChipModel;
using sim::internal::Dec;
using sim::internal::kMaxVlan;
using sim::internal::PortArg;
using sim::internal::RunCall;

namespace {

bool IsPortKey(int key) {
  return key == bcmVlanTranslateKeyPortDouble || key == bcmVlanTranslateKeyPortOuter ||
         key == bcmVlanTranslateKeyPortInner;
}

// The ingress entry a call names: a port (in any of its forms) or a trunk, with the key type and
// the two VLANs. Fails with the SDK's code when the arguments cannot name an entry.
int IngressKeyOf(bcm_gport_t port, int key, bcm_vlan_t outer, bcm_vlan_t inner,
                 sim::IngressKey& entry) {
  if (!IsPortKey(key) || outer > kMaxVlan || inner > kMaxVlan)
    return BCM_E_PARAM;
  const uint32_t type = static_cast<uint32_t>(port) >> BCM_GPORT_TYPE_SHIFT;
  if (type == BCM_GPORT_TYPE_TRUNK) {
    entry = sim::IngressKey{true, port & BCM_GPORT_TRUNK_ID_MASK, key, outer, inner};
    return BCM_E_NONE;
  }
  auto resolved = sim::internal::ResolvePort(port);
  if (!resolved)
    return BCM_E_PORT;
  entry = sim::IngressKey{false, *resolved, key, outer, inner};
  return BCM_E_NONE;
}

int EgressKeyOf(int portClass, bcm_vlan_t outer, bcm_vlan_t inner, sim::EgressKey& entry) {
  if (portClass < 0 || static_cast<uint32_t>(portClass) > sim::internal::kMaxPortClass ||
      outer > kMaxVlan || inner > kMaxVlan)
    return BCM_E_PARAM;
  entry = sim::EgressKey{portClass, outer, inner};
  return BCM_E_NONE;
}

template <typename Key>
int AddEntry(std::map<Key, bcm_vlan_action_set_t>& table, const Key& key,
             const bcm_vlan_action_set_t& action) {
  return table.emplace(key, action).second ? BCM_E_NONE : BCM_E_EXISTS;
}

template <typename Key>
int DeleteEntry(std::map<Key, bcm_vlan_action_set_t>& table, const Key& key) {
  return table.erase(key) ? BCM_E_NONE : BCM_E_NOT_FOUND;
}

bool IsTagAction(bcm_vlan_action_t action) {
  return action >= bcmVlanActionNone && action <= bcmVlanActionCopy;
}

// A modify action writes its TPID into the frame: 0 is no TPID.
bool IsTpidAction(bcm_vlan_tpid_action_t action, uint16_t tpid) {
  return action == bcmVlanTpidActionNone || (action == bcmVlanTpidActionModify && tpid != 0);
}

}  // namespace

namespace sim {
namespace internal {

int CheckAction(const bcm_vlan_action_set_t& a, uint32_t tableFlags) {
  const bool values = a.new_outer_vlan <= kMaxVlan && a.new_inner_vlan <= kMaxVlan &&
                      a.new_inner_pkt_prio <= kMaxPriority && a.priority >= -1 &&
                      a.priority <= kMaxPriority;
  bool actions = IsTpidAction(a.outer_tpid_action, a.outer_tpid) &&
                 IsTpidAction(a.inner_tpid_action, a.inner_tpid);
  for (bcm_vlan_action_t tag :
       {a.dt_outer, a.dt_outer_pkt_prio, a.dt_inner, a.dt_inner_pkt_prio, a.ot_outer,
        a.ot_outer_pkt_prio, a.it_outer, a.it_outer_pkt_prio, a.it_inner, a.it_inner_pkt_prio}) {
    actions = actions && IsTagAction(tag);
  }
  const bool flags = (a.flags & ~tableFlags) == 0;
  return values && actions && flags ? BCM_E_NONE : BCM_E_PARAM;
}

}  // namespace internal
}  // namespace sim

extern "C" {

void bcm_vlan_action_set_t_init(bcm_vlan_action_set_t* action) {
  if (action != nullptr)
    *action = bcm_vlan_action_set_t{};
}

int bcm_vlan_translate_action_add(int unit, bcm_gport_t port, bcm_vlan_translate_key_t key_type,
                                  bcm_vlan_t outer_vlan, bcm_vlan_t inner_vlan,
                                  bcm_vlan_action_set_t* action) {
  return RunCall(
      "bcm_vlan_translate_action_add",
      [&] {
        return Args({Dec(unit), PortArg(port), Dec(key_type), Dec(outer_vlan), Dec(inner_vlan),
                     ActionArg(action)});
      },
      unit,
      [&](ChipModel& m) {
        sim::IngressKey key{};
        if (action == nullptr)
          return static_cast<int>(BCM_E_PARAM);
        int rc = sim::internal::CheckAction(*action, sim::internal::kIngressActionFlags);
        if (rc == BCM_E_NONE)
          rc = IngressKeyOf(port, key_type, outer_vlan, inner_vlan, key);
        return rc < 0 ? rc : AddEntry(m.ingress, key, *action);
      });
}

int bcm_vlan_translate_action_delete(int unit, bcm_gport_t port, bcm_vlan_translate_key_t key_type,
                                     bcm_vlan_t outer_vlan, bcm_vlan_t inner_vlan) {
  return RunCall(
      "bcm_vlan_translate_action_delete",
      [&] {
        return Args({Dec(unit), PortArg(port), Dec(key_type), Dec(outer_vlan), Dec(inner_vlan)});
      },
      unit,
      [&](ChipModel& m) {
        sim::IngressKey key{};
        const int rc = IngressKeyOf(port, key_type, outer_vlan, inner_vlan, key);
        return rc < 0 ? rc : DeleteEntry(m.ingress, key);
      });
}

int bcm_vlan_translate_egress_action_add(int unit, int port_class, bcm_vlan_t outer_vlan,
                                         bcm_vlan_t inner_vlan, bcm_vlan_action_set_t* action) {
  return RunCall(
      "bcm_vlan_translate_egress_action_add",
      [&] {
        return Args(
            {Dec(unit), Dec(port_class), Dec(outer_vlan), Dec(inner_vlan), ActionArg(action)});
      },
      unit,
      [&](ChipModel& m) {
        sim::EgressKey key{};
        if (action == nullptr)
          return static_cast<int>(BCM_E_PARAM);
        int rc = sim::internal::CheckAction(*action, sim::internal::kEgressActionFlags);
        if (rc == BCM_E_NONE)
          rc = EgressKeyOf(port_class, outer_vlan, inner_vlan, key);
        return rc < 0 ? rc : AddEntry(m.egress, key, *action);
      });
}

int bcm_vlan_translate_egress_action_delete(int unit, int port_class, bcm_vlan_t outer_vlan,
                                            bcm_vlan_t inner_vlan) {
  return RunCall(
      "bcm_vlan_translate_egress_action_delete",
      [&] {
        return Args({Dec(unit), Dec(port_class), Dec(outer_vlan), Dec(inner_vlan)});
      },
      unit,
      [&](ChipModel& m) {
        sim::EgressKey key{};
        const int rc = EgressKeyOf(port_class, outer_vlan, inner_vlan, key);
        return rc < 0 ? rc : DeleteEntry(m.egress, key);
      });
}

}  // extern "C"
