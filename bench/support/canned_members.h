// A VLAN of more members than the simulated chip has ports: the member list is canned.
#ifndef HALBD_BENCH_SUPPORT_CANNED_MEMBERS_H
#define HALBD_BENCH_SUPPORT_CANNED_MEMBERS_H

#include <vector>

#include "chip_sdk.h"

namespace bench {

// While the list is not empty, bcm_vlan_gport_get_all hands the simulated chip the call (so that
// it is counted, and the null chip answers it at once) and then answers with these gports, all
// tagged. An empty list gives the call back to the simulated chip alone.
void SetCannedMembers(std::vector<bcm_gport_t> gports);

}  // namespace bench

#endif  // HALBD_BENCH_SUPPORT_CANNED_MEMBERS_H
