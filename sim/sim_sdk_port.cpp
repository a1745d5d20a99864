// Port functions of the simulated chip.
#include "sim_internal.h"

using sim::internal::ChipModel;
using sim::internal::Dec;
using sim::internal::kMaxPriority;
using sim::internal::kMaxVlan;
using sim::internal::PortArg;
using sim::internal::RunCall;

namespace {

// Applies change to the state of the port that port names, or answers BCM_E_PORT.
template <typename Change>
int WithPort(ChipModel& model, int port, Change change) {
  auto resolved = sim::internal::ResolvePort(port);
  if (!resolved)
    return BCM_E_PORT;
  return change(model.ports[*resolved]);
}

}  // namespace

extern "C" {

int bcm_port_tpid_set(int unit, bcm_port_t port, uint16_t tpid) {
  return RunCall(
      "bcm_port_tpid_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), sim::internal::Tpid(tpid)});
      },
      unit,
      [&](ChipModel& m) {
        if (tpid == 0)  // no tag carries TPID 0
          return static_cast<int>(BCM_E_PARAM);
        return WithPort(m, port, [&](sim::PortState& p) {
          p.outerTpid = tpid;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_inner_tpid_set(int unit, bcm_port_t port, uint16_t tpid) {
  return RunCall(
      "bcm_port_inner_tpid_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), sim::internal::Tpid(tpid)});
      },
      unit,
      [&](ChipModel& m) {
        if (tpid == 0)  // no tag carries TPID 0
          return static_cast<int>(BCM_E_PARAM);
        return WithPort(m, port, [&](sim::PortState& p) {
          p.innerTpid = tpid;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_untagged_vlan_set(int unit, bcm_port_t port, bcm_vlan_t vid) {
  return RunCall(
      "bcm_port_untagged_vlan_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), Dec(vid)});
      },
      unit,
      [&](ChipModel& m) {
        if (vid > kMaxVlan)
          return static_cast<int>(BCM_E_PARAM);
        return WithPort(m, port, [&](sim::PortState& p) {
          p.untaggedVlan = vid;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_untagged_priority_set(int unit, bcm_port_t port, int priority) {
  return RunCall(
      "bcm_port_untagged_priority_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), Dec(priority)});
      },
      unit,
      [&](ChipModel& m) {
        if (priority < 0 || priority > kMaxPriority) {
          return static_cast<int>(BCM_E_PARAM);
        }
        return WithPort(m, port, [&](sim::PortState& p) {
          p.untaggedPriority = priority;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_dtag_mode_set(int unit, bcm_port_t port, int mode) {
  return RunCall(
      "bcm_port_dtag_mode_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), Dec(mode)});
      },
      unit,
      [&](ChipModel& m) {
        if (mode < BCM_PORT_DTAG_MODE_NONE || mode > BCM_PORT_DTAG_MODE_EXTERNAL) {
          return static_cast<int>(BCM_E_PARAM);
        }
        return WithPort(m, port, [&](sim::PortState& p) {
          p.dtagMode = mode;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_discard_set(int unit, bcm_port_t port, int mode) {
  return RunCall(
      "bcm_port_discard_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), Dec(mode)});
      },
      unit,
      [&](ChipModel& m) {
        if (mode < BCM_PORT_DISCARD_NONE || mode > BCM_PORT_DISCARD_TAG) {
          return static_cast<int>(BCM_E_PARAM);
        }
        return WithPort(m, port, [&](sim::PortState& p) {
          p.discardMode = mode;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_class_get(int unit, bcm_port_t port, bcm_port_class_t pclass, uint32_t* pclass_id) {
  return RunCall(
      "bcm_port_class_get",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), Dec(pclass)});
      },
      unit,
      [&](ChipModel& m) {
        if (pclass != bcmPortClassVlanTranslateEgress || pclass_id == nullptr) {
          return static_cast<int>(BCM_E_PARAM);
        }
        return WithPort(m, port, [&](const sim::PortState& p) {
          *pclass_id = p.egressClass;
          return BCM_E_NONE;
        });
      });
}

int bcm_port_class_set(int unit, bcm_port_t port, bcm_port_class_t pclass, uint32_t pclass_id) {
  return RunCall(
      "bcm_port_class_set",
      [&] {
        return sim::internal::Args(
            {Dec(unit), PortArg(port), Dec(pclass), Dec(static_cast<int32_t>(pclass_id))});
      },
      unit,
      [&](ChipModel& m) {
        if (pclass != bcmPortClassVlanTranslateEgress) {
          return static_cast<int>(BCM_E_PARAM);
        }
        return WithPort(m, port, [&](sim::PortState& p) {
          if (pclass_id > sim::internal::kMaxPortClass)
            return static_cast<int>(BCM_E_PARAM);
          p.egressClass = pclass_id;
          return static_cast<int>(BCM_E_NONE);
        });
      });
}

int bcm_vlan_control_port_set(int unit, bcm_port_t port, bcm_vlan_control_port_t type, int arg) {
  return RunCall(
      "bcm_vlan_control_port_set",
      [&] {
        return sim::internal::Args({Dec(unit), PortArg(port), Dec(type), Dec(arg)});
      },
      unit,
      [&](ChipModel& m) {
        const bool knownKey =
            arg == bcmVlanTranslateKeyInvalid || arg == bcmVlanTranslateKeyPortDouble ||
            arg == bcmVlanTranslateKeyPortOuter || arg == bcmVlanTranslateKeyPortInner;
        const bool knownType =
            type == bcmVlanPortTranslateKeyFirst || type == bcmVlanPortTranslateKeySecond;
        if (!knownKey || !knownType)
          return static_cast<int>(BCM_E_PARAM);
        return WithPort(m, port, [&](sim::PortState& p) {
          (type == bcmVlanPortTranslateKeyFirst ? p.keyFirst : p.keySecond) = arg;
          return BCM_E_NONE;
        });
      });
}

}  // extern "C"
