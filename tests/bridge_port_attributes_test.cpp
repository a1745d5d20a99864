// Port VLAN attributes and blocking: each setter on a port and on a LAG, refusals, members failing
// part-way, and the discard mode that blocking shares with the frame types. What a LAG remembers is
// observed through a port that joins it afterwards.
#include <algorithm>
#include <functional>
#include <stdexcept>

#include "service_fixtures.h"

namespace {

const std::string kClient = "hal-stlp";

// Puts port p (1 to 4) wherever a line says '@'.
Lines ForPort(Lines lines, int p) {
  for (std::string& line : lines)
    std::replace(line.begin(), line.end(), '@', static_cast<char>('0' + p));
  return lines;
}

// The trace line of the call refused with -1 (the smallest failure) instead of accepted.
std::string Refused(const std::string& call) {
  return call.substr(0, call.size() - 1) + "-1";
}
std::string FunctionOf(const std::string& call) {
  return call.substr(0, call.find('('));
}

class BridgePortAttributes : public BridgePortTest {
 protected:
  // What the LAG remembered, as a port that joins it afterwards receives it.
  const sim::PortState& Joined(unsigned p) {
    EXPECT_TRUE(Join(p));
    return sim::chip().Port(p);
  }
};

// One LAG-expanding setter applied with one value; texts are for port '@' (see ForPort).
struct SetterCase {
  const char* name;
  std::function<int(HalBcmBridgePort&, limid_t)> set;
  Lines calls;  // applying the value to one port
  std::function<bool(const sim::PortState&)> holds;
  Lines chipFailure;        // the worker's line when the chip says -4
  Lines portTail, lagTail;  // what the setter adds for a port, a LAG
  bool stopsAtFailingMember;
  bool keptAfterMemberFailure;
};
void PrintTo(const SetterCase& c, std::ostream* os) {
  *os << c.name;
}

const SetterCase kSetters[] = {
    {"NativeVlan",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetNativeVlan(id, 10); },
     {"bcm_port_untagged_vlan_set(0, 0x400000@, 10) = 0"},
     [](const sim::PortState& s) { return s.untaggedVlan == 10; },
     {"log(3): Error setting eth1/@ (0x400000@) native VLAN: Internal error."},
     {},
     {},
     true,
     false},
    {"Prio4Untagged",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetPrio4Untagged(id, 5); },
     {"bcm_port_untagged_priority_set(0, 0x400000@, 5) = 0"},
     [](const sim::PortState& s) { return s.untaggedPriority == 5; },
     {"log(3): Error setting eth1/@ (0x400000@) default priority: Internal error."},
     {},
     {},
     true,
     false},
    // Q-in-Q ports look up the outer tag first, then the inner one.
    {"VlanQinQ",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetVlanQinQ(id, HAL_BP_QINQ_ENABLE); },
     {"bcm_port_dtag_mode_set(0, 0x400000@, 2) = 0", "bcm_vlan_control_port_set(0, @, 14, 8) = 0",
      "bcm_vlan_control_port_set(0, @, 15, 9) = 0"},
     [](const sim::PortState& s) { return s.dtagMode == 2 && s.keyFirst == 8 && s.keySecond == 9; },
     {"log(3): SetVlanQinQByPort: Error setting eth1/@ (0x400000@) dtag: Internal error."},
     {},
     {},
     true,
     false},
    {"AcceptableFrameType",
     [](HalBcmBridgePort& s, limid_t id) {
       return s.SetAcceptableFrameType(id, HAL_BP_ADMIT_ONLY_TAGGED);
     },
     {"bcm_port_discard_set(0, 0x400000@, 2) = 0"},
     [](const sim::PortState& s) { return s.discardMode == BCM_PORT_DISCARD_UNTAG; },
     {"log(3): [HAL-BP] Error setting eth1/@ port value: 2 - Internal error."},
     {"log(3): Error setting eth1/@ acceptable frame type 1."},
     {"log(3): Error setting LAG member eth1/@ acceptable frame type 1."},
     true,
     true},
    // The outer TPID alone reports the chip's refusal through error() with the SDK's code, tries
    // every member and keeps the value whatever happened.
    {"Tpid",
     [](HalBcmBridgePort& s, limid_t id) { return s.SetTpid(id, 0x88a8); },
     {"bcm_port_tpid_set(0, 0x400000@, 0x88a8) = 0"},
     [](const sim::PortState& s) { return s.outerTpid == 0x88a8; },
     {"error(-1): [HAL-BP] Error setting eth1/@ (0x400000@) outer TPID: Internal error."},
     {},
     {"log(3): [HAL-BP] Error setting lag1 outer TPID 0x88a8."},
     false,
     true},
};

