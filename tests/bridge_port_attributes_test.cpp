// Port VLAN attributes: each setter on a port, on a LAG with members, on an empty LAG and on an
// unknown LAG; refusals before any chip call; members failing part-way. What a LAG remembers is
// observed through a port that joins it afterwards.
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bridge_port_inspector.h"
#include "sim_test.h"

namespace {

using Lines = std::vector<std::string>;
using ::testing::IsEmpty;

const limid_t kLag = sim::Lag(1);
const limid_t kUnknownLag = sim::Lag(9);
limid_t Port(int p) {
  return sim::EthernetPort(1, p);
}

// Fills in port p: "@G" its gport, "@P" its number, "@N" its name.
Lines ForPort(Lines lines, int p) {
  char gport[16];
  std::snprintf(gport, sizeof gport, "%#x", sim::LocalGport(p));
  const std::pair<std::string, std::string> fills[] = {
      {"@G", gport}, {"@P", std::to_string(p)}, {"@N", "eth1/" + std::to_string(p)}};
  for (std::string& line : lines) {
    for (const auto& [mark, text] : fills) {
      for (size_t at; (at = line.find(mark)) != std::string::npos;)
        line.replace(at, 2, text);
    }
  }
  return lines;
}

Lines operator+(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The trace line of the call refused with -4 instead of accepted.
std::string Refused(const std::string& call) {
  return call.substr(0, call.size() - 1) + "-4";
}
std::string FunctionOf(const std::string& call) {
  return call.substr(0, call.find('('));
}

class BridgePortAttributes : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    for (int p = 1; p <= 4; ++p)
      sim::common().AddPort(Port(p), sim::LocalGport(p));
    sim::common().AddLag(kLag, 5);
    service = HalBcmBridgePort::GetInstance(nullptr);
  }
  static void ListMembers(int count) {
    for (int p = 1; p <= count; ++p)
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

// One LAG-expanding setter applied with one value; texts use the marks of ForPort.
struct SetterCase {
  const char* name;
  std::function<int(HalBcmBridgePort&, limid_t)> set;
  Lines calls;  // applying the value to one port
  std::function<bool(const sim::PortState&)> holds;
  Lines chipFailure;        // the worker's line when the chip says -4
  Lines portTail, lagTail;  // what the setter adds for a port, a LAG
  Lines lookupFailure;      // for eth1/9, missing from the port table
  bool stopsAtFailingMember;
  bool keptAfterMemberFailure;
};
void PrintTo(const SetterCase& c, std::ostream* os) {
  *os << c.name;
}

const SetterCase kSetters[] = {
    {"NativeVlan",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetNativeVlan(id, 10); },
     {"bcm_port_untagged_vlan_set(0, @G, 10) = 0"},
     [](const sim::PortState& s) { return s.untaggedVlan == 10; },
     {"log(3): Error setting @N (@G) native VLAN: Invalid parameter."},
     {},
     {},
     {"log(3): Error setting eth1/9 native VLAN id(10): HAL ID not found."},
     true,
     false},
    {"Prio4Untagged",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetPrio4Untagged(id, 5); },
     {"bcm_port_untagged_priority_set(0, @G, 5) = 0"},
     [](const sim::PortState& s) { return s.untaggedPriority == 5; },
     {"log(3): Error setting @N (@G) default priority: Invalid parameter."},
     {},
     {},
     {"log(3): Error setting eth1/9 default priority: HAL ID not found."},
     true,
     false},
    // Q-in-Q ports look up the outer tag first, then the inner one.
    {"VlanQinQ",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetVlanQinQ(id, HAL_BP_QINQ_ENABLE); },
     {"bcm_port_dtag_mode_set(0, @G, 2) = 0", "bcm_vlan_control_port_set(0, @P, 14, 8) = 0",
      "bcm_vlan_control_port_set(0, @P, 15, 9) = 0"},
     [](const sim::PortState& s) { return s.dtagMode == 2 && s.keyFirst == 8 && s.keySecond == 9; },
     {"log(3): SetVlanQinQByPort: Error setting @N (@G) dtag: Invalid parameter."},
     {},
     {},
     {"log(3): SetVlanQinQByPort: Error setting eth1/9 VLAN QinQ mode: HAL ID not found."},
     true,
     false},
    {"AcceptableFrameType",
     [](HalBcmBridgePort& s, limid_t id) {
       return s.SetAcceptableFrameType(id, HAL_BP_ADMIT_ONLY_TAGGED);
     },
     {"bcm_port_discard_set(0, @G, 2) = 0"},
     [](const sim::PortState& s) { return s.discardMode == BCM_PORT_DISCARD_UNTAG; },
     {"log(3): [HAL-BP] Error setting @N port value: 2 - Invalid parameter."},
     {"log(3): Error setting @N acceptable frame type 1."},
     {"log(3): Error setting LAG member @N acceptable frame type 1."},
     {"log(3): [HAL-BP] Error getting device id port for: eth1/9 -  HAL ID not found.",
      "log(3): Error setting eth1/9 acceptable frame type 1."},
     true,
     true},
    // The outer TPID alone reports the chip's refusal through error() with the SDK's code, tries
    // every member and keeps the value whatever happened.
    {"Tpid",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetTpid(id, 0x88a8); },
     {"bcm_port_tpid_set(0, @G, 0x88a8) = 0"},
     [](const sim::PortState& s) { return s.outerTpid == 0x88a8; },
     {"error(-4): [HAL-BP] Error setting @N (@G) outer TPID: Invalid parameter."},
     {},
     {"log(3): [HAL-BP] Error setting lag1 outer TPID 0x88a8."},
     {"log(3): [HAL-BP] Error setting eth1/9 outer TPID: HAL ID not found."},
     false,
     true},
};

