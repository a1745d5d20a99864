// The library's bindings to the companion libraries: names for messages, the two LAG tests,
// bridge-domain decoding, the identifier tables and their "not found" paths.
#include <stdexcept>

#include "hal_platform.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using halbd::DecodedName;
using halbd::Hal;

class PlatformBindingsTest : public SimTest {};

TEST_F(PlatformBindingsTest, MessageCarriesTheDecodedName) {
  Hal()->log(3, "HAL ID not found: %s.", DecodedName(sim::EthernetPort(1, 3)).c_str());
  Hal()->error(-7, "%s at %s: %s", DecodedName(sim::Lag(5)).c_str(),
               DecodedName(sim::BridgeDomain(10)).c_str(), bcm_errmsg(-7));
  EXPECT_THAT(LogLines(), ElementsAre("log(3): HAL ID not found: eth1/3.",
                                      "error(-7): lag5 at vlan10: Entry not found"));
}

TEST_F(PlatformBindingsTest, LoggingFailurePassesToTheCallerAfterTheMessageIsKept) {
  // The decoded name is an owning handle: it is released while the exception unwinds (the
  // sanitizer runs of the suite report a leak otherwise).
  sim::halLog().ThrowOnNextMessage();
  EXPECT_THROW(Hal()->log(3, "Error %s.", DecodedName(sim::EthernetPort(1, 1)).c_str()),
               std::runtime_error);
  EXPECT_THAT(LogLines(), ElementsAre("log(3): Error eth1/1."));
  Hal()->log(3, "next");
  EXPECT_EQ(LogLines().size(), 2u);
}

TEST_F(PlatformBindingsTest, BothLagTestsAgreeOnEveryKind) {
  const struct {
    limid_t id;
    bool lag;
  } cases[] = {{sim::Lag(1), true},
               {sim::Lag(500), true},
               {sim::EthernetPort(1, 1), false},
               {sim::BridgeDomain(2), false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(sim::NameOf(c.id));
    EXPECT_EQ(halbd::IsLag(c.id), c.lag);
    EXPECT_EQ(halbd::IsLagByTypeCompare(c.id), c.lag);
  }
}

TEST_F(PlatformBindingsTest, BridgeDomainDecodesToItsVlan) {
  EXPECT_EQ(halbd::VlanOfBridgeDomain(sim::BridgeDomain(10)), 10);
  EXPECT_EQ(halbd::VlanOfBridgeDomain(sim::BridgeDomain(4095)), 4095);
}

TEST_F(PlatformBindingsTest, LookupsFindTheirTablesOnly) {
  sim::common().AddPort(sim::EthernetPort(1, 3), sim::LocalGport(3));
  sim::common().AddLag(sim::Lag(5), 5);
  HalBcmCommon* common = HalBcmCommon::GetInstance();

  EXPECT_EQ(common->LookupPort(sim::EthernetPort(1, 3)).port, sim::LocalGport(3));
  EXPECT_EQ(common->LookupGport(sim::EthernetPort(1, 3)).port, sim::LocalGport(3));
  EXPECT_EQ(common->LookupGport(sim::Lag(5)).port, sim::TrunkGport(5));
  EXPECT_TRUE(common->LookupDeviceId({sim::LocalGport(3), -1}) == sim::EthernetPort(1, 3));
  EXPECT_TRUE(common->GetLagMembers(sim::Lag(5)).empty());
}

TEST_F(PlatformBindingsTest, MissesThrowOutOfRangeWithTheTableText) {
  sim::common().AddLag(sim::Lag(5), 5);
  sim::common().AddPort(sim::EthernetPort(1, 2), sim::LocalGport(2));
  HalBcmCommon* common = HalBcmCommon::GetInstance();
  const auto whatOf = [](auto call) -> std::string {
    try {
      call();
    } catch (const std::out_of_range& e) {
      return e.what();
    }
    return "no exception";
  };
  // A neighbour that differs only in its last byte must not be taken for the wanted entry.
  EXPECT_EQ(whatOf([&] { common->LookupPort(sim::EthernetPort(1, 3)); }), "HAL ID not found");
  EXPECT_EQ(whatOf([&] { common->LookupPort(sim::Lag(5)); }), "HAL ID not found");
  EXPECT_EQ(whatOf([&] { common->LookupGport(sim::EthernetPort(1, 1)); }), "HAL ID not found");
  EXPECT_EQ(whatOf([&] { common->LookupDeviceId({sim::LocalGport(9), -1}); }),
            "device ID not found");
  EXPECT_EQ(whatOf([&] { common->LookupDeviceId({sim::LocalGport(2), 0}); }),
            "device ID not found");
  EXPECT_NE(whatOf([&] { common->GetLagMembers(sim::Lag(6)); }), "no exception");
}

TEST_F(PlatformBindingsTest, UnitComesFromTheCommonLibrary) {
  sim::common().SetUnit(2);
  EXPECT_EQ(HalBcmCommon::GetInstance()->unit, 2);
  EXPECT_NE(soc_control[2], nullptr);
  EXPECT_EQ(soc_control[0], nullptr);
}

}  // namespace
