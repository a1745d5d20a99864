// The chip's counters: per port what it received, sent and dropped (by the stage that dropped),
// per VLAN how its frames were delivered. Every walked frame counts, whichever way it came in.
#include "datapath_internal.h"

namespace sim {
namespace internal {

void CountWalk(ChipModel& model, int ingressPort, const Frame& frame, const FrameWalk& walk) {
  PortCounters& rx = model.portCounters[ingressPort];
  ++rx.rxFrames;
  rx.rxBytes += FrameBytes(frame);
  if (walk.dropped)
    ++rx.drops[walk.dropStage];
  for (const FrameCopy& copy : walk.copies) {
    PortCounters& tx = model.portCounters[copy.port];
    ++tx.txFrames;
    tx.txBytes += FrameBytes(copy.frame);
  }
  if (walk.vlan < 0 || (walk.copies.empty() && walk.cpuReason.empty()))
    return;
  VlanCounters& vlan = model.vlanCounters[static_cast<uint16_t>(walk.vlan)];
  if (!walk.cpuReason.empty())
    ++vlan.toCpu;
  if (!walk.copies.empty())
    ++(walk.knownUnicast ? vlan.forwarded : vlan.flooded);
}

}  // namespace internal

const std::map<int, PortCounters>& PortCounterTable() {
  return internal::Model().portCounters;
}

const std::map<uint16_t, VlanCounters>& VlanCounterTable() {
  return internal::Model().vlanCounters;
}

void ClearCounters() {
  internal::Model().portCounters.clear();
  internal::Model().vlanCounters.clear();
}

}  // namespace sim