class EverySetter : public BridgePortAttributes, public ::testing::WithParamInterface<SetterCase> {
 protected:
  Lines Calls(int p) { return ForPort(GetParam().calls, p); }
};

TEST_P(EverySetter, OnAPortProgramsThatPortOnly) {
  EXPECT_EQ(GetParam().set(*service, Port(1)), 0);
  EXPECT_EQ(Trace(), Calls(1));
  EXPECT_TRUE(GetParam().holds(sim::chip().Port(1)));
  EXPECT_FALSE(GetParam().holds(sim::chip().Port(2)));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_P(EverySetter, OnALagProgramsEachMemberAndCarriesOverToPortsJoiningLater) {
  ListMembers(2);
  EXPECT_EQ(GetParam().set(*service, kLag), 0);
  EXPECT_EQ(Trace(), Calls(1) + Calls(2));
  EXPECT_TRUE(GetParam().holds(JoinLag(3)));
}

TEST_P(EverySetter, OnAnEmptyLagIsOnlyRememberedForPortsJoiningLater) {
  EXPECT_EQ(GetParam().set(*service, kLag), 0);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_TRUE(GetParam().holds(JoinLag(3)));
}

TEST_P(EverySetter, ChipRefusalOnAPortIsReportedWithTheSdkText) {
  sim::chip().FailNext(FunctionOf(Calls(1)[0]), 1, BCM_E_PARAM);
  EXPECT_EQ(GetParam().set(*service, Port(1)), -1);
  EXPECT_EQ(Trace(), Lines{Refused(Calls(1)[0])});  // nothing follows a refused write
  EXPECT_EQ(LogLines(), ForPort(GetParam().chipFailure + GetParam().portTail, 1));
}

TEST_P(EverySetter, PortMissingFromThePortTableIsReportedWithoutChipCall) {
  EXPECT_EQ(GetParam().set(*service, sim::EthernetPort(1, 9)), -1);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(), GetParam().lookupFailure);
}

