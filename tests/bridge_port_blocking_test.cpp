// Port blocking by the blocking client, and the discard mode it shares with the frame types.
#include <string>
#include <vector>

#include "bridge_port_inspector.h"
#include "sim_test.h"

namespace {

using Lines = std::vector<std::string>;
using ::testing::IsEmpty;

const std::string kClient = "hal-stlp";
const limid_t kPort = sim::EthernetPort(1, 1);
const limid_t kLag = sim::Lag(1);

class BridgePortBlocking : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    sim::common().AddPort(kPort, sim::LocalGport(1));
    sim::common().AddLag(kLag, 5);
    sim::common().ListLagMember(kLag, kPort);
    service = HalBcmBridgePort::GetInstance(nullptr);
  }
  std::map<limid_t, bool>& Blocked() { return HalBcmBridgePortInspector(*service).blockedPorts(); }

  HalBcmBridgePort* service = nullptr;
};

TEST(BridgePortBlockingWithoutService, IsRefused) {
  sim::Reset();
  EXPECT_EQ(BlockPort(kPort, true, kClient), -1);
  EXPECT_EQ(sim::halLog().Lines(),
            Lines{"log(3): [HAL-BP] Error accessing internal unique instance of HAL BP"});
}

struct DiscardCase {
  bool blocked;
  int frameTypes;
  int mode;
};
void PrintTo(const DiscardCase& c, std::ostream* os) {
  *os << (c.blocked ? "blocked" : "unblocked") << c.frameTypes;
}

class DiscardMode : public BridgePortBlocking, public ::testing::WithParamInterface<DiscardCase> {};

TEST_P(DiscardMode, CombinesBlockStateAndFrameTypes) {
  service->SetAcceptableFrameType(
      kPort, static_cast<en_HalBridgePortAcceptableFrameTypes>(GetParam().frameTypes));
  ClearRecords();

  EXPECT_EQ(BlockPort(kPort, GetParam().blocked, kClient), 0);

  EXPECT_EQ(Trace(), Lines{"bcm_port_discard_set(0, 0x4000001, " + std::to_string(GetParam().mode) +
                           ") = 0"});
  EXPECT_EQ(Blocked().at(kPort), GetParam().blocked);
}

// Blocking always wins; an unknown frame-type setting fails safe.
INSTANTIATE_TEST_SUITE_P(BridgePortBlockStates, DiscardMode,
                         ::testing::Values(DiscardCase{false, 0, 0}, DiscardCase{false, 1, 2},
                                           DiscardCase{false, 2, 3}, DiscardCase{false, 7, 1},
                                           DiscardCase{true, 0, 1}, DiscardCase{true, 1, 1},
                                           DiscardCase{true, 2, 1}, DiscardCase{true, 7, 1}));

TEST_F(BridgePortBlocking, FrameTypesSetWhileBlockedApplyOnUnblocking) {
  BlockPort(kPort, true, kClient);
  service->SetAcceptableFrameType(kPort, HAL_BP_ADMIT_ONLY_TAGGED);
  BlockPort(kPort, false, kClient);

  EXPECT_EQ(Trace(), (Lines{"bcm_port_discard_set(0, 0x4000001, 1) = 0",
                            "bcm_port_discard_set(0, 0x4000001, 1) = 0",
                            "bcm_port_discard_set(0, 0x4000001, 2) = 0"}));
}

class ForeignClient : public BridgePortBlocking,
                      public ::testing::WithParamInterface<std::string> {};

TEST_P(ForeignClient, IsRefusedEvenForALag) {
  EXPECT_EQ(BlockPort(kLag, true, GetParam()), -1);
  EXPECT_EQ(LogLines(), Lines{"log(3): [HAL-BP] Discard port of interface (lag1) not allowed for "
                              "low-level client (" +
                              GetParam() + ")"});
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(Blocked(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(BridgePortClients, ForeignClient,
                         ::testing::Values("hal-stlp ", "HAL-STLP", ""));

TEST_F(BridgePortBlocking, LagCannotBeBlockedAsAWhole) {
  EXPECT_EQ(BlockPort(kLag, true, kClient), -1);
  EXPECT_EQ(LogLines(), Lines{"log(3): [HAL-BP] Only ethernet type port block is allowed."});
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(Blocked(), IsEmpty());
}

struct FailureCase {
  const char* name;
  limid_t port;
  bool block;
  int rc;  // 0: the port is missing from the port table
  Lines log;
};
void PrintTo(const FailureCase& c, std::ostream* os) {
  *os << c.name;
}

class FailedBlockRequest : public BridgePortBlocking,
                           public ::testing::WithParamInterface<FailureCase> {};

TEST_P(FailedBlockRequest, IsReportedAndTheRequestedStateIsKept) {
  if (GetParam().rc != 0)
    sim::chip().FailNext("bcm_port_discard_set", 1, GetParam().rc);
  EXPECT_EQ(BlockPort(GetParam().port, GetParam().block, kClient), -1);
  EXPECT_EQ(LogLines(), GetParam().log);
  EXPECT_EQ(Blocked().at(GetParam().port), GetParam().block);
}

INSTANTIATE_TEST_SUITE_P(
    BridgePortBlockFailures, FailedBlockRequest,
    ::testing::Values(
        FailureCase{"ChipRefusesBlock",
                    kPort,
                    true,
                    BCM_E_PARAM,
                    {"log(3): [HAL-BP] Error setting eth1/1 port value: 1 - Invalid parameter.",
                     "log(3): Error blocking interface eth1/1."}},
        // Codes outside the SDK's table share its last text.
        FailureCase{"ChipRefusesUnblockWithUnlistedCode",
                    kPort,
                    false,
                    -30,
                    {"log(3): [HAL-BP] Error setting eth1/1 port value: 0 - Unknown error.",
                     "log(3): Error unblocking interface eth1/1."}},
        FailureCase{"PortMissingFromPortTable",
                    sim::EthernetPort(1, 9),
                    true,
                    0,
                    {"log(3): [HAL-BP] Error getting device id port for: eth1/9 -  HAL ID not "
                     "found.",
                     "log(3): Error blocking interface eth1/9."}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BridgePortBlocking, BlockKeptAfterRefusalIsAppliedByTheNextFrameTypeChange) {
  sim::chip().FailNext("bcm_port_discard_set", 1, BCM_E_PARAM);
  BlockPort(kPort, true, kClient);
  ClearRecords();

  EXPECT_EQ(service->SetAcceptableFrameType(kPort, HAL_BP_ADMIT_ONLY_UNTAGGED), 0);
  EXPECT_EQ(Trace(), Lines{"bcm_port_discard_set(0, 0x4000001, 1) = 0"});
}

TEST_F(BridgePortBlocking, DiscardGoesToTheUnitTheServiceStartedOnWhileAttributesFollowTheLibrary) {
  sim::common().SetUnit(1);

  service->SetNativeVlan(kPort, 10);
  BlockPort(kPort, true, kClient);

  EXPECT_EQ(Trace(), (Lines{"bcm_port_untagged_vlan_set(1, 0x4000001, 10) = 0",
                            "bcm_port_discard_set(0, 0x4000001, 1) = -3"}));
}

}  // namespace
