// Port VLAN attributes: each setter on a port, on a LAG with members, on an empty LAG and on an
// unknown LAG; refusals before any chip call; members failing part-way.
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bridge_port_inspector.h"
#include "hal_bcm_bridge_port.h"
#include "sim/sim_platform.h"
#include "sim_test.h"

namespace {

using Lines = std::vector<std::string>;
using ::testing::IsEmpty;

const limid_t kLag = sim::Lag(1);
const limid_t kUnknownLag = sim::Lag(9);
const limid_t kUnknownPort = sim::EthernetPort(1, 9);

limid_t Port(int p) {
  return sim::EthernetPort(1, p);
}

std::string Gport(int p) {
  char text[16];
  std::snprintf(text, sizeof text, "%#x", sim::LocalGport(p));
  return text;
}

// The trace line of a call that the chip refused with -4 instead of accepting.
std::string Refused(std::string call) {
  return call.substr(0, call.size() - 1) + "-4";
}

Lines Concat(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// One LAG-expanding setter applied with one value.
struct SetterCase {
  const char* name;
  std::function<int(HalBcmBridgePort&, limid_t)> set;
  // The chip calls that apply the value to local port p.
  std::function<Lines(int p)> callsFor;
  // Whether a chip port holds the value.
  std::function<bool(const sim::PortState&)> holds;
  // The worker's message when the chip refuses the value for eth1/p with -4.
  std::function<Lines(int p)> chipFailureLog;
  // What the setter adds to it for eth1/1 on its own, and for eth1/2 as a member of lag1.
  Lines portFailureTail;
  Lines memberFailureTail;
  // The messages for eth1/9, a port missing from the port table.
  Lines lookupFailureLog;
  // Whether a LAG keeps the value for joining ports after one of its members refused it.
  bool keptAfterMemberFailure;
};

void PrintTo(const SetterCase& c, std::ostream* os) {
  *os << c.name;
}

const SetterCase kNativeVlan{
    "NativeVlan",
    [](HalBcmBridgePort& s, limid_t id) { return s.SetNativeVlan(id, 10); },
    [](int p) { return Lines{"bcm_port_untagged_vlan_set(0, " + Gport(p) + ", 10) = 0"}; },
    [](const sim::PortState& s) { return s.untaggedVlan == 10; },
    [](int p) {
      return Lines{"log(3): Error setting eth1/" + std::to_string(p) + " (" + Gport(p) +
                   ") native VLAN: Invalid parameter."};
    },
    {},
    {},
    {"log(3): Error setting eth1/9 native VLAN id(10): HAL ID not found."},
    false};

const SetterCase kPrio4Untagged{
    "Prio4Untagged",
    [](HalBcmBridgePort& s, limid_t id) { return s.SetPrio4Untagged(id, 5); },
    [](int p) { return Lines{"bcm_port_untagged_priority_set(0, " + Gport(p) + ", 5) = 0"}; },
    [](const sim::PortState& s) { return s.untaggedPriority == 5; },
    [](int p) {
      return Lines{"log(3): Error setting eth1/" + std::to_string(p) + " (" + Gport(p) +
                   ") default priority: Invalid parameter."};
    },
    {},
    {},
    {"log(3): Error setting eth1/9 default priority: HAL ID not found."},
    false};

const SetterCase kVlanQinQ{
    "VlanQinQ",
    [](HalBcmBridgePort& s, limid_t id) { return s.SetVlanQinQ(id, HAL_BP_QINQ_ENABLE); },
    [](int p) {
      // Q-in-Q ports look up the outer tag, then the inner one.
      const std::string port = std::to_string(p);
      return Lines{"bcm_port_dtag_mode_set(0, " + Gport(p) + ", 2) = 0",
                   "bcm_vlan_control_port_set(0, " + port + ", 14, 8) = 0",
                   "bcm_vlan_control_port_set(0, " + port + ", 15, 9) = 0"};
    },
    [](const sim::PortState& s) {
      return s.dtagMode == BCM_PORT_DTAG_MODE_EXTERNAL && s.keyFirst == 8 && s.keySecond == 9;
    },
    [](int p) {
      return Lines{"log(3): SetVlanQinQByPort: Error setting eth1/" + std::to_string(p) + " (" +
                   Gport(p) + ") dtag: Invalid parameter."};
    },
    {},
    {},
    {"log(3): SetVlanQinQByPort: Error setting eth1/9 VLAN QinQ mode: HAL ID not found."},
    false};

const SetterCase kAcceptableFrameType{
    "AcceptableFrameType",
    [](HalBcmBridgePort& s, limid_t id) {
      return s.SetAcceptableFrameType(id, HAL_BP_ADMIT_ONLY_TAGGED);
    },
    [](int p) { return Lines{"bcm_port_discard_set(0, " + Gport(p) + ", 2) = 0"}; },
    [](const sim::PortState& s) { return s.discardMode == BCM_PORT_DISCARD_UNTAG; },
    [](int p) {
      return Lines{"log(3): [HAL-BP] Error setting eth1/" + std::to_string(p) +
                   " port value: 2 - Invalid parameter."};
    },
    {"log(3): Error setting eth1/1 acceptable frame type 1."},
    {"log(3): Error setting LAG member eth1/2 acceptable frame type 1."},
    {"log(3): [HAL-BP] Error getting device id port for: eth1/9 -  HAL ID not found.",
     "log(3): Error setting eth1/9 acceptable frame type 1."},
    true};

const SetterCase kTpid{
    "Tpid",
    [](HalBcmBridgePort& s, limid_t id) { return s.SetTpid(id, 0x88a8); },
    [](int p) { return Lines{"bcm_port_tpid_set(0, " + Gport(p) + ", 0x88a8) = 0"}; },
    [](const sim::PortState& s) { return s.outerTpid == 0x88a8; },
    [](int p) {
      // The outer TPID alone reports through error() with the SDK's code.
      return Lines{"error(-4): [HAL-BP] Error setting eth1/" + std::to_string(p) + " (" + Gport(p) +
                   ") outer TPID: Invalid parameter."};
    },
    {},
    {},
    {"log(3): [HAL-BP] Error setting eth1/9 outer TPID: HAL ID not found."},
    true};

class BridgePortAttributes : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    for (int p = 1; p <= 4; ++p)
      sim::common().AddPort(Port(p), sim::LocalGport(p));
    sim::common().AddLag(kLag, 5);
    service = HalBcmBridgePort::GetInstance(nullptr);
  }

