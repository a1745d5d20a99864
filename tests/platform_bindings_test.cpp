// The library's bindings to the companion libraries: composed_id order, the SDK error texts and
// the release of decoded names. Identifier order and hash are pinned with the byte order of the
// hosts, the two LAG tests with the simulated identifiers.
#include <stdexcept>

#include "composed_id.h"
#include "hal_platform.h"
#include "service_fixtures.h"

namespace {

TEST(ComposedId, OrdersLexicographicallyWithSignedMembers) {
  using Key = composed_id<int>;
  EXPECT_TRUE((Key{5, -1} < Key{5, 0}));
  EXPECT_TRUE((Key{4, 7} < Key{5, -1}));
  EXPECT_FALSE((Key{5, 0} < Key{5, -1}));
  EXPECT_TRUE((Key{-1, 100} < Key{0, -100}));
}

TEST(BcmErrmsg, IndexesByNegatedCodeWithOneCatchAllEntry) {
  const std::pair<int, int> codeToEntry[] = {{0, 0},    {-1, 1},    {-7, 7}, {-22, 22},
                                             {-23, 23}, {-100, 23}, {5, 23}, {1, 23}};
  for (const auto& [rc, entry] : codeToEntry)
    EXPECT_EQ(bcm_errmsg(rc), _shr_errmsg[entry]) << rc;
}

using PlatformBindings = SimTest;

TEST_F(PlatformBindings, LoggingFailurePassesToTheCallerAfterTheMessageIsKept) {
  // The decoded name is an owning handle: it is released while the exception unwinds (the
  // sanitizer runs of the suite report a leak otherwise).
  sim::halLog().ThrowOnNextMessage();
  EXPECT_THROW(halbd::Hal()->log(3, "Error %s.", halbd::DecodedName(Eth(1)).c_str()),
               std::runtime_error);
  EXPECT_THAT(LogLines(), ElementsAre("log(3): Error eth1/1."));
  halbd::Hal()->log(3, "next");
  EXPECT_EQ(LogLines().size(), 2u);
}

}  // namespace
