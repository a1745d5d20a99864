// One chip port joining and leaving a VLAN: replication group first, then the VLAN member set,
// with no roll-back when a step fails.
#include <string>
#include <vector>

#include "hal_bcm_bridge_domain.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const limid_t kVlan10 = sim::BridgeDomain(10);
const int kGport = sim::LocalGport(3);

class BridgeDomainHardwareTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    group10 = sim::chip().CreateVlan(10);
  }

  bool InGroup() { return !sim::chip().GroupMembers(group10).empty(); }
  bool InVlan() { return sim::chip().Vlan(10).members.count(3) != 0; }

  HalBcmBridgeDomain* service = HalBcmBridgeDomain::getInstance();
  bcm_multicast_t group10 = 0;
};

TEST_F(BridgeDomainHardwareTest, VlanWithoutGroupSkipsReplication) {
  sim::chip().CreateVlan(20, false);
  EXPECT_EQ(service->bcmAddMember(kGport, sim::BridgeDomain(20), false), 0);
  EXPECT_EQ(sim::chip().Vlan(20).members.at(3), true);
  EXPECT_EQ(service->bcmDelMember(kGport, sim::BridgeDomain(20)), 0);

  EXPECT_THAT(Trace(), ElementsAre("bcm_vlan_control_vlan_selective_get(0, 20, 0x2000) = 0",
                                   "bcm_vlan_gport_add(0, 20, 0x4000003, 0x1) = 0",
                                   "bcm_vlan_control_vlan_selective_get(0, 20, 0x2000) = 0",
                                   "bcm_vlan_gport_delete(0, 20, 0x4000003) = 0"));
}

// The chip answers on unit 0 only, so success shows that the unit argument was not used.
TEST_F(BridgeDomainHardwareTest, PhysicalPortCallsUseTheServiceUnit) {
  EXPECT_EQ(service->addPhysicalPort(5, kGport, 10, true), 0);
  EXPECT_EQ(service->delPhysicalPort(5, kGport, 10), 0);
  EXPECT_EQ(Trace().size(), 8u);
}

struct HardwareFault {
  bool remove;  // the fault hits the removal of a member rather than its addition
  const char* function;
  std::vector<std::string> log;
  bool inGroup;  // where the port is left
  bool inVlan;
};

class HardwareFaultTest : public BridgeDomainHardwareTest,
                          public ::testing::WithParamInterface<HardwareFault> {};

TEST_P(HardwareFaultTest, LeavesThePortWhereTheFailingStepFoundIt) {
  const HardwareFault& fault = GetParam();
  if (fault.remove) {
    ASSERT_EQ(service->bcmAddMember(kGport, kVlan10, true), 0);
  }
  sim::chip().FailNext(fault.function, 1, BCM_E_RESOURCE);
  const int rc = fault.remove ? service->bcmDelMember(kGport, kVlan10)
                              : service->bcmAddMember(kGport, kVlan10, true);

  EXPECT_EQ(rc, -1);
  EXPECT_THAT(LogLines(), ElementsAreArray(fault.log));
  EXPECT_EQ(InGroup(), fault.inGroup);
  EXPECT_EQ(InVlan(), fault.inVlan);
}

const char* const kAddGroupLine =
    "log(3): Error adding gport 0x04000003 to VLAN 10 Replication Group.";
const char* const kDelGroupLine =
    "log(3): Error removing gport 0x04000003 from VLAN 10 Replication Group.";
const char* const kGroupReadLine =
    "log(3): Error getting VLAN properties from VLAN 10: No resources for operation.";
const char* const kEncapLine =
    "log(3): Error getting encap ID from gport 0x04000003 for multicast group 0100000A: No "
    "resources for operation.";

INSTANTIATE_TEST_SUITE_P(
    EachChipCall, HardwareFaultTest,
    ::testing::Values(
        HardwareFault{false,
                      "bcm_vlan_control_vlan_selective_get",
                      {kGroupReadLine, kAddGroupLine},
                      false,
                      false},
        HardwareFault{
            false, "bcm_multicast_l2_encap_get", {kEncapLine, kAddGroupLine}, false, false},
        HardwareFault{false,
                      "bcm_multicast_egress_add",
                      {"log(3): Error adding encap ID 0x00008003 of gport 0x04000003 to multicast "
                       "group 0100000A: No resources for operation.",
                       kAddGroupLine},
                      false,
                      false},
        HardwareFault{false,
                      "bcm_vlan_gport_add",
                      {"log(3): Error adding gport 0x04000003 to VLAN 10: No resources for "
                       "operation."},
                      true,
                      false},
        HardwareFault{true,
                      "bcm_vlan_control_vlan_selective_get",
                      {kGroupReadLine, kDelGroupLine},
                      true,
                      true},
        HardwareFault{true, "bcm_multicast_l2_encap_get", {kEncapLine, kDelGroupLine}, true, true},
        HardwareFault{true,
                      "bcm_multicast_egress_delete",
                      {"log(3): Error removing encap ID 0x00008003 of gport 0x04000003 from "
                       "multicast group 0100000A: No resources for operation.",
                       kDelGroupLine},
                      true,
                      true},
        HardwareFault{true,
                      "bcm_vlan_gport_delete",
                      {"log(3): Error removing gport 0x04000003 from VLAN 10: No resources for "
                       "operation."},
                      false,
                      true}));

}  // namespace
