// State of the simulated platform shared by its source files.
#ifndef HALBD_SIM_SIM_INTERNAL_H
#define HALBD_SIM_SIM_INTERNAL_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/datapath.h"
#include "sim/sim_platform.h"

namespace sim {
namespace internal {

// A planned failure of one SDK function: calls still to let through, then calls to fail.
struct FaultPlan {
  int skip = 0;
  int count = 0;
  int rc = 0;
};

struct ChipModel {
  int unit = 0;
  soc_control_t control{};
  bool reportModuleGports = false;
  std::map<int, PortState> ports;
  std::map<bcm_vlan_t, VlanState> vlans;
  std::map<bcm_multicast_t, std::set<std::pair<bcm_gport_t, bcm_if_t>>> groups;
  std::map<IngressKey, bcm_vlan_action_set_t> ingress;
  std::map<EgressKey, bcm_vlan_action_set_t> egress;
  std::map<std::string, FaultPlan> faults;
  std::vector<SdkCall> trace;
  // What the datapath keeps: learned addresses by (VLAN, address), the clock that ages them, and
  // the counters.
  std::map<std::pair<uint16_t, MacAddress>, FdbEntry> fdb;
  int ageTime = kDefaultAgeTime;
  int64_t clock = 0;
  std::map<int, PortCounters> portCounters;
  std::map<uint16_t, VlanCounters> vlanCounters;
  bool tracing = true;
  bool nullChip = false;
  uint64_t calls = 0;
};

ChipModel& Model();
void ResetChip();
// The unit the chip answers to; its soc_control slot follows it.
void SetChipUnit(int unit);

// Ranges of the chip's fields.
constexpr int kMaxVlan = 4095;
constexpr int kMaxPriority = 7;
// Egress VLAN-translate classes the port table holds (a LAG's class counts down from the top).
constexpr uint32_t kMaxPortClass = 127;
// The action-record flags of each translation table: an entry of the other table is refused.
constexpr uint32_t kIngressActionFlags = 0x4;
constexpr uint32_t kEgressActionFlags = 0x8;
// The packet actions of the protocol-packet control (DHCP): bits beyond them do not exist.
constexpr uint32_t kProtocolPacketActions = 0x1f;

// A VLAN a per-VLAN call can name: 1 to 4095. VLAN 0 marks priority-tagged frames; no VLAN of
// the chip has it.
bool IsVlanNumber(unsigned vlan);
// BCM_E_NONE for an action record that the table with these flags takes, else BCM_E_PARAM: VLANs
// up to 4095, priorities up to 7 (-1 leaves the outer one), known actions, a TPID that a modify
// action writes is not 0, and only the table's own flags.
int CheckAction(const bcm_vlan_action_set_t& action, uint32_t tableFlags);

// The port of this chip that a port argument names: a plain port number, or a local or module
// gport of such a port. Empty for anything else (trunks, other modules, out of range).
std::optional<int> ResolvePort(int portOrGport);

// Runs one SDK call: a planned fault or a foreign unit answers without touching the chip;
// otherwise body(model) decides. Every call is counted and, while tracing, lands in the trace with
// its arguments as arguments() renders them. The null chip answers every call with success at once.
template <typename Arguments, typename Body>
int RunCall(const char* function, Arguments arguments, int unit, Body body) {
  ChipModel& model = Model();
  ++model.calls;
  if (model.nullChip)
    return BCM_E_NONE;
  int rc;
  auto planned = model.faults.find(function);
  if (planned != model.faults.end() && planned->second.skip > 0) {
    --planned->second.skip;
    planned = model.faults.end();
  }
  if (planned != model.faults.end() && planned->second.count > 0) {
    rc = planned->second.rc;
    if (--planned->second.count == 0)
      model.faults.erase(planned);
  } else if (unit != model.unit) {
    rc = BCM_E_UNIT;
  } else {
    rc = body(model);
  }
  if (model.tracing)
    model.trace.push_back(SdkCall{function, arguments(), rc});
  return rc;
}

// Argument rendering of the trace.
std::string Args(std::initializer_list<std::string> parts);
std::string Dec(long long value);
std::string Hex(unsigned long long value);
std::string PortArg(int port);
std::string Tpid(unsigned value);
std::string ActionArg(const bcm_vlan_action_set_t* action);
std::string ControlArg(const bcm_vlan_control_vlan_t& control);

void ResetCommon();

// The trunk a chip port belongs to, from the LAG member lists and tables of the common library:
// the stand-in for the chip's trunk table, which the LAG module programs on the switch.
std::optional<int> TrunkOfPort(int port);
// The chip ports of a trunk's members (members without a local port are left out).
std::set<int> TrunkPorts(int trunk);
void ResetLog();

}  // namespace internal
}  // namespace sim

#endif  // HALBD_SIM_SIM_INTERNAL_H