  static void ListMembers(std::initializer_list<int> ports) {
    for (int p : ports)
      sim::common().ListLagMember(kLag, Port(p));
  }

  // What the LAG remembered, as a port that joins it afterwards receives it.
  const sim::PortState& JoinLag(int p) {
    service->AddMemberLagEvent(kLag, Port(p));
    return sim::chip().Port(p);
  }

  HalBcmBridgePortInspector Books() { return HalBcmBridgePortInspector(*service); }

  HalBcmBridgePort* service = nullptr;
};

class EverySetter : public BridgePortAttributes,
                    public ::testing::WithParamInterface<SetterCase> {};

TEST_P(EverySetter, OnAPortProgramsThatPortOnly) {
  EXPECT_EQ(GetParam().set(*service, Port(1)), 0);

  EXPECT_EQ(Trace(), GetParam().callsFor(1));
  EXPECT_TRUE(GetParam().holds(sim::chip().Port(1)));
  EXPECT_FALSE(GetParam().holds(sim::chip().Port(2)));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_P(EverySetter, OnALagProgramsEachMemberAndCarriesOverToPortsJoiningLater) {
  ListMembers({1, 2});

  EXPECT_EQ(GetParam().set(*service, kLag), 0);

  EXPECT_EQ(Trace(), Concat(GetParam().callsFor(1), GetParam().callsFor(2)));
  EXPECT_THAT(LogLines(), IsEmpty());
  EXPECT_TRUE(GetParam().holds(JoinLag(3)));
}

TEST_P(EverySetter, OnAnEmptyLagIsOnlyRememberedForPortsJoiningLater) {
  EXPECT_EQ(GetParam().set(*service, kLag), 0);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_TRUE(GetParam().holds(JoinLag(3)));
}

TEST_P(EverySetter, ChipRefusalOnAPortIsReportedWithTheSdkText) {
  const std::string call = GetParam().callsFor(1).front();
  sim::chip().FailNext(call.substr(0, call.find('(')), 1, BCM_E_PARAM);

  EXPECT_EQ(GetParam().set(*service, Port(1)), -1);

  EXPECT_EQ(Trace(), Lines{Refused(call)});
  EXPECT_EQ(LogLines(), Concat(GetParam().chipFailureLog(1), GetParam().portFailureTail));
}

TEST_P(EverySetter, PortMissingFromThePortTableIsReportedWithoutChipCall) {
  EXPECT_EQ(GetParam().set(*service, kUnknownPort), -1);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(), GetParam().lookupFailureLog);
}

