// The VLAN mapping rule as a value: its text form and its ordering.
#include <functional>
#include <iterator>

#include "service_fixtures.h"

namespace {

using vlanxlate::Operation;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

// Eleven lines without a final newline; large values fit their fields, every operation has its
// name, and the flags are printed as words and leave the stream printing bools as numbers.
TEST(VlanMappingText, RendersEveryFieldOnElevenLines) {
  VlanMapping rule = ReplaceOuter(100, 200);
  rule.match.hasInnerVlan = true;
  rule.match.innerVlanTag = VlanTag{7, 0x0001, 7};
  rule.action.innerVlanTag = VlanTag{65535, 0x88A8, 255};
  EXPECT_EQ(Text(rule),
            "Match: {\n"
            "  Outer VLAN: true\n"
            "  Outer VLAN Tag: { VLAN Id: 100 / TPID: 0x8100 / Priority: Unused }\n"
            "  Inner VLAN: true\n"
            "  Inner VLAN Tag: { VLAN Id: 7 / TPID: 0x0001 / Priority: 7 }\n"
            "}\n"
            "Operation: Replace\n"
            "Action: {\n"
            "  Outer VLAN Tag: { VLAN Id: 200 / TPID: Unused / Priority: Unused }\n"
            "  Inner VLAN Tag: { VLAN Id: 65535 / TPID: 0x88a8 / Priority: 255 }\n"
            "}");
  const std::pair<uint32_t, const char*> operations[] = {
      {0, "Unknown"},        {1, "Add"},     {2, "Replace"}, {3, "AddReplace"},
      {4, "ReplaceReplace"}, {5, "Invalid"}, {7, "Invalid"}, {0xffffffff, "Invalid"}};
  for (const auto& [value, name] : operations) {
    rule.operation = static_cast<Operation>(value);
    std::ostringstream os;
    os << std::boolalpha << rule << ' ' << true;
    EXPECT_NE(os.str().find(std::string("\nOperation: ") + name + "\n"), std::string::npos)
        << value;
    EXPECT_THAT(os.str(), testing::EndsWith("} 1"));
  }
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
    for (size_t later = field + 1; later < std::size(lessToGreater); ++later)
      lessToGreater[later].second(lower);
    VlanMapping higher;
    lessToGreater[field].second(higher);
    EXPECT_TRUE(lower < higher) << lessToGreater[field].first;
    EXPECT_FALSE(higher < lower) << lessToGreater[field].first;
  }
}

TEST(VlanMappingOrder, TagsCompareVlanThenTpidThenPriorityUnsigned) {
  const std::pair<VlanTag, VlanTag> lessToGreater[] = {{{1, 0xffff, 255}, {2, 0, 0}},
                                                       {{1, 0x8100, 255}, {1, 0x88a8, 0}},
                                                       {{1, 0x8100, 7}, {1, 0x8100, 200}},
                                                       {{0x7fff, 0, 0}, {0x8000, 0, 0}}};
  for (const auto& [lower, higher] : lessToGreater) {
    EXPECT_TRUE(lower < higher);
    EXPECT_FALSE(higher < lower);
  }
  EXPECT_FALSE((VlanTag{5, 6, 7} < VlanTag{5, 6, 7}));
}

}  // namespace
