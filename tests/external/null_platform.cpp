// The C++ part of a platform with no chip and no interfaces, enough for the bridge library
// to link against; check_external.sh generates the C part from the contract headers. Nothing
// here is ever run: every lookup misses and no logger exists.
#include <stdexcept>

#include "hal_bcm_common.h"
#include "hal_callbacks_itf.h"

HalBcmCommon* HalBcmCommon::GetInstance() {
  static HalBcmCommon instance{};
  return &instance;
}
std::unique_ptr<char[]> HalBcmCommon::DecodeLimId(limid_t) const {
  return nullptr;
}
const std::set<limid_t>& HalBcmCommon::GetLagMembers(limid_t) const {
  throw std::out_of_range("LAG not found");
}
const LimIdPortEntry& HalBcmCommon::LookupPort(limid_t) const {
  throw std::out_of_range("HAL ID not found");
}
const LimIdPortEntry& HalBcmCommon::LookupGport(limid_t) const {
  throw std::out_of_range("HAL ID not found");
}
limid_t HalBcmCommon::LookupDeviceId(composed_id<int>) const {
  throw std::out_of_range("device ID not found");
}
VlanMemberTable& HalBcmCommon::GetVlanMemberTable() {
  static VlanMemberTable table;
  return table;
}
HalCallbacksItf* HalCallbacksItf::getInstance() {
  return nullptr;
}
