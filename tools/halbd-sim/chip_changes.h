// What a LAG event changed on the chip, port by port: the simulated chip is read before and after.
#ifndef HALBD_SIM_CHIP_CHANGES_H
#define HALBD_SIM_CHIP_CHANGES_H

#include <map>
#include <string>
#include <vector>

#include "record.h"
#include "session.h"
#include "sim/sim_platform.h"

namespace halbdsim {

struct PortSnapshot {
  sim::PortState state;
  std::map<unsigned, bool> vlans;  // VLAN -> untagged
  size_t ingressEntries = 0;       // entries keyed by the port itself
};

// The chip's view of every declared port that is a port of this chip, by name.
std::map<std::string, PortSnapshot> SnapshotPorts(const Session& session);

// "changed eth1/47: left vlan30; joined vlan10 tagged; native 30->4095; ..." for each port that
// changed, in name order.
std::vector<Record> DescribeChanges(const std::map<std::string, PortSnapshot>& before,
                                    const std::map<std::string, PortSnapshot>& after);

}  // namespace halbdsim

#endif  // HALBD_SIM_CHIP_CHANGES_H
