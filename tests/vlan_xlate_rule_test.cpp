// The VLAN mapping rule as a value: its ordering and its text form.
#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "vlan_xlate.h"

namespace {

using vlanxlate::Operation;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

std::string Text(const VlanMapping& rule) {
  std::ostringstream os;
  os << rule;
  return os.str();
}

VlanMapping ReplaceOuter100With200() {
  VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = VlanTag{100, 0x8100, 15};
  rule.operation = Operation::Replace;
  rule.action.outerVlanTag = VlanTag{200, 0, 15};
  return rule;
}

TEST(VlanMappingText, RendersTheElevenLinesWithoutFinalNewline) {
  EXPECT_EQ(Text(ReplaceOuter100With200()),
            "Match: {\n"
            "  Outer VLAN: true\n"
            "  Outer VLAN Tag: { VLAN Id: 100 / TPID: 0x8100 / Priority: Unused }\n"
            "  Inner VLAN: false\n"
            "  Inner VLAN Tag: { VLAN Id: 0 / TPID: Unused / Priority: Unused }\n"
            "}\n"
            "Operation: Replace\n"
            "Action: {\n"
            "  Outer VLAN Tag: { VLAN Id: 200 / TPID: Unused / Priority: Unused }\n"
            "  Inner VLAN Tag: { VLAN Id: 0 / TPID: Unused / Priority: Unused }\n"
            "}");
}

TEST(VlanMappingText, TagFieldsPrintTheirValueOrUnused) {
  struct Case {
    VlanTag tag;
    const char* line;
  };
  const Case cases[] = {
      {{0, 0, 15}, "VLAN Id: 0 / TPID: Unused / Priority: Unused"},
      {{4095, 0x88A8, 0}, "VLAN Id: 4095 / TPID: 0x88a8 / Priority: 0"},
      {{7, 0x0001, 7}, "VLAN Id: 7 / TPID: 0x0001 / Priority: 7"},
      {{65535, 0xffff, 255}, "VLAN Id: 65535 / TPID: 0xffff / Priority: 255"},
  };
  for (const Case& c : cases) {
    VlanMapping rule;
    rule.action.innerVlanTag = c.tag;
    const std::string expected = std::string("  Inner VLAN Tag: { ") + c.line + " }\n}";
    const std::string text = Text(rule);
    EXPECT_EQ(text.substr(text.size() - expected.size()), expected) << c.line;
  }
}

TEST(VlanMappingText, OperationsPrintTheirNameAndLargeValuesInvalid) {
  const std::pair<uint32_t, const char*> cases[] = {
      {0, "Unknown"},        {1, "Add"},     {2, "Replace"}, {3, "AddReplace"},
      {4, "ReplaceReplace"}, {5, "Invalid"}, {7, "Invalid"}, {0xffffffff, "Invalid"},
  };
  for (const auto& [value, name] : cases) {
    VlanMapping rule;
    rule.operation = static_cast<Operation>(value);
    EXPECT_NE(Text(rule).find(std::string("\nOperation: ") + name + "\n"), std::string::npos)
        << value;
  }
}

TEST(VlanMappingText, PresenceFlagsPrintAsWordsAndLeaveBoolalphaOff) {
  VlanMapping rule;
  rule.match.hasInnerVlan = true;
  std::ostringstream os;
  os << std::boolalpha << rule << ' ' << true;
  const std::string text = os.str();
  EXPECT_NE(text.find("  Outer VLAN: false\n"), std::string::npos);
  EXPECT_NE(text.find("  Inner VLAN: true\n"), std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 3), "} 1");
}

// Each case differs from the one before it in exactly one field, in ascending order of weight:
// every field decides when all earlier ones are equal, absent tags included.
TEST(VlanMappingOrder, EveryFieldDecidesInDeclarationOrder) {
  using Change = std::function<void(VlanMapping&)>;
  const std::pair<const char*, Change> lessToGreater[] = {
      {"match.hasOuterVlan", [](VlanMapping& r) { r.match.hasOuterVlan = true; }},
      {"match.outerVlanTag", [](VlanMapping& r) { r.match.outerVlanTag.vlanId = 1; }},
      {"match.hasInnerVlan", [](VlanMapping& r) { r.match.hasInnerVlan = true; }},
      {"match.innerVlanTag", [](VlanMapping& r) { r.match.innerVlanTag.tpid = 1; }},
      {"operation", [](VlanMapping& r) { r.operation = Operation::Add; }},
      {"action.outerVlanTag", [](VlanMapping& r) { r.action.outerVlanTag.priority = 16; }},
      {"action.innerVlanTag", [](VlanMapping& r) { r.action.innerVlanTag.vlanId = 1; }},
  };
  for (size_t field = 0; field < std::size(lessToGreater); ++field) {
    VlanMapping lower;
    // The fields after the deciding one pull the other way and must not matter.
    for (size_t later = field + 1; later < std::size(lessToGreater); ++later) {
      lessToGreater[later].second(lower);
    }
    VlanMapping higher;
    lessToGreater[field].second(higher);
    EXPECT_TRUE(lower < higher) << lessToGreater[field].first;
    EXPECT_FALSE(higher < lower) << lessToGreater[field].first;
  }
}

TEST(VlanMappingOrder, TagsCompareVlanThenTpidThenPriorityUnsigned) {
  const std::pair<VlanTag, VlanTag> lessToGreater[] = {
      {{1, 0xffff, 255}, {2, 0, 0}},
      {{1, 0x8100, 255}, {1, 0x88a8, 0}},
      {{1, 0x8100, 7}, {1, 0x8100, 200}},
      {{0x7fff, 0, 0}, {0x8000, 0, 0}},
  };
  for (const auto& [lower, higher] : lessToGreater) {
    EXPECT_TRUE(lower < higher);
    EXPECT_FALSE(higher < lower);
  }
  EXPECT_FALSE((VlanTag{5, 6, 7} < VlanTag{5, 6, 7}));
}

TEST(VlanMappingOrder, SetKeepsRulesDifferingOnlyInAnAbsentTag) {
  VlanMapping first = ReplaceOuter100With200();
  VlanMapping second = first;
  second.match.innerVlanTag.priority = 3;  // the inner tag is not matched
  std::set<VlanMapping> rules{first, second, first};
  EXPECT_EQ(rules.size(), 2u);
  EXPECT_EQ(std::set<VlanMapping>({first, first}).size(), 1u);
}

}  // namespace
