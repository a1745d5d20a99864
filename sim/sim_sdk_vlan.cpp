// VLAN membership and VLAN control functions of the simulated chip.
#include "sim_internal.h"

using sim::internal::Args;
using sim::internal::ChipModel;
using sim::internal::Dec;
using sim::internal::Hex;
using sim::internal::PortArg;
using sim::internal::RunCall;

namespace {

constexpr uint32_t kSelectiveFields =
    BCM_VLAN_CONTROL_VLAN_BROADCAST_GROUP_MASK | BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK;

// VLANs are created by another HAL module; every call on a VLAN that does not exist fails, and
// one on a number that is no VLAN (0, above 4095) is a bad parameter.
template <typename Body>
int WithVlan(ChipModel& model, bcm_vlan_t vlan, Body body) {
  if (!sim::internal::IsVlanNumber(vlan))
    return BCM_E_PARAM;
  auto it = model.vlans.find(vlan);
  if (it == model.vlans.end())
    return BCM_E_NOT_FOUND;
  return body(it->second);
}

// The same for a call on one port of the VLAN: the VLAN must exist and the port be of this chip.
template <typename Body>
int WithVlanPort(ChipModel& model, bcm_vlan_t vlan, bcm_gport_t port, Body body) {
  return WithVlan(model, vlan, [&](sim::VlanState& v) {
    auto resolved = sim::internal::ResolvePort(port);
    if (!resolved)
      return static_cast<int>(BCM_E_PORT);
    return body(v, *resolved);
  });
}

bcm_gport_t ReportedGport(const ChipModel& model, int port) {
  return model.reportModuleGports ? sim::ModuleGport(0, port) : sim::LocalGport(port);
}

// The fields of a control record that the chip checks: only its own packet actions, and a
// broadcast group that exists (or 0, none).
int CheckControl(const ChipModel& model, uint32_t fields, const bcm_vlan_control_vlan_t& control) {
  if ((fields & BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK) &&
      (control.protocol_pkt.dhcp_action & ~sim::internal::kProtocolPacketActions) != 0) {
    return BCM_E_PARAM;
  }
  if ((fields & BCM_VLAN_CONTROL_VLAN_BROADCAST_GROUP_MASK) && control.broadcast_group != 0 &&
      model.groups.count(control.broadcast_group) == 0) {
    return BCM_E_NOT_FOUND;
  }
  return BCM_E_NONE;
}

void CopySelected(uint32_t fields, const bcm_vlan_control_vlan_t& from,
                  bcm_vlan_control_vlan_t& to) {
  if (fields & BCM_VLAN_CONTROL_VLAN_BROADCAST_GROUP_MASK) {
    to.broadcast_group = from.broadcast_group;
  }
  if (fields & BCM_VLAN_CONTROL_VLAN_PROTOCOL_PKT_MASK)
    to.protocol_pkt = from.protocol_pkt;
}

}  // namespace

