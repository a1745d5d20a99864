// VLAN properties: the DHCP action (selective read-modify-write) and IGMP snooping (whole record).
#include <string>

#include "hal_bcm_bridge_domain.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const limid_t kVlan10 = sim::BridgeDomain(10);

class BridgeDomainPropertiesTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    group10 = sim::chip().CreateVlan(10);
  }

  // Puts a control record on the chip, keeping the VLAN's replication group.
  void SetControl(uint32_t flags, uint32_t dhcpAction) {
    bcm_vlan_control_vlan_t control{flags, group10, {dhcpAction}};
    ASSERT_EQ(bcm_vlan_control_vlan_set(0, 10, control), 0);
    ClearRecords();
  }
  const bcm_vlan_control_vlan_t& Control() { return sim::chip().Vlan(10).control; }

  int Apply(bool add, int property, unsigned int value) {
    const auto p = static_cast<en_HalVlanProperty>(property);
    const auto v = static_cast<en_HalVlanPropValue>(value);
    return add ? service->AddPropertyValue(kVlan10, p, v)
               : service->RemovePropertyValue(kVlan10, p, v);
  }

  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance();
  bcm_multicast_t group10 = 0;
};

struct PropertyCase {
  bool add;
  int property;
  unsigned int value;
  uint32_t flagsBefore, dhcpBefore;
  uint32_t flagsAfter, dhcpAfter;
};

class PropertyChangeTest : public BridgeDomainPropertiesTest,
                           public ::testing::WithParamInterface<PropertyCase> {};

TEST_P(PropertyChangeTest, ChangesOnlyItsOwnBits) {
  const PropertyCase& c = GetParam();
  SetControl(c.flagsBefore, c.dhcpBefore);
  EXPECT_EQ(Apply(c.add, c.property, c.value), 0);

  EXPECT_EQ(Control().flags, c.flagsAfter);
  EXPECT_EQ(Control().protocol_pkt.dhcp_action, c.dhcpAfter);
  EXPECT_EQ(Control().broadcast_group, group10);
  EXPECT_EQ(Trace().size(), 2u);  // written back even when nothing changed
}

INSTANTIATE_TEST_SUITE_P(DhcpAndIgmp, PropertyChangeTest,
                         ::testing::Values(PropertyCase{true, 0, 0x5, 0x1, 0x0, 0x1, 0x5},
                                           PropertyCase{true, 0, 0x2, 0x0, 0x10, 0x0, 0x10},
                                           PropertyCase{true, 0, 0xff, 0x0, 0x0, 0x0, 0x5},
                                           PropertyCase{false, 0, 0x1, 0x0, 0x15, 0x0, 0x14},
                                           PropertyCase{false, 0, 0xfe, 0x0, 0x15, 0x0, 0x11},
                                           PropertyCase{true, 1, 0x5, 0x801, 0x5, 0x1, 0x5},
                                           PropertyCase{true, 1, 0x0, 0x0, 0x0, 0x0, 0x0},
                                           PropertyCase{false, 1, 0x1, 0x1, 0x4, 0x801, 0x4}));

TEST_F(BridgeDomainPropertiesTest, DhcpIsWrittenSelectivelyAndIgmpAsWholeRecord) {
  ASSERT_EQ(Apply(true, 0, 0x4), 0);
  ASSERT_EQ(Apply(false, 1, 0), 0);
  EXPECT_THAT(Trace(),
              ElementsAre("bcm_vlan_control_vlan_selective_get(0, 10, 0x80000) = 0",
                          "bcm_vlan_control_vlan_selective_set(0, 10, 0x80000, {flags=0x0, "
                          "broadcast_group=0x0, dhcp_action=0x4}) = 0",
                          "bcm_vlan_control_vlan_get(0, 10) = 0",
                          "bcm_vlan_control_vlan_set(0, 10, {flags=0x800, "
                          "broadcast_group=0x100000a, dhcp_action=0x4}) = 0"));
}

struct PropertyFault {
  bool add;
  int property;
  const char* function;
  const char* log;
};

class PropertyFaultTest : public BridgeDomainPropertiesTest,
                          public ::testing::WithParamInterface<PropertyFault> {};

TEST_P(PropertyFaultTest, FailedChipCallLeavesTheRecordAsItWas) {
  SetControl(0x1, 0x10);
  sim::chip().FailNext(GetParam().function, 1, BCM_E_TIMEOUT);
  EXPECT_EQ(Apply(GetParam().add, GetParam().property, 0x5), -1);

  EXPECT_THAT(LogLines(), ElementsAre(GetParam().log));
  EXPECT_EQ(Control().flags, 0x1u);
  EXPECT_EQ(Control().protocol_pkt.dhcp_action, 0x10u);
}

const char* const kGetLine = "log(3): Error getting vlan control of 10: Operation timed out.";
const char* const kSetLine = "log(3): Error setting vlan control of 10: Operation timed out.";

INSTANTIATE_TEST_SUITE_P(
    EachChipCall, PropertyFaultTest,
    ::testing::Values(PropertyFault{true, 0, "bcm_vlan_control_vlan_selective_get", kGetLine},
                      PropertyFault{false, 0, "bcm_vlan_control_vlan_selective_set", kSetLine},
                      PropertyFault{false, 1, "bcm_vlan_control_vlan_get", kGetLine},
                      PropertyFault{true, 1, "bcm_vlan_control_vlan_set", kSetLine}));

TEST_F(BridgeDomainPropertiesTest, UnknownPropertyIsRefusedWithoutChipCall) {
  EXPECT_EQ(Apply(true, 2, 0x1), -1);
  EXPECT_EQ(Apply(false, -1, 0x1), -1);
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Unsupported property 2", "log(3): Unsupported property -1"));
  EXPECT_THAT(Trace(), IsEmpty());
}

}  // namespace