class EverySetter : public BridgePortAttributes, public ::testing::WithParamInterface<SetterCase> {
 protected:
  Lines Calls(int p) { return ForPort(GetParam().calls, p); }
  int Set(limid_t id) { return GetParam().set(*service, id); }
};

TEST_P(EverySetter, OnAPortProgramsThatPortOnlyAndReportsFailures) {
  EXPECT_EQ(Set(Eth(1)), 0);
  EXPECT_EQ(Trace(), Calls(1));
  EXPECT_TRUE(GetParam().holds(sim::chip().Port(1)));
  EXPECT_FALSE(GetParam().holds(sim::chip().Port(2)));
  EXPECT_THAT(LogLines(), IsEmpty());
  ClearRecords();

  sim::chip().FailNext(FunctionOf(Calls(2)[0]), 1, BCM_E_INTERNAL);
  EXPECT_EQ(Set(Eth(2)), -1);
  EXPECT_EQ(Trace(), Lines{Refused(Calls(2)[0])});  // nothing follows a refused write
  EXPECT_EQ(LogLines(), ForPort(GetParam().chipFailure + GetParam().portTail, 2));
}

// A LAG's value reaches each member in order; a port that joins later receives what the LAG
// remembered.
TEST_P(EverySetter, OnALagAFailingMemberStopsTheSetterOrNotAndLaterPortsJoinTheValue) {
  ListMembers({1, 2, 3});
  sim::chip().FailNth(FunctionOf(Calls(2)[0]), 2, BCM_E_INTERNAL);

  EXPECT_EQ(Set(kLag), -1);

  const Lines rest = GetParam().stopsAtFailingMember ? Lines{} : Calls(3);
  EXPECT_EQ(Trace(), Calls(1) + Lines{Refused(Calls(2)[0])} + rest);
  EXPECT_EQ(LogLines(), ForPort(GetParam().chipFailure + GetParam().lagTail, 2));
  EXPECT_EQ(GetParam().holds(Joined(4)), GetParam().keptAfterMemberFailure);

  sim::chip().ClearFaults();
  EXPECT_EQ(Set(kLag), 0);
  EXPECT_TRUE(Leave(4));
  EXPECT_TRUE(GetParam().holds(Joined(4)));
}

INSTANTIATE_TEST_SUITE_P(BridgePortSetters, EverySetter, ::testing::ValuesIn(kSetters),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(BridgePortAttributes, TpidIsKeptAfterARefusalAndAnUnknownLagIsRefusedOrThrown) {
  sim::chip().FailNext("bcm_port_tpid_set", 1, BCM_E_PARAM);
  EXPECT_EQ(service->SetTpid(Eth(1), 0x88a8), -1);
  EXPECT_EQ(GetTpid(Eth(1)), 0x88a8);
  // An unknown LAG is not guarded: the frame type is stored before the throw, the TPID after.
  EXPECT_THROW(service->SetTpid(kUnknownLag, 0x88a8), std::out_of_range);
  EXPECT_THROW(service->SetAcceptableFrameType(kUnknownLag, HAL_BP_ADMIT_ONLY_TAGGED),
               std::out_of_range);
  EXPECT_THROW(service->DelLagEvent(kUnknownLag), std::out_of_range);  // before touching anything
  EXPECT_EQ(service->GetTpid(kUnknownLag), 0x8100);
  EXPECT_EQ(Books().acceptableFrameTypes().at(kUnknownLag), HAL_BP_ADMIT_ONLY_TAGGED);
  // The setters that walk the members themselves refuse an unknown LAG and remember nothing.
  ClearRecords();
  EXPECT_EQ(service->SetNativeVlan(kUnknownLag, 10), -1);
  EXPECT_EQ(service->SetPrio4Untagged(kUnknownLag, 5), -1);
  EXPECT_EQ(service->SetVlanQinQ(kUnknownLag, HAL_BP_QINQ_ENABLE), -1);
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error setting lag9 native VLAN id(10): LAG not found.",
                          "log(3): Error setting lag9 default priority(5): LAG not found.",
                          "log(3): Error setting lag9 VLAN Q-in-Q mode: LAG not found."));
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
  EXPECT_THAT(Books().qinqPorts(), IsEmpty());
}

