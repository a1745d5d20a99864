// What the library keeps, read from its own books through the inspectors that the tests use: the
// views and the saved configuration show the services' state, never a copy the shell keeps.
#ifndef HALBD_SIM_LIBRARY_BOOKS_H
#define HALBD_SIM_LIBRARY_BOOKS_H

#include <optional>
#include <string>
#include <vector>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"
#include "limid.h"

namespace halbdsim {

// The bridge-port service's entries for one interface; none where it holds no entry.
struct KeptAttributes {
  std::optional<unsigned> nativeVlan;  // kept for LAGs only
  std::optional<unsigned> priority;    // kept for LAGs only
  std::optional<unsigned> tpid;        // kept also when the chip refused it
  bool qinq = false;
  std::optional<long long> frameType;  // kept also when the chip refused it
  std::optional<bool> blocked;         // ports only, as the blocking client last asked
  std::vector<vlanxlate::VlanMapping> ingressRules;  // in the store's order
  std::vector<vlanxlate::VlanMapping> egressRules;
};

// The process's services; a session has obtained them before any view runs.
HalBcmBridgePortInspector PortBooks();
HalBcmBridgeDomainInspector DomainBooks();

KeptAttributes KeptFor(limid_t id);

// What a LAG gives a port that joins it: its kept values, or the defaults for those it has none of.
struct LagGives {
  unsigned nativeVlan;
  unsigned priority;
  unsigned tpid;
  bool qinq;
  long long frameType;
};
LagGives GivenBy(limid_t lag);

// The frame-type names of the library's enumeration, a number for others.
std::string FrameTypeName(long long type);

}  // namespace halbdsim

#endif  // HALBD_SIM_LIBRARY_BOOKS_H
