// The datapath's pieces that the frame walk calls: learning and lookup in the address table, the
// CPU port's protocol actions, and counting. Each lives in its own file (datapath_*.cpp).
#ifndef HALBD_SIM_DATAPATH_INTERNAL_H
#define HALBD_SIM_DATAPATH_INTERNAL_H

#include <optional>
#include <string>
#include <vector>

#include "sim_internal.h"

namespace sim {
namespace internal {

// ---- address table ----
bool IsGroupAddress(const MacAddress& mac);

struct Learned {
  enum Kind { NotLearned, New, Refreshed, Moved } kind = NotLearned;
  FdbEntry previous;  // where the address was before a move
};
// Learns (or refreshes) the source address of a frame admitted into the VLAN: against the trunk
// when the ingress port is a member of one, else against the port. Group addresses and the
// all-zero address are not learned.
Learned Learn(ChipModel& model, uint16_t vlan, const MacAddress& src, int port,
              std::optional<int> trunk);
// The entry of a unicast destination in the VLAN; null when unknown (the frame floods).
const FdbEntry* FindDestination(const ChipModel& model, uint16_t vlan, const MacAddress& dst);

// ---- CPU port ----
// What the VLAN's control record says about a protocol packet the chip recognises.
struct CpuAction {
  bool toCpu = false;
  bool forward = true;  // switched on to the ports as any other frame
  std::string reason;   // "DHCP" or "IGMP"
  std::string note;     // the property that decided, for the trace
};
// The action for a frame whose bytes behind its VLAN tags are payload (EtherType first); empty
// for a frame that is neither DHCP nor IGMP.
std::optional<CpuAction> CpuActionFor(const VlanState& vlan, uint16_t vlanId,
                                      const std::vector<uint8_t>& payload);

// ---- counters ----
void CountWalk(ChipModel& model, int ingressPort, const Frame& frame, const FrameWalk& walk);

}  // namespace internal
}  // namespace sim

#endif  // HALBD_SIM_DATAPATH_INTERNAL_H
