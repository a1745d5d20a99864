// Replication-group functions of the simulated chip.
#include "sim_internal.h"

using sim::internal::Args;
using sim::internal::ChipModel;
using sim::internal::Dec;
using sim::internal::Hex;
using sim::internal::PortArg;
using sim::internal::RunCall;

namespace {

using GroupMembers = std::set<std::pair<bcm_gport_t, bcm_if_t>>;

template <typename Body>
int WithGroup(ChipModel& model, bcm_multicast_t group, Body body) {
  auto it = model.groups.find(group);
  if (it == model.groups.end())
    return BCM_E_NOT_FOUND;
  return body(it->second);
}

// Members are kept under the local-port gport of their port, whichever form the caller used. The
// encap must be the one the chip gave the port (bcm_multicast_l2_encap_get).
int MemberOf(bcm_gport_t port, bcm_if_t encap, std::pair<bcm_gport_t, bcm_if_t>& member) {
  auto resolved = sim::internal::ResolvePort(port);
  if (!resolved)
    return BCM_E_PORT;
  if (encap != sim::Chip::EncapOf(*resolved))
    return BCM_E_PARAM;
  member = {sim::LocalGport(*resolved), encap};
  return BCM_E_NONE;
}

std::string GroupArg(bcm_multicast_t group) {
  return Hex(static_cast<uint32_t>(group));
}
std::string EncapArg(bcm_if_t encap) {
  return Hex(static_cast<uint32_t>(encap));
}

}  // namespace

extern "C" {

int bcm_multicast_l2_encap_get(int unit, bcm_multicast_t group, bcm_gport_t port, bcm_vlan_t vlan,
                               bcm_if_t* encap_id) {
  return RunCall(
      "bcm_multicast_l2_encap_get",
      [&] {
        return Args({Dec(unit), GroupArg(group), PortArg(port), Dec(vlan)});
      },
      unit,
      [&](ChipModel& m) {
        return WithGroup(m, group, [&](GroupMembers&) {
          auto resolved = sim::internal::ResolvePort(port);
          if (!resolved)
            return static_cast<int>(BCM_E_PORT);
          if (encap_id == nullptr || vlan > sim::internal::kMaxVlan)
            return static_cast<int>(BCM_E_PARAM);
          *encap_id = sim::Chip::EncapOf(*resolved);
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_multicast_egress_add(int unit, bcm_multicast_t group, bcm_gport_t port, bcm_if_t encap_id) {
  return RunCall(
      "bcm_multicast_egress_add",
      [&] {
        return Args({Dec(unit), GroupArg(group), PortArg(port), EncapArg(encap_id)});
      },
      unit,
      [&](ChipModel& m) {
        return WithGroup(m, group, [&](GroupMembers& members) {
          std::pair<bcm_gport_t, bcm_if_t> member;
          const int rc = MemberOf(port, encap_id, member);
          if (rc < 0)
            return rc;
          return members.insert(member).second ? static_cast<int>(BCM_E_NONE)
                                               : static_cast<int>(BCM_E_EXISTS);
        });
      });
}

int bcm_multicast_egress_delete(int unit, bcm_multicast_t group, bcm_gport_t port,
                                bcm_if_t encap_id) {
  return RunCall(
      "bcm_multicast_egress_delete",
      [&] {
        return Args({Dec(unit), GroupArg(group), PortArg(port), EncapArg(encap_id)});
      },
      unit,
      [&](ChipModel& m) {
        return WithGroup(m, group, [&](GroupMembers& members) {
          std::pair<bcm_gport_t, bcm_if_t> member;
          const int rc = MemberOf(port, encap_id, member);
          if (rc < 0)
            return rc;
          return members.erase(member) ? static_cast<int>(BCM_E_NONE)
                                       : static_cast<int>(BCM_E_NOT_FOUND);
        });
      });
}

int bcm_multicast_egress_delete_all(int unit, bcm_multicast_t group) {
  return RunCall(
      "bcm_multicast_egress_delete_all",
      [&] {
        return Args({Dec(unit), GroupArg(group)});
      },
      unit,
      [&](ChipModel& m) {
        return WithGroup(m, group, [](GroupMembers& members) {
          members.clear();
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

}  // extern "C"