TEST_P(EverySetter, MemberFailingInTheMiddleStopsTheSetterOrNot) {
  ListMembers(3);
  sim::chip().FailNth(FunctionOf(Calls(2)[0]), 2, BCM_E_PARAM);

  EXPECT_EQ(GetParam().set(*service, kLag), -1);

  const Lines rest = GetParam().stopsAtFailingMember ? Lines{} : Calls(3);
  EXPECT_EQ(Trace(), Calls(1) + Lines{Refused(Calls(2)[0])} + rest);
  EXPECT_EQ(LogLines(), ForPort(GetParam().chipFailure + GetParam().lagTail, 2));
  EXPECT_EQ(GetParam().holds(JoinLag(4)), GetParam().keptAfterMemberFailure);
}

INSTANTIATE_TEST_SUITE_P(BridgePortSetters, EverySetter, ::testing::ValuesIn(kSetters),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- Refused before any chip call
// ----------------------------------------------------------------

struct RefusalCase {
  const char* name;
  std::function<int(HalBcmBridgePort&)> set;
  std::string log;
};
void PrintTo(const RefusalCase& c, std::ostream* os) {
  *os << c.name;
}

class RefusedRequest : public BridgePortAttributes,
                       public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(RefusedRequest, ReachesNoChipAndRemembersNothing) {
  ListMembers(2);
  EXPECT_EQ(GetParam().set(*service), -1);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(), Lines{GetParam().log});
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
  EXPECT_THAT(Books().qinqPorts(), IsEmpty());
}