// The ends of the ranges reach the chip; a value beyond them is refused before any chip call. The
// values meaning "unset" are written to a LAG's members but not remembered for the LAG.
TEST_F(BridgePortAttributes, RangeEndsReachTheChipAndValuesBeyondAreRefused) {
  ListMembers({1});
  service->SetNativeVlan(kLag, 10);
  service->SetPrio4Untagged(kLag, 5);
  ClearRecords();
  const struct {
    bool lag, vlan;
    unsigned value;
    int rc;
    std::string outcome;  // the trace line, or the log line of a refusal
  } cases[] = {
      {false, true, 0, 0, "bcm_port_untagged_vlan_set(0, 0x4000002, 0) = 0"},
      {false, true, 4095, 0, "bcm_port_untagged_vlan_set(0, 0x4000002, 4095) = 0"},
      {true, true, 4095, 0, "bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = 0"},
      {false, true, 4096, -1,
       "log(3): Error setting eth1/2 native VLAN id(4096): Invalid VLAN range."},
      {true, true, 4096, -1,
       "log(3): Error setting lag1 native VLAN id(4096): Invalid VLAN range."},
      {false, false, 7, 0, "bcm_port_untagged_priority_set(0, 0x4000002, 7) = 0"},
      {true, false, 0, 0, "bcm_port_untagged_priority_set(0, 0x4000001, 0) = 0"},
      {false, false, 8, -1, "log(3): Error setting eth1/2 default priority(8): Invalid PCP range."},
      {true, false, 8, -1, "log(3): Error setting lag1 default priority(8): Invalid PCP range."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.outcome);
    const limid_t id = c.lag ? kLag : Eth(2);
    EXPECT_EQ(c.vlan ? service->SetNativeVlan(id, static_cast<unsigned short>(c.value))
                     : service->SetPrio4Untagged(id, static_cast<unsigned char>(c.value)),
              c.rc);
    EXPECT_EQ(c.rc == 0 ? Trace() : LogLines(), Lines{c.outcome});
    EXPECT_THAT(c.rc == 0 ? LogLines() : Trace(), IsEmpty());
    ClearRecords();
  }
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
  EXPECT_EQ(std::make_tuple(sim::chip().Port(2).untaggedVlan, sim::chip().Port(2).untaggedPriority),
            std::make_tuple(4095, 7));
}

// The mode is checked port by port, so a LAG without members has nothing to refuse it.
TEST_F(BridgePortAttributes, UnknownQinQModeIsRefusedByAPortButTakenByAnEmptyLag) {
  EXPECT_EQ(service->SetVlanQinQ(Eth(1), static_cast<en_HalBridgePortQinQ>(2)), -1);
  EXPECT_THAT(Trace(), IsEmpty());
  EXPECT_EQ(LogLines(),
            Lines{"log(3): SetVlanQinQByPort: Error setting eth1/1 VLAN QinQ mode: bad argument."});
  EXPECT_THAT(Books().qinqPorts(), IsEmpty());
  EXPECT_EQ(service->SetVlanQinQ(kLag, static_cast<en_HalBridgePortQinQ>(5)), 0);
  EXPECT_EQ(Joined(3).dtagMode, BCM_PORT_DTAG_MODE_EXTERNAL);
}

TEST_F(BridgePortAttributes, InnerTpidGoesToTheIdentifiersOwnPortNeverToLagMembers) {
  ListMembers({1, 2});
  EXPECT_EQ(service->SetInnerTpid(kLag, 0x88a8), -1);
  sim::chip().FailNext("bcm_port_inner_tpid_set", 1, BCM_E_PARAM);
  EXPECT_EQ(service->SetInnerTpid(Eth(1), 0x88a8), -1);

  EXPECT_EQ(Trace(), Lines{"bcm_port_inner_tpid_set(0, 0x4000001, 0x88a8) = -4"});
  EXPECT_EQ(LogLines(),
            (Lines{"log(3): Error setting lag1 inner TPID: HAL ID not found.",
                   "log(3): Error setting eth1/1 (0x4000001) inner TPID: Invalid parameter."}));
}