extern "C" {

int bcm_vlan_gport_add(int unit, bcm_vlan_t vlan, bcm_gport_t port, int flags) {
  return RunCall(
      "bcm_vlan_gport_add",
      [&] {
        return Args({Dec(unit), Dec(vlan), PortArg(port), Hex(flags)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlanPort(m, vlan, port, [&](sim::VlanState& v, int chipPort) {
          if ((flags & ~BCM_VLAN_GPORT_ADD_UNTAGGED) != 0)
            return static_cast<int>(BCM_E_PARAM);
          // Adding a member again only updates its untagged flag.
          v.members[chipPort] = (flags & BCM_VLAN_GPORT_ADD_UNTAGGED) != 0;
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_vlan_gport_delete(int unit, bcm_vlan_t vlan, bcm_gport_t port) {
  return RunCall(
      "bcm_vlan_gport_delete",
      [&] {
        return Args({Dec(unit), Dec(vlan), PortArg(port)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlanPort(m, vlan, port, [&](sim::VlanState& v, int chipPort) {
          return v.members.erase(chipPort) ? static_cast<int>(BCM_E_NONE)
                                           : static_cast<int>(BCM_E_NOT_FOUND);
        });
      });
}

int bcm_vlan_gport_delete_all(int unit, bcm_vlan_t vlan) {
  return RunCall(
      "bcm_vlan_gport_delete_all",
      [&] {
        return Args({Dec(unit), Dec(vlan)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlan(m, vlan, [](sim::VlanState& v) {
          v.members.clear();
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_vlan_gport_get(int unit, bcm_vlan_t vlan, bcm_gport_t port, int* flags) {
  return RunCall(
      "bcm_vlan_gport_get",
      [&] {
        return Args({Dec(unit), Dec(vlan), PortArg(port)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlanPort(m, vlan, port, [&](sim::VlanState& v, int chipPort) {
          if (flags == nullptr)
            return static_cast<int>(BCM_E_PARAM);
          auto member = v.members.find(chipPort);
          if (member == v.members.end())
            return static_cast<int>(BCM_E_NOT_FOUND);
          *flags = member->second ? BCM_VLAN_GPORT_ADD_UNTAGGED : 0;
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_vlan_gport_get_all(int unit, bcm_vlan_t vlan, int array_max, bcm_gport_t* gport_array,
                           int* flags_array, int* array_size) {
  return RunCall(
      "bcm_vlan_gport_get_all",
      [&] {
        return Args({Dec(unit), Dec(vlan), Dec(array_max)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlan(m, vlan, [&](sim::VlanState& v) {
          if (array_max < 0 || gport_array == nullptr || flags_array == nullptr ||
              array_size == nullptr) {
            return static_cast<int>(BCM_E_PARAM);
          }
          int count = 0;
          for (const auto& [port, untagged] : v.members) {
            if (count == array_max)
              break;
            gport_array[count] = ReportedGport(m, port);
            flags_array[count] = untagged ? BCM_VLAN_GPORT_ADD_UNTAGGED : 0;
            ++count;
          }
          *array_size = count;
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

void bcm_vlan_control_vlan_t_init(bcm_vlan_control_vlan_t* control) {
  if (control != nullptr)
    *control = bcm_vlan_control_vlan_t{};
}

int bcm_vlan_control_vlan_get(int unit, bcm_vlan_t vlan, bcm_vlan_control_vlan_t* control) {
  return RunCall(
      "bcm_vlan_control_vlan_get",
      [&] {
        return Args({Dec(unit), Dec(vlan)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlan(m, vlan, [&](sim::VlanState& v) {
          if (control == nullptr)
            return static_cast<int>(BCM_E_PARAM);
          *control = v.control;
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_vlan_control_vlan_set(int unit, bcm_vlan_t vlan, bcm_vlan_control_vlan_t control) {
  return RunCall(
      "bcm_vlan_control_vlan_set",
      [&] {
        return Args({Dec(unit), Dec(vlan), sim::internal::ControlArg(control)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlan(m, vlan, [&](sim::VlanState& v) {
          const int rc = CheckControl(m, kSelectiveFields, control);
          if (rc == BCM_E_NONE)
            v.control = control;
          return rc;
        });
      });
}

int bcm_vlan_control_vlan_selective_get(int unit, bcm_vlan_t vlan, uint32_t valid_fields,
                                        bcm_vlan_control_vlan_t* control) {
  return RunCall(
      "bcm_vlan_control_vlan_selective_get",
      [&] {
        return Args({Dec(unit), Dec(vlan), Hex(valid_fields)});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlan(m, vlan, [&](sim::VlanState& v) {
          if ((valid_fields & ~kSelectiveFields) != 0 || control == nullptr) {
            return static_cast<int>(BCM_E_PARAM);
          }
          CopySelected(valid_fields, v.control, *control);
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_vlan_control_vlan_selective_set(int unit, bcm_vlan_t vlan, uint32_t valid_fields,
                                        bcm_vlan_control_vlan_t* control) {
  return RunCall(
      "bcm_vlan_control_vlan_selective_set",
      [&] {
        return Args({Dec(unit), Dec(vlan), Hex(valid_fields),
                     control ? sim::internal::ControlArg(*control) : std::string("null")});
      },
      unit,
      [&](ChipModel& m) {
        return WithVlan(m, vlan, [&](sim::VlanState& v) {
          if ((valid_fields & ~kSelectiveFields) != 0 || control == nullptr) {
            return static_cast<int>(BCM_E_PARAM);
          }
          const int rc = CheckControl(m, valid_fields, *control);
          if (rc == BCM_E_NONE)
            CopySelected(valid_fields, *control, v.control);
          return rc;
        });
      });
}

}  // extern "C"