const auto kBadQinQ = static_cast<en_HalBridgePortQinQ>(2);
INSTANTIATE_TEST_SUITE_P(
    BridgePortRefusals, RefusedRequest,
    ::testing::Values(
        RefusalCase{"VlanAbove4095",
                    [](HalBcmBridgePort& s) { return s.SetNativeVlan(kLag, 4096); },
                    "log(3): Error setting lag1 native VLAN id(4096): Invalid VLAN range."},
        RefusalCase{"PcpAbove7", [](HalBcmBridgePort& s) { return s.SetPrio4Untagged(Port(1), 8); },
                    "log(3): Error setting eth1/1 default priority(8): Invalid PCP range."},
        RefusalCase{
            "QinQMode2OnPort", [](HalBcmBridgePort& s) { return s.SetVlanQinQ(Port(1), kBadQinQ); },
            "log(3): SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode: bad argument."},
        // The mode is checked per member: the first one refuses it and the LAG stops there.
        RefusalCase{
            "QinQMode2OnLag", [](HalBcmBridgePort& s) { return s.SetVlanQinQ(kLag, kBadQinQ); },
            "log(3): SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode: bad argument."},
        RefusalCase{"NativeVlanOnUnknownLag",
                    [](HalBcmBridgePort& s) { return s.SetNativeVlan(kUnknownLag, 10); },
                    "log(3): Error setting lag9 native VLAN id(10): LAG not found."},
        RefusalCase{"PcpOnUnknownLag",
                    [](HalBcmBridgePort& s) { return s.SetPrio4Untagged(kUnknownLag, 5); },
                    "log(3): Error setting lag9 default priority(5): LAG not found."},
        RefusalCase{
            "QinQOnUnknownLag",
            [](HalBcmBridgePort& s) { return s.SetVlanQinQ(kUnknownLag, HAL_BP_QINQ_ENABLE); },
            "log(3): Error setting lag9 VLAN Q-in-Q mode: LAG not found."}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BridgePortAttributes, UnknownLagReachesTheCallerOfTpidBeforeAndOfFrameTypeAfterStoring) {
  EXPECT_THROW(service->SetTpid(kUnknownLag, 0x88a8), std::out_of_range);
  EXPECT_THROW(service->SetAcceptableFrameType(kUnknownLag, HAL_BP_ADMIT_ONLY_TAGGED),
               std::out_of_range);
  EXPECT_EQ(service->GetTpid(kUnknownLag), 0x8100);
  EXPECT_EQ(Books().acceptableFrameTypes().at(kUnknownLag), HAL_BP_ADMIT_ONLY_TAGGED);
}

TEST_F(BridgePortAttributes, RefusedTpidOfAPortIsStillReported) {
  sim::chip().FailNext("bcm_port_tpid_set", 1, BCM_E_PARAM);
  EXPECT_EQ(service->SetTpid(Port(1), 0x88a8), -1);
  EXPECT_EQ(service->GetTpid(Port(1)), 0x88a8);
}

TEST_F(BridgePortAttributes, UnsetValuesAreWrittenToMembersButForgottenForTheLag) {
  ListMembers(1);
  service->SetNativeVlan(kLag, 10);
  service->SetPrio4Untagged(kLag, 5);
  ClearRecords();

  EXPECT_EQ(service->SetNativeVlan(kLag, 4095), 0);
  EXPECT_EQ(service->SetPrio4Untagged(kLag, 0), 0);

  EXPECT_EQ(Trace(), (Lines{"bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = 0",
                            "bcm_port_untagged_priority_set(0, 0x4000001, 0) = 0"}));
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
}

// ---- Q-in-Q bookkeeping ----------------------------------------------------------------------

TEST_F(BridgePortAttributes, QinQIsRecordedForTheIdentifierGivenOnly) {
  ListMembers(2);
  service->SetVlanQinQ(kLag, HAL_BP_QINQ_ENABLE);
  service->SetVlanQinQ(Port(3), HAL_BP_QINQ_ENABLE);
  EXPECT_EQ(Books().qinqPorts(), (std::set<limid_t>{Port(3), kLag}));

  service->SetVlanQinQ(Port(3), HAL_BP_QINQ_DISABLE);
  EXPECT_EQ(Books().qinqPorts(), std::set<limid_t>{kLag});
}

TEST_F(BridgePortAttributes, EmptyLagTakesAnyQinQModeAndJoiningPortsGetModeOne) {
  EXPECT_EQ(service->SetVlanQinQ(kLag, static_cast<en_HalBridgePortQinQ>(5)), 0);
  EXPECT_EQ(JoinLag(3).dtagMode, BCM_PORT_DTAG_MODE_EXTERNAL);
}

TEST_F(BridgePortAttributes, QinQChangeReprogramsStoredIngressRulesForTheNewTagLayout) {
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag.vlanId = 100;
  rule.operation = vlanxlate::Operation::Replace;
  rule.action.outerVlanTag.vlanId = 200;
  ASSERT_EQ(service->AddVlanMappingRule(Port(1), vlanxlate::Stage::Ingress, rule), 0);

  EXPECT_EQ(service->SetVlanQinQ(Port(1), HAL_BP_QINQ_ENABLE), 0);

  ASSERT_EQ(sim::chip().IngressTable().size(), 1u);
  const sim::IngressKey& key = sim::chip().IngressTable().begin()->first;
  EXPECT_EQ(key.keyType, bcmVlanTranslateKeyPortInner);
  EXPECT_EQ(key.innerVlan, 100);
}

// ---- Inner TPID: the identifier's own port, never the members of a LAG --------------------------

TEST_F(BridgePortAttributes, InnerTpidOnALagProgramsNoneOfItsMembers) {
  ListMembers(2);
  EXPECT_EQ(service->SetInnerTpid(kLag, 0x88a8), -1);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(), Lines{"log(3): Error setting lag1 inner TPID: HAL ID not found."});
}

TEST_F(BridgePortAttributes, InnerTpidRefusedByTheChipIsReported) {
  sim::chip().FailNext("bcm_port_inner_tpid_set", 1, BCM_E_PARAM);
  EXPECT_EQ(service->SetInnerTpid(Port(1), 0x88a8), -1);
  EXPECT_EQ(Trace(), Lines{"bcm_port_inner_tpid_set(0, 0x4000001, 0x88a8) = -4"});
  EXPECT_EQ(LogLines(),
            Lines{"log(3): Error setting eth1/1 (0x4000001) inner TPID: Invalid parameter."});
}

}  // namespace
