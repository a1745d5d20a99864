// LAG events as the LAG orchestrator raises them: a port joining a LAG takes on the LAG's
// attributes, a leaving port returns to the defaults, a deleted LAG leaves nothing behind.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bridge_port_inspector.h"
#include "hal_bcm_bridge_port.h"
#include "hal_bridge_port_itf.h"
#include "sim/sim_lag_orchestrator.h"
#include "sim/sim_platform.h"
#include "sim_test.h"

namespace {

using Lines = std::vector<std::string>;
using ::testing::IsEmpty;

const limid_t kLag = sim::Lag(1);
const limid_t kUnknownLag = sim::Lag(9);

limid_t Port(int p) {
  return sim::EthernetPort(1, p);
}

vlanxlate::VlanMapping ReplaceOuter(uint16_t from, uint16_t to) {
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag.vlanId = from;
  rule.operation = vlanxlate::Operation::Replace;
  rule.action.outerVlanTag.vlanId = to;
  return rule;
}

// What eth1/1 goes through when it joins lag1 without attributes, or leaves any LAG.
Lines DefaultAttributeCalls() {
  return {"bcm_port_discard_set(0, 0x4000001, 0) = 0",
          "bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = 0",
          "bcm_port_untagged_priority_set(0, 0x4000001, 0) = 0",
          "bcm_port_dtag_mode_set(0, 0x4000001, 0) = 0",
          "bcm_vlan_control_port_set(0, 1, 14, 7) = 0",
          "bcm_vlan_control_port_set(0, 1, 15, 8) = 0",
          "bcm_port_tpid_set(0, 0x4000001, 0x8100) = 0"};
}

Lines With(Lines lines, const std::string& last) {
  lines.push_back(last);
  return lines;
}

class BridgePortLagEvents : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    for (int p = 1; p <= 3; ++p)
      sim::common().AddPort(Port(p), sim::LocalGport(p));
    sim::common().AddLag(kLag, 5);
    service = HalBcmBridgePort::GetInstance(lags);
  }

  // The bridge port is the only client here: its answer is the one answer.
  static bool Handled(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
    EXPECT_EQ(answers.size(), 1u);
    return !answers.empty() && answers.front().handled;
  }

  bool Join(int p) { return Handled(lags->AddMember(kLag, Port(p))); }
  bool Leave(int p) { return Handled(lags->DeleteMember(kLag, Port(p))); }

  HalBcmBridgePortInspector Books() { return HalBcmBridgePortInspector(*service); }

  std::shared_ptr<sim::LagOrchestratorSim> lags = std::make_shared<sim::LagOrchestratorSim>();
  HalBcmBridgePort* service = nullptr;
};

// ---- Joining ---------------------------------------------------------------------------------