INSTANTIATE_TEST_SUITE_P(BridgePortSetters, EverySetter,
                         ::testing::Values(kNativeVlan, kPrio4Untagged, kVlanQinQ,
                                           kAcceptableFrameType, kTpid),
                         [](const auto& info) { return std::string(info.param.name); });

class SetterStoppingAtFailingMember : public BridgePortAttributes,
                                      public ::testing::WithParamInterface<SetterCase> {};

TEST_P(SetterStoppingAtFailingMember, LeavesEarlierMembersChangedAndLaterOnesUntouched) {
  ListMembers({1, 2, 3});
  const std::string secondCall = GetParam().callsFor(2).front();
  sim::chip().FailNext(secondCall.substr(0, secondCall.find('(')), 1, BCM_E_PARAM);

  EXPECT_EQ(GetParam().set(*service, kLag), -1);

  EXPECT_EQ(Trace(), Concat(GetParam().callsFor(1), {Refused(secondCall)}));
  EXPECT_EQ(LogLines(), Concat(GetParam().chipFailureLog(2), GetParam().memberFailureTail));
  EXPECT_EQ(GetParam().holds(JoinLag(4)), GetParam().keptAfterMemberFailure);
}

INSTANTIATE_TEST_SUITE_P(BridgePortSetters, SetterStoppingAtFailingMember,
                         ::testing::Values(kNativeVlan, kPrio4Untagged, kVlanQinQ,
                                           kAcceptableFrameType),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(BridgePortAttributes, TpidGoesOnPastAFailingMemberAndIsStillRemembered) {
  ListMembers({1, 2, 3});
  sim::chip().FailNth("bcm_port_tpid_set", 2, BCM_E_PARAM);

  EXPECT_EQ(service->SetTpid(kLag, 0x88a8), -1);

  EXPECT_EQ(Trace(), Concat(Concat(kTpid.callsFor(1), {Refused(kTpid.callsFor(2).front())}),
                            kTpid.callsFor(3)));
  EXPECT_EQ(LogLines(), Concat(kTpid.chipFailureLog(2),
                               {"log(3): [HAL-BP] Error setting lag1 outer TPID 0x88a8."}));
  EXPECT_EQ(service->GetTpid(kLag), 0x88a8);
}

TEST_F(BridgePortAttributes, RefusedTpidOfAPortIsStillReported) {
  sim::chip().FailNext("bcm_port_tpid_set", 1, BCM_E_PARAM);

  EXPECT_EQ(service->SetTpid(Port(1), 0x88a8), -1);

  EXPECT_EQ(service->GetTpid(Port(1)), 0x88a8);
  EXPECT_EQ(service->GetTpid(Port(2)), 0x8100);
}

// ---- Values refused before any chip call ---------------------------------------------------

struct RefusalCase {
  const char* name;
  std::function<int(HalBcmBridgePort&)> set;
  Lines log;
};

void PrintTo(const RefusalCase& c, std::ostream* os) {
  *os << c.name;
}

class RefusedValue : public BridgePortAttributes,
                     public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(RefusedValue, ReachesNoChipAndChangesNothing) {
  ListMembers({1, 2});

  EXPECT_EQ(GetParam().set(*service), -1);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(), GetParam().log);
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
  EXPECT_THAT(Books().qinqPorts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    BridgePortOutOfRange, RefusedValue,
    ::testing::Values(
        RefusalCase{"VlanAbove4095OnPort",
                    [](HalBcmBridgePort& s) { return s.SetNativeVlan(Port(1), 4096); },
                    {"log(3): Error setting eth1/1 native VLAN id(4096): Invalid VLAN range."}},
        RefusalCase{"VlanAbove4095OnLag",
                    [](HalBcmBridgePort& s) { return s.SetNativeVlan(kLag, 65535); },
                    {"log(3): Error setting lag1 native VLAN id(65535): Invalid VLAN range."}},
        RefusalCase{"PcpAbove7OnPort",
                    [](HalBcmBridgePort& s) { return s.SetPrio4Untagged(Port(1), 8); },
                    {"log(3): Error setting eth1/1 default priority(8): Invalid PCP range."}},
        RefusalCase{"PcpAbove7OnLag",
                    [](HalBcmBridgePort& s) { return s.SetPrio4Untagged(kLag, 255); },
                    {"log(3): Error setting lag1 default priority(255): Invalid PCP range."}},
        RefusalCase{"UnknownQinQModeOnPort",
                    [](HalBcmBridgePort& s) {
                      return s.SetVlanQinQ(Port(1), static_cast<en_HalBridgePortQinQ>(2));
                    },
                    {"log(3): SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode: bad "
                     "argument."}},
        // The mode is checked per member: the first one refuses it and the LAG stops there.
        RefusalCase{"UnknownQinQModeOnLag",
                    [](HalBcmBridgePort& s) {
                      return s.SetVlanQinQ(kLag, static_cast<en_HalBridgePortQinQ>(2));
                    },
                    {"log(3): SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode: bad "
                     "argument."}}),
    [](const auto& info) { return std::string(info.param.name); });

struct BoundaryCase {
  const char* name;
  std::function<int(HalBcmBridgePort&)> set;
  std::string call;
};

void PrintTo(const BoundaryCase& c, std::ostream* os) {
  *os << c.name;
}

class AcceptedBoundary : public BridgePortAttributes,
                         public ::testing::WithParamInterface<BoundaryCase> {};

TEST_P(AcceptedBoundary, ReachesTheChip) {
  EXPECT_EQ(GetParam().set(*service), 0);
  EXPECT_EQ(Trace(), Lines{GetParam().call});
}

INSTANTIATE_TEST_SUITE_P(
    BridgePortLimits, AcceptedBoundary,
    ::testing::Values(
        BoundaryCase{"Vlan0", [](HalBcmBridgePort& s) { return s.SetNativeVlan(Port(1), 0); },
                     "bcm_port_untagged_vlan_set(0, 0x4000001, 0) = 0"},
        BoundaryCase{"Vlan4095", [](HalBcmBridgePort& s) { return s.SetNativeVlan(Port(1), 4095); },
                     "bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = 0"},
        BoundaryCase{"Pcp7", [](HalBcmBridgePort& s) { return s.SetPrio4Untagged(Port(1), 7); },
                     "bcm_port_untagged_priority_set(0, 0x4000001, 7) = 0"}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Unknown LAGs ------------------------------------------------------------------------------

struct UnknownLagCase {
  const char* name;
  std::function<int(HalBcmBridgePort&)> set;
  std::string log;
};

void PrintTo(const UnknownLagCase& c, std::ostream* os) {
  *os << c.name;
}

class SetterOnUnknownLag : public BridgePortAttributes,
                           public ::testing::WithParamInterface<UnknownLagCase> {};

TEST_P(SetterOnUnknownLag, IsReportedAndRemembersNothing) {
  EXPECT_EQ(GetParam().set(*service), -1);

  EXPECT_EQ(LogLines(), Lines{GetParam().log});
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
  EXPECT_THAT(Books().qinqPorts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    BridgePortGuardedSetters, SetterOnUnknownLag,
    ::testing::Values(
        UnknownLagCase{"NativeVlan",
                       [](HalBcmBridgePort& s) { return s.SetNativeVlan(kUnknownLag, 10); },
                       "log(3): Error setting lag9 native VLAN id(10): LAG not found."},
        UnknownLagCase{"Prio4Untagged",
                       [](HalBcmBridgePort& s) { return s.SetPrio4Untagged(kUnknownLag, 5); },
                       "log(3): Error setting lag9 default priority(5): LAG not found."},
        UnknownLagCase{
            "VlanQinQ",
            [](HalBcmBridgePort& s) { return s.SetVlanQinQ(kUnknownLag, HAL_BP_QINQ_ENABLE); },
            "log(3): Error setting lag9 VLAN Q-in-Q mode: LAG not found."}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BridgePortAttributes, TpidOnUnknownLagThrowsBeforeStoringIt) {
  EXPECT_THROW(service->SetTpid(kUnknownLag, 0x88a8), std::out_of_range);
  EXPECT_EQ(service->GetTpid(kUnknownLag), 0x8100);
}

TEST_F(BridgePortAttributes, FrameTypeOnUnknownLagThrowsAfterStoringIt) {
  EXPECT_THROW(service->SetAcceptableFrameType(kUnknownLag, HAL_BP_ADMIT_ONLY_TAGGED),
               std::out_of_range);
  EXPECT_EQ(Books().acceptableFrameTypes().at(kUnknownLag), HAL_BP_ADMIT_ONLY_TAGGED);
}

// ---- Values that stand for "nothing configured" ------------------------------------------------

TEST_F(BridgePortAttributes, NativeVlan4095IsWrittenToMembersButForgottenForTheLag) {
  ListMembers({1});
  service->SetNativeVlan(kLag, 10);
  ClearRecords();

  EXPECT_EQ(service->SetNativeVlan(kLag, 4095), 0);

  EXPECT_EQ(Trace(), Lines{"bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = 0"});
  EXPECT_EQ(Books().nativeVlans().count(kLag), 0u);
}

TEST_F(BridgePortAttributes, PriorityZeroIsWrittenToMembersButForgottenForTheLag) {
  ListMembers({1});
  service->SetPrio4Untagged(kLag, 5);
  ClearRecords();

  EXPECT_EQ(service->SetPrio4Untagged(kLag, 0), 0);

  EXPECT_EQ(Trace(), Lines{"bcm_port_untagged_priority_set(0, 0x4000001, 0) = 0"});
  EXPECT_EQ(Books().untaggedPrios().count(kLag), 0u);
}

// ---- Q-in-Q bookkeeping ----------------------------------------------------------------------

TEST_F(BridgePortAttributes, QinQIsRecordedForTheIdentifierGivenOnly) {
  ListMembers({1, 2});

  service->SetVlanQinQ(kLag, HAL_BP_QINQ_ENABLE);
  service->SetVlanQinQ(Port(3), HAL_BP_QINQ_ENABLE);
  EXPECT_EQ(Books().qinqPorts(), (std::set<limid_t>{Port(3), kLag}));

  service->SetVlanQinQ(Port(3), HAL_BP_QINQ_DISABLE);
  EXPECT_EQ(Books().qinqPorts(), std::set<limid_t>{kLag});
}

TEST_F(BridgePortAttributes, EmptyLagRecordsAnyQinQModeAndJoiningPortsGetModeOne) {
  EXPECT_EQ(service->SetVlanQinQ(kLag, static_cast<en_HalBridgePortQinQ>(5)), 0);

  EXPECT_EQ(Books().qinqPorts(), std::set<limid_t>{kLag});
  EXPECT_EQ(JoinLag(3).dtagMode, BCM_PORT_DTAG_MODE_EXTERNAL);
}

TEST_F(BridgePortAttributes, QinQChangeReprogramsStoredIngressRulesForTheNewTagLayout) {
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag.vlanId = 100;
  rule.operation = vlanxlate::Operation::Replace;
  rule.action.outerVlanTag.vlanId = 200;
  ASSERT_EQ(service->AddVlanMappingRule(Port(1), vlanxlate::Stage::Ingress, rule), 0);
  const sim::IngressKey singleTagged{false, 1, bcmVlanTranslateKeyPortOuter, 100, 0};
  const sim::IngressKey qinqInner{false, 1, bcmVlanTranslateKeyPortInner, 0, 100};

  EXPECT_EQ(service->SetVlanQinQ(Port(1), HAL_BP_QINQ_ENABLE), 0);

  EXPECT_EQ(sim::chip().IngressTable().count(singleTagged), 0u);
  EXPECT_EQ(sim::chip().IngressTable().count(qinqInner), 1u);
}

// ---- Inner TPID: the identifier's own port, never the members of a LAG --------------------------

TEST_F(BridgePortAttributes, InnerTpidProgramsTheGivenPort) {
  EXPECT_EQ(service->SetInnerTpid(Port(1), 0x88a8), 0);

  EXPECT_EQ(Trace(), Lines{"bcm_port_inner_tpid_set(0, 0x4000001, 0x88a8) = 0"});
  EXPECT_THAT(Books().tpids(), IsEmpty());
}

TEST_F(BridgePortAttributes, InnerTpidOnALagProgramsNoneOfItsMembers) {
  ListMembers({1, 2});

  EXPECT_EQ(service->SetInnerTpid(kLag, 0x88a8), -1);

  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(), Lines{"log(3): Error setting lag1 inner TPID: HAL ID not found."});
}

TEST_F(BridgePortAttributes, InnerTpidRefusedByTheChipIsReported) {
  sim::chip().FailNext("bcm_port_inner_tpid_set", 1, BCM_E_PARAM);

  EXPECT_EQ(service->SetInnerTpid(Port(1), 0x88a8), -1);

  EXPECT_EQ(LogLines(),
            Lines{"log(3): Error setting eth1/1 (0x4000001) inner TPID: Invalid parameter."});
}

}  // namespace
