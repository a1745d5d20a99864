#include "hal_platform.h"

namespace {

constexpr int kLastSpecificCode = -22;
constexpr int kCatchAllEntry = 23;

}  // namespace

const char* bcm_errmsg(int rc) {
  // The SDK's table is indexed by the negated code; every code outside the table shares the
  // catch-all text.
  const int index = (rc <= 0 && rc >= kLastSpecificCode) ? -rc : kCatchAllEntry;
  return _shr_errmsg[index];
}

namespace halbd {

DecodedName::DecodedName(limid_t id) : name_(HalBcmCommon::GetInstance()->DecodeLimId(id)) {}

bool IsLagByTypeCompare(limid_t id) {
  limid_type_t type = 0;
  limid_to_type(id, &type);
  return limid_type_compare(type, limid_type_lag) != 0;
}

}  // namespace halbd
