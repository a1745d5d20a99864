// The modelling chip has 64 ports, and the null chip answers a member listing with no members:
// neither shows what the library does with the 1024 members that one listing may return. This
// definition of the SDK function stands in front of the simulated platform's (the library's
// objects are linked into this program, so their calls bind here) and forwards to it.
#include "canned_members.h"

#include <dlfcn.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

using GetAll = int (*)(int, bcm_vlan_t, int, bcm_gport_t*, int*, int*);

std::vector<bcm_gport_t>& Canned() {
  static std::vector<bcm_gport_t> gports;
  return gports;
}

GetAll Simulated() {
  static const GetAll simulated = [] {
    void* symbol = dlsym(RTLD_NEXT, "bcm_vlan_gport_get_all");
    if (symbol == nullptr)
      throw std::runtime_error("the simulated bcm_vlan_gport_get_all is missing");
    return reinterpret_cast<GetAll>(symbol);
  }();
  return simulated;
}

}  // namespace

namespace bench {

void SetCannedMembers(std::vector<bcm_gport_t> gports) {
  Canned() = std::move(gports);
}

}  // namespace bench

extern "C" int bcm_vlan_gport_get_all(int unit, bcm_vlan_t vlan, int array_max,
                                      bcm_gport_t* gport_array, int* flags_array, int* array_size) {
  const int rc = Simulated()(unit, vlan, array_max, gport_array, flags_array, array_size);
  const std::vector<bcm_gport_t>& canned = Canned();
  if (canned.empty() || rc < 0)
    return rc;
  const int count = std::min(array_max, static_cast<int>(canned.size()));
  std::copy_n(canned.begin(), count, gport_array);
  std::fill_n(flags_array, count, 0);
  *array_size = count;
  return rc;
}