TEST_F(BridgePortLagEvents, PortJoiningLagWithoutAttributesGetsTheDefaultsAndTheLagClass) {
  EXPECT_TRUE(Join(1));

  // Class 122: trunk 5 below 127, on a chip with packet-priority actions.
  EXPECT_EQ(Trace(), With(DefaultAttributeCalls(), "bcm_port_class_set(0, 1, 3, 122) = 0"));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(BridgePortLagEvents, PortJoiningTakesTheLagsAttributesAndKeepsItsOwnBooks) {
  service->SetTpid(Port(1), 0x9100);
  service->SetNativeVlan(kLag, 20);
  service->SetPrio4Untagged(kLag, 3);
  service->SetVlanQinQ(kLag, HAL_BP_QINQ_ENABLE);
  service->SetTpid(kLag, 0x88a8);
  service->SetAcceptableFrameType(kLag, HAL_BP_ADMIT_ONLY_TAGGED);
  ClearRecords();

  EXPECT_TRUE(Join(1));

  EXPECT_EQ(Trace(), (Lines{"bcm_port_discard_set(0, 0x4000001, 2) = 0",
                            "bcm_port_untagged_vlan_set(0, 0x4000001, 20) = 0",
                            "bcm_port_untagged_priority_set(0, 0x4000001, 3) = 0",
                            "bcm_port_dtag_mode_set(0, 0x4000001, 2) = 0",
                            "bcm_vlan_control_port_set(0, 1, 14, 8) = 0",
                            "bcm_vlan_control_port_set(0, 1, 15, 9) = 0",
                            "bcm_port_tpid_set(0, 0x4000001, 0x88a8) = 0",
                            "bcm_port_class_set(0, 1, 3, 122) = 0"}));
  EXPECT_EQ(Books().acceptableFrameTypes().at(Port(1)), HAL_BP_ADMIT_ONLY_TAGGED);
  EXPECT_EQ(service->GetTpid(Port(1)), 0x9100);
  EXPECT_EQ(Books().qinqPorts(), std::set<limid_t>{kLag});
}

TEST_F(BridgePortLagEvents, PortLeavingReturnsToTheDefaultsNotToWhatItHadBefore) {
  service->SetTpid(Port(1), 0x9100);
  service->SetAcceptableFrameType(Port(1), HAL_BP_ADMIT_ONLY_UNTAGGED);
  service->SetNativeVlan(kLag, 20);
  Join(1);
  ClearRecords();

  EXPECT_TRUE(Leave(1));

  EXPECT_EQ(Trace(), With(DefaultAttributeCalls(), "bcm_port_class_set(0, 1, 3, 1) = 0"));
  EXPECT_EQ(Books().acceptableFrameTypes().at(Port(1)), HAL_BP_ADMIT_ALL_FRAMES);
  EXPECT_EQ(service->GetTpid(Port(1)), 0x9100);
}

TEST_F(BridgePortLagEvents, BlockedPortStaysBlockedThroughJoiningAndLeaving) {
  BlockPort(Port(1), true, "hal-stlp");
  service->SetAcceptableFrameType(kLag, HAL_BP_ADMIT_ONLY_TAGGED);
  ClearRecords();

  Join(1);
  Leave(1);

  EXPECT_EQ(Trace("bcm_port_discard_set"), (Lines{"bcm_port_discard_set(0, 0x4000001, 1) = 0",
                                                  "bcm_port_discard_set(0, 0x4000001, 1) = 0"}));
  EXPECT_TRUE(Books().blockedPorts().at(Port(1)));
}

// ---- The joining port's own translation rules
// ------------------------------------------------------

struct OwnRulesCase {
  const char* name;
  bool memberQinq;
  // The ingress entry as the member's tag layout keyed it.
  std::string ingressDelete;
};

void PrintTo(const OwnRulesCase& c, std::ostream* os) {
  *os << c.name;
}

class JoiningPortWithOwnRules : public BridgePortLagEvents,
                                public ::testing::WithParamInterface<OwnRulesCase> {};

TEST_P(JoiningPortWithOwnRules, TakesThemOffTheChipFirstButKeepsThemStored) {
  if (GetParam().memberQinq)
    service->SetVlanQinQ(Port(1), HAL_BP_QINQ_ENABLE);
  ASSERT_EQ(service->AddVlanMappingRule(Port(1), vlanxlate::Stage::Ingress, ReplaceOuter(100, 200)),
            0);
  ASSERT_EQ(service->AddVlanMappingRule(Port(1), vlanxlate::Stage::Egress, ReplaceOuter(300, 400)),
            0);
  ClearRecords();

  EXPECT_TRUE(Join(1));

  const Lines trace = Trace();
  ASSERT_GE(trace.size(), 3u);
  EXPECT_EQ(Lines(trace.begin(), trace.begin() + 3),
            (Lines{GetParam().ingressDelete, "bcm_port_class_get(0, 0x4000001, 3) = 0",
                   "bcm_vlan_translate_egress_action_delete(0, 1, 300, 0) = 0"}));
  EXPECT_THAT(sim::chip().IngressTable(), IsEmpty());
  EXPECT_EQ(Books().ingressVlanMappings().at(Port(1)).size(), 1u);
  EXPECT_EQ(Books().egressVlanMappings().at(Port(1)).size(), 1u);
  EXPECT_EQ(Books().qinqPorts().count(Port(1)), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    BridgePortMemberTagLayouts, JoiningPortWithOwnRules,
    ::testing::Values(OwnRulesCase{"SingleTagged", false,
                                   "bcm_vlan_translate_action_delete(0, 0x4000001, 8, 100, 0) = 0"},
                      OwnRulesCase{
                          "QinQ", true,
                          "bcm_vlan_translate_action_delete(0, 0x4000001, 9, 0, 100) = 0"}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Failures never stop a handler
// ---------------------------------------------------------------

struct FailingStepCase {
  const char* name;
  bool joining;
  const char* failingFunction;
  std::string log;
};

void PrintTo(const FailingStepCase& c, std::ostream* os) {
  *os << c.name;
}

class FailingStep : public BridgePortLagEvents,
                    public ::testing::WithParamInterface<FailingStepCase> {};

// The functions a member event calls; the lookup keys follow only a successful double-tag write.
std::vector<std::string> ExpectedFunctions(const char* failingFunction) {
  std::vector<std::string> functions{
      "bcm_port_discard_set",   "bcm_port_untagged_vlan_set", "bcm_port_untagged_priority_set",
      "bcm_port_dtag_mode_set", "bcm_vlan_control_port_set",  "bcm_vlan_control_port_set",
      "bcm_port_tpid_set",      "bcm_port_class_set"};
  if (std::string(failingFunction) == "bcm_port_dtag_mode_set") {
    functions.erase(std::remove(functions.begin(), functions.end(), "bcm_vlan_control_port_set"),
                    functions.end());
  }
  return functions;
}

TEST_P(FailingStep, RunsEveryOtherStepAndAnswersFalse) {
  if (!GetParam().joining)
    Join(1);
  ClearRecords();
  sim::chip().FailNext(GetParam().failingFunction, 1, BCM_E_PARAM);

  EXPECT_FALSE(GetParam().joining ? Join(1) : Leave(1));

  std::vector<std::string> called;
  for (const sim::SdkCall& call : sim::chip().Trace())
    called.push_back(call.function);
  EXPECT_EQ(called, ExpectedFunctions(GetParam().failingFunction));
  EXPECT_EQ(LogLines(), Lines{GetParam().log});
}

INSTANTIATE_TEST_SUITE_P(
    BridgePortMemberEvents, FailingStep,
    ::testing::Values(
        FailingStepCase{"JoinDiscard", true, "bcm_port_discard_set",
                        "log(3): [HAL-BP] Error setting eth1/1 port value: 0 - Invalid parameter."},
        FailingStepCase{
            "JoinQinQ", true, "bcm_port_dtag_mode_set",
            "log(3): SetVlanQinQByPort: Error setting eth1/1 (0x4000001) dtag: Invalid parameter."},
        FailingStepCase{"JoinClass", true, "bcm_port_class_set",
                        "error(-4): SetEgressVlanXlateClassIdForLag() failed to set BCM Class ID "
                        "for eth1/1 (0x1): Invalid parameter"},
        FailingStepCase{
            "LeaveTpid", false, "bcm_port_tpid_set",
            "error(-4): [HAL-BP] Error setting eth1/1 (0x4000001) outer TPID: Invalid parameter."},
        FailingStepCase{"LeaveClass", false, "bcm_port_class_set",
                        "error(-4): ResetEgressVlanXlateClassId() failed to set BCM Class ID for "
                        "eth1/1 (0x1): Invalid parameter"}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Deleting a LAG
// ------------------------------------------------------------------------------

TEST_F(BridgePortLagEvents, DeletingLagResetsEveryMemberEvenAfterAFailure) {
  Join(1);
  Join(2);
  Join(3);
  ClearRecords();
  sim::chip().FailNext("bcm_port_untagged_vlan_set", 1, BCM_E_PARAM);

  EXPECT_FALSE(Handled(lags->DeleteLag(kLag)));

  EXPECT_EQ(Trace("bcm_port_untagged_vlan_set"),
            (Lines{"bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = -4",
                   "bcm_port_untagged_vlan_set(0, 0x4000002, 4095) = 0",
                   "bcm_port_untagged_vlan_set(0, 0x4000003, 4095) = 0"}));
  EXPECT_EQ(Trace("bcm_port_class_set"),
            (Lines{"bcm_port_class_set(0, 1, 3, 1) = 0", "bcm_port_class_set(0, 2, 3, 2) = 0",
                   "bcm_port_class_set(0, 3, 3, 3) = 0"}));
}

TEST_F(BridgePortLagEvents, DeletingEmptyLagWithoutAttributesNeedsNoChipCall) {
  EXPECT_TRUE(Handled(lags->DeleteLag(kLag)));
  EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(BridgePortLagEvents, DeletingLagRemovesItsRulesAndForgetsItsAttributes) {
  // Q-in-Q first: the rules must leave the chip with the layout they were installed under.
  service->SetVlanQinQ(kLag, HAL_BP_QINQ_ENABLE);
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Ingress, ReplaceOuter(100, 200));
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Ingress, ReplaceOuter(101, 201));
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Egress, ReplaceOuter(300, 400));
  service->SetNativeVlan(kLag, 20);
  service->SetPrio4Untagged(kLag, 3);
  service->SetTpid(kLag, 0x88a8);
  service->SetAcceptableFrameType(kLag, HAL_BP_ADMIT_ONLY_TAGGED);
  Books().blockedPorts()[kLag] = true;

  EXPECT_TRUE(Handled(lags->DeleteLag(kLag)));

  EXPECT_THAT(sim::chip().IngressTable(), IsEmpty());
  EXPECT_THAT(sim::chip().EgressTable(), IsEmpty());
  EXPECT_THAT(Books().ingressVlanMappings().at(kLag), IsEmpty());
  EXPECT_THAT(Books().egressVlanMappings().at(kLag), IsEmpty());
  EXPECT_THAT(Books().acceptableFrameTypes(), IsEmpty());
  EXPECT_THAT(Books().blockedPorts(), IsEmpty());
  EXPECT_THAT(Books().qinqPorts(), IsEmpty());
  EXPECT_THAT(Books().nativeVlans(), IsEmpty());
  EXPECT_THAT(Books().untaggedPrios(), IsEmpty());
  EXPECT_THAT(Books().tpids(), IsEmpty());
}

TEST_F(BridgePortLagEvents, RuleTheChipKeepsStaysStoredWithoutChangingTheAnswer) {
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Ingress, ReplaceOuter(100, 200));
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Ingress, ReplaceOuter(101, 201));
  sim::chip().FailNext("bcm_vlan_translate_action_delete", 1, BCM_E_PARAM);

  EXPECT_TRUE(Handled(lags->DeleteLag(kLag)));

  const std::set<vlanxlate::VlanMapping>& kept = Books().ingressVlanMappings().at(kLag);
  EXPECT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept.count(ReplaceOuter(100, 200)), 1u);
}

TEST_F(BridgePortLagEvents, DeletingUnknownLagThrowsBeforeTouchingAnything) {
  EXPECT_THROW(service->SetAcceptableFrameType(kUnknownLag, HAL_BP_ADMIT_ONLY_TAGGED),
               std::out_of_range);

  EXPECT_THROW(service->DelLagEvent(kUnknownLag), std::out_of_range);

  EXPECT_EQ(Books().acceptableFrameTypes().count(kUnknownLag), 1u);
}

}  // namespace
