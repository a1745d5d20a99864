// LAG events as the LAG orchestrator raises them: a port joining a LAG takes on the LAG's
// attributes, a leaving port returns to the defaults, a deleted LAG leaves nothing behind. Both
// services behind one orchestrator, as on the switch, show in the LAG uplink example.

#include "service_fixtures.h"

namespace {

using BridgePortLagEvents = BridgePortTest;

// What eth1/1 goes through when it joins lag1 without attributes, or leaves any LAG, before its
// egress class is set.
const Lines kDefaultAttributeCalls{"bcm_port_discard_set(0, 0x4000001, 0) = 0",
                                   "bcm_port_untagged_vlan_set(0, 0x4000001, 4095) = 0",
                                   "bcm_port_untagged_priority_set(0, 0x4000001, 0) = 0",
                                   "bcm_port_dtag_mode_set(0, 0x4000001, 0) = 0",
                                   "bcm_vlan_control_port_set(0, 1, 14, 7) = 0",
                                   "bcm_vlan_control_port_set(0, 1, 15, 8) = 0",
                                   "bcm_port_tpid_set(0, 0x4000001, 0x8100) = 0"};

Lines With(Lines lines, const std::string& last) {
  lines.push_back(last);
  return lines;
}

// The port's own TPID and frame types are not the LAG's: joining replaces them, leaving returns
// to the defaults, not to what the port had before; blocking outlasts both.
TEST_F(BridgePortLagEvents, PortJoiningTakesTheLagsAttributesAndLeavingTakesTheDefaults) {
  service->SetTpid(Eth(1), 0x9100);
  BlockPort(Eth(2), true, "hal-stlp");
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
  EXPECT_EQ(Books().acceptableFrameTypes().at(Eth(1)), HAL_BP_ADMIT_ONLY_TAGGED);
  EXPECT_EQ(Books().qinqPorts(), std::set<limid_t>{kLag});
  ClearRecords();

  EXPECT_TRUE(Leave(1));
  EXPECT_EQ(Trace(), With(kDefaultAttributeCalls, "bcm_port_class_set(0, 1, 3, 1) = 0"));
  EXPECT_EQ(Books().acceptableFrameTypes().at(Eth(1)), HAL_BP_ADMIT_ALL_FRAMES);
  EXPECT_EQ(service->GetTpid(Eth(1)), 0x9100);  // the books keep the port's own

  EXPECT_TRUE(Join(2));
  EXPECT_TRUE(Leave(2));
  EXPECT_EQ(Trace("bcm_port_discard_set").back(), "bcm_port_discard_set(0, 0x4000002, 1) = 0");
  EXPECT_EQ(sim::chip().Port(2).discardMode, BCM_PORT_DISCARD_ALL);
  EXPECT_TRUE(Books().blockedPorts().at(Eth(2)));
}

// Each rule leaves the chip under the tag layout the member had when it was installed.
TEST_F(BridgePortLagEvents, JoiningPortTakesItsOwnRulesOffTheChipFirstButKeepsThemStored) {
  const std::pair<bool, std::string> cases[] = {{false, "0x4000001, 8, 100, 0"},
                                                {true, "0x4000002, 9, 0, 100"}};
  for (unsigned port : {1, 2}) {
    const auto& [qinq, ingressKey] = cases[port - 1];
    const std::string p = std::to_string(port);
    if (qinq)
      service->SetVlanQinQ(Eth(port), HAL_BP_QINQ_ENABLE);
    service->AddVlanMappingRule(Eth(port), vlanxlate::Stage::Ingress, ReplaceOuter(100, 200));
    service->AddVlanMappingRule(Eth(port), vlanxlate::Stage::Egress, ReplaceOuter(300, 400));
    ClearRecords();

    EXPECT_TRUE(Join(port));

    const Lines trace = Trace();
    EXPECT_EQ(Lines(trace.begin(), trace.begin() + 3),
              (Lines{"bcm_vlan_translate_action_delete(0, " + ingressKey + ") = 0",
                     "bcm_port_class_get(0, 0x400000" + p + ", 3) = 0",
                     "bcm_vlan_translate_egress_action_delete(0, " + p + ", 300, 0) = 0"}));
    EXPECT_THAT(sim::chip().IngressTable(), IsEmpty());
    EXPECT_EQ(Books().ingressVlanMappings().at(Eth(port)).size(), 1u);
    EXPECT_EQ(Books().egressVlanMappings().at(Eth(port)).size(), 1u);
    EXPECT_EQ(Books().qinqPorts().count(Eth(port)), 0u);
  }
}

// Every step runs up to the class, whichever fails; the lookup keys follow only a successful
// double-tag write. A member the port table does not know fails every step.
TEST_F(BridgePortLagEvents, FailingStepDoesNotStopTheOthersButTheAnswerIsFalse) {
  const struct {
    bool joining;
    const char* failingFunction;
    size_t calls;
    Lines log;
  } cases[] = {
      {true,
       "bcm_port_discard_set",
       8,
       {"log(3): [HAL-BP] Error setting eth1/1 port value: 0 - Invalid parameter."}},
      {false,
       "bcm_port_discard_set",
       8,
       {"log(3): [HAL-BP] Error setting eth1/1 port value: 0 - Invalid parameter."}},
      {true,
       "bcm_port_untagged_vlan_set",
       8,
       {"log(3): Error setting eth1/1 (0x4000001) native VLAN: Invalid parameter."}},
      {false,
       "bcm_port_untagged_vlan_set",
       8,
       {"log(3): Error setting eth1/1 (0x4000001) native VLAN: Invalid parameter."}},
      {true,
       "bcm_port_dtag_mode_set",
       6,
       {"log(3): SetVlanQinQByPort: Error setting eth1/1 (0x4000001) dtag: Invalid parameter."}},
      {true,
       "bcm_port_class_set",
       8,
       {"error(-4): SetEgressVlanXlateClassIdForLag() failed to set BCM Class ID for eth1/1 (0x1): "
        "Invalid parameter"}},
      {false,
       "bcm_port_class_set",
       8,
       {"error(-4): ResetEgressVlanXlateClassId() failed to set BCM Class ID for eth1/1 (0x1): "
        "Invalid parameter"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log[0]);
    if (!c.joining)
      Join(1);
    ClearRecords();
    sim::chip().FailNext(c.failingFunction, 1, BCM_E_PARAM);

    EXPECT_FALSE(c.joining ? Join(1) : Leave(1));

    EXPECT_EQ(Trace().size(), c.calls);
    EXPECT_EQ(sim::chip().Trace().back().function, "bcm_port_class_set");
    EXPECT_EQ(LogLines(), c.log);
    if (c.joining)
      Leave(1);
  }
  ClearRecords();
  EXPECT_FALSE(Join(9));
  EXPECT_FALSE(Leave(9));
  EXPECT_THAT(Trace(), IsEmpty());
  const Lines unknown = {
      "log(3): [HAL-BP] Error getting device id port for: eth1/9 -  HAL ID not found.",
      "log(3): Error setting eth1/9 native VLAN id(4095): HAL ID not found.",
      "log(3): Error setting eth1/9 default priority: HAL ID not found.",
      "log(3): SetVlanQinQByPort: Error setting eth1/9 VLAN QinQ mode: HAL ID not found.",
      "log(3): [HAL-BP] Error setting eth1/9 outer TPID: HAL ID not found."};
  EXPECT_EQ(LogLines(), With(unknown,
                             "log(3): SetEgressVlanXlateClassIdForLag() failed to retrieve BCM "
                             "port for eth1/9: HAL ID not found") +
                            With(unknown,
                                 "log(3): ResetEgressVlanXlateClassId() failed to retrieve BCM "
                                 "port for eth1/9: HAL ID not found"));
}

TEST_F(BridgePortLagEvents, JoiningPortsGetTheDefaultsAndADeletedLagResetsEveryMember) {
  EXPECT_TRUE(Join(1));
  // Class 122: trunk 5 below 127, on a chip with packet-priority actions.
  EXPECT_EQ(Trace(), With(kDefaultAttributeCalls, "bcm_port_class_set(0, 1, 3, 122) = 0"));
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

// A rule the chip keeps stays stored, without changing the answer.
TEST_F(BridgePortLagEvents, DeletingLagRemovesItsRulesAndForgetsItsAttributes) {
  // Q-in-Q first: the rules must leave the chip with the layout they were installed under.
  service->SetVlanQinQ(kLag, HAL_BP_QINQ_ENABLE);
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Ingress, ReplaceOuter(100, 200));
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Ingress, ReplaceOuter(101, 201));
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Egress, ReplaceOuter(300, 400));
  service->AddVlanMappingRule(kLag, vlanxlate::Stage::Egress, ReplaceOuter(301, 401));
  service->SetNativeVlan(kLag, 20);
  service->SetPrio4Untagged(kLag, 3);
  service->SetTpid(kLag, 0x88a8);
  service->SetAcceptableFrameType(kLag, HAL_BP_ADMIT_ONLY_TAGGED);
  Books().blockedPorts()[kLag] = true;
  sim::chip().FailNth("bcm_vlan_translate_action_delete", 2, BCM_E_PARAM);
  sim::chip().FailNth("bcm_vlan_translate_egress_action_delete", 1, BCM_E_PARAM);

  EXPECT_TRUE(Handled(lags->DeleteLag(kLag)));

  ASSERT_EQ(sim::chip().IngressTable().size(), 1u);
  EXPECT_EQ(sim::chip().IngressTable().begin()->first.innerVlan, 101);
  ASSERT_EQ(sim::chip().EgressTable().size(), 1u);
  EXPECT_EQ(sim::chip().EgressTable().begin()->first.outerVlan, 300);
  HalBcmBridgePortInspector books = Books();
  EXPECT_EQ(books.ingressVlanMappings().at(kLag).count(ReplaceOuter(101, 201)), 1u);
  EXPECT_EQ(books.egressVlanMappings().at(kLag).count(ReplaceOuter(300, 400)), 1u);
  EXPECT_EQ(std::make_tuple(books.ingressVlanMappings().at(kLag).size(),
                            books.egressVlanMappings().at(kLag).size(),
                            books.acceptableFrameTypes().size(), books.blockedPorts().size(),
                            books.qinqPorts().size(), books.nativeVlans().size(),
                            books.untaggedPrios().size(), books.tpids().size()),
            std::make_tuple(1u, 1u, 0u, 0u, 0u, 0u, 0u, 0u));
}

}  // namespace