// ---- Blocking ----------------------------------------------------------------------------------

TEST(BridgePortWithoutService, RefusesToBlock) {
  sim::Reset();
  EXPECT_EQ(BlockPort(Eth(1), true, kClient), -1);
  EXPECT_EQ(sim::halLog().Lines(),
            Lines{"log(3): [HAL-BP] Error accessing internal unique instance of HAL BP"});
}

// Blocking always wins, an unknown frame-type setting fails safe, and frame types set while the
// port is blocked apply when it is unblocked.
TEST_F(BridgePortAttributes, DiscardModeCombinesBlockStateAndFrameTypes) {
  const struct {
    bool blocked;
    int frameTypes, mode;
  } cases[] = {{true, 0, 1}, {false, 1, 2}, {true, 2, 1}, {false, 0, 0},
               {true, 1, 1}, {false, 2, 3}, {true, 7, 1}, {false, 7, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "blocked " << c.blocked << " frame types " << c.frameTypes);
    service->SetAcceptableFrameType(
        Eth(1), static_cast<en_HalBridgePortAcceptableFrameTypes>(c.frameTypes));
    ClearRecords();
    EXPECT_EQ(BlockPort(Eth(1), c.blocked, kClient), 0);
    EXPECT_EQ(Trace(),
              Lines{"bcm_port_discard_set(0, 0x4000001, " + std::to_string(c.mode) + ") = 0"});
    EXPECT_EQ(Books().blockedPorts().at(Eth(1)), c.blocked);
  }
}

// A foreign client is refused first, whatever it asks for (a LAG here); the name is compared
// whole and with its case.
TEST_F(BridgePortAttributes, FailedBlockIsReportedAndKeptForTheNextDiscardUpdate) {
  EXPECT_EQ(BlockPort(kLag, true, "HAL-STLP"), -1);
  EXPECT_EQ(BlockPort(Eth(1), true, "hal-stlp "), -1);
  EXPECT_EQ(BlockPort(kLag, true, kClient), -1);
  sim::chip().FailNext("bcm_port_discard_set", 1, BCM_E_PARAM);
  EXPECT_EQ(BlockPort(Eth(1), true, kClient), -1);
  sim::chip().FailNext("bcm_port_discard_set", 1, -30);  // outside the SDK's table
  EXPECT_EQ(BlockPort(Eth(2), false, kClient), -1);

  EXPECT_EQ(LogLines(),
            // One message split over two lines, not a missing comma.
            // NOLINTNEXTLINE(bugprone-suspicious-missing-comma)
            (Lines{"log(3): [HAL-BP] Discard port of interface (lag1) not allowed for low-level "
                   "client (HAL-STLP)",
                   "log(3): [HAL-BP] Discard port of interface (eth1/1) not allowed for low-level "
                   "client (hal-stlp )",
                   "log(3): [HAL-BP] Only ethernet type port block is allowed.",
                   "log(3): [HAL-BP] Error setting eth1/1 port value: 1 - Invalid parameter.",
                   "log(3): Error blocking interface eth1/1.",
                   "log(3): [HAL-BP] Error setting eth1/2 port value: 0 - Unknown error.",
                   "log(3): Error unblocking interface eth1/2."}));
  EXPECT_EQ(Books().blockedPorts(), (std::map<limid_t, bool>{{Eth(1), true}, {Eth(2), false}}));
  ClearRecords();
  EXPECT_EQ(service->SetAcceptableFrameType(Eth(1), HAL_BP_ADMIT_ONLY_UNTAGGED), 0);
  EXPECT_EQ(Trace(), Lines{"bcm_port_discard_set(0, 0x4000001, 1) = 0"});
}

TEST_F(BridgePortAttributes,
       DiscardGoesToTheUnitTheServiceStartedOnWhileAttributesFollowTheLibrary) {
  sim::common().SetUnit(1);

  service->SetNativeVlan(Eth(1), 10);
  BlockPort(Eth(1), true, kClient);

  EXPECT_EQ(Trace(), (Lines{"bcm_port_untagged_vlan_set(1, 0x4000001, 10) = 0",
                            "bcm_port_discard_set(0, 0x4000001, 1) = -3"}));
}

}  // namespace
