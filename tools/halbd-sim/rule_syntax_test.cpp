#include "rule_syntax.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "line_reader.h"

namespace halbdsim {
namespace {

using vlanxlate::Operation;
using vlanxlate::VlanMapping;
using vlanxlate::VlanTag;

VlanMapping Parse(const std::string& text) {
  Arguments args(SplitWords(text));
  return ParseRule(args);
}

// The rule type's own text form is the library's and not exported, so failures print this.
std::string Describe(const VlanTag& tag) {
  return std::to_string(tag.vlanId) + "/" + std::to_string(tag.tpid) + "/" +
         std::to_string(tag.priority);
}

std::string Describe(const VlanMapping& rule) {
  std::ostringstream text;
  text << "match(" << rule.match.hasOuterVlan << " " << Describe(rule.match.outerVlanTag) << ", "
       << rule.match.hasInnerVlan << " " << Describe(rule.match.innerVlanTag) << ") op "
       << static_cast<uint32_t>(rule.operation) << " action(" << Describe(rule.action.outerVlanTag)
       << ", " << Describe(rule.action.innerVlanTag) << ")";
  return text.str();
}

VlanTag Tag(uint16_t vlan, uint16_t tpid = 0, uint8_t priority = 15) {
  VlanTag tag;
  tag.vlanId = vlan;
  tag.tpid = tpid;
  tag.priority = priority;
  return tag;
}

VlanMapping Rule(bool hasOuter, VlanTag outer, bool hasInner, VlanTag inner, Operation operation,
                 VlanTag actionOuter, VlanTag actionInner = VlanTag{}) {
  VlanMapping rule;
  rule.match.hasOuterVlan = hasOuter;
  rule.match.outerVlanTag = outer;
  rule.match.hasInnerVlan = hasInner;
  rule.match.innerVlanTag = inner;
  rule.operation = operation;
  rule.action.outerVlanTag = actionOuter;
  rule.action.innerVlanTag = actionInner;
  return rule;
}

struct RuleCase {
  const char* text;
  VlanMapping expected;
};

void PrintTo(const RuleCase& c, std::ostream* os) {
  *os << '"' << c.text << '"';
}

class RuleSyntaxTest : public ::testing::TestWithParam<RuleCase> {};

TEST_P(RuleSyntaxTest, ParsesToTheRuleItNames) {
  const VlanMapping parsed = Parse(GetParam().text);
  const bool same = !(parsed < GetParam().expected) && !(GetParam().expected < parsed);
  EXPECT_TRUE(same) << "parsed   " << Describe(parsed) << "\nexpected "
                    << Describe(GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, RuleSyntaxTest,
    ::testing::Values(
        RuleCase{"match outer 100 replace outer 200",
                 Rule(true, Tag(100), false, VlanTag{}, Operation::Replace, Tag(200))},
        // Without a match clause both presence flags stay false.
        RuleCase{"add outer 300",
                 Rule(false, VlanTag{}, false, VlanTag{}, Operation::Add, Tag(300))},
        RuleCase{"match inner 10 outer 100 tpid 0x8100 prio 3 replace-replace outer 200 tpid "
                 "0x88a8 inner 20 prio 5",
                 Rule(true, Tag(100, 0x8100, 3), true, Tag(10), Operation::ReplaceReplace,
                      Tag(200, 0x88a8), Tag(20, 0, 5))},
        RuleCase{"match outer 1 add-replace inner 2 outer 3",
                 Rule(true, Tag(1), false, VlanTag{}, Operation::AddReplace, Tag(3), Tag(2))},
        RuleCase{"match outer 5 unknown",
                 Rule(true, Tag(5), false, VlanTag{}, Operation::Unknown, VlanTag{})},
        // Raw operation values reach the library as they are, beyond the named ones.
        RuleCase{"match outer 5 op 7",
                 Rule(true, Tag(5), false, VlanTag{}, static_cast<Operation>(7), VlanTag{})},
        RuleCase{"match outer 4095 prio 0 replace outer 0",
                 Rule(true, Tag(4095, 0, 0), false, VlanTag{}, Operation::Replace, Tag(0))}));

struct ErrorCase {
  const char* text;
  const char* message;
};

void PrintTo(const ErrorCase& c, std::ostream* os) {
  *os << '"' << c.text << '"';
}

class RuleSyntaxErrorTest : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(RuleSyntaxErrorTest, IsRefusedWithAMessageNamingThePart) {
  try {
    Parse(GetParam().text);
    FAIL() << "accepted: " << GetParam().text;
  } catch (const ScenarioError& error) {
    EXPECT_EQ(error.what(), std::string(GetParam().message));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, RuleSyntaxErrorTest,
    ::testing::Values(
        ErrorCase{"", "missing rule operation"},
        ErrorCase{"match replace outer 2", "match needs an outer or an inner tag"},
        ErrorCase{"match outer 1 outer 2 replace", "match outer tag given twice"},
        ErrorCase{"match outer 1 replace inner 2 inner 3", "action inner tag given twice"},
        ErrorCase{"outer 100 replace outer 200",
                  "rule operation expected before the outer tag (match tags follow 'match')"},
        ErrorCase{"match outer 70000 replace", "match outer VLAN out of range (0 to 65535): 70000"},
        ErrorCase{"match outer 1 swap",
                  "rule operation must be add, replace, add-replace, replace-replace or unknown: "
                  "'swap'"},
        ErrorCase{"match outer 1 replace outer 2 prio 300",
                  "action outer priority out of range (0 to 255): 300"},
        ErrorCase{"match outer 1 replace outer 2 tpid", "missing action outer TPID"},
        ErrorCase{"match outer 1 replace outer", "missing action outer VLAN"},
        ErrorCase{"match outer 1 op", "missing operation value"},
        ErrorCase{"match outer 1 replace outer 2 extra", "unexpected argument 'extra'"}));

}  // namespace
}  // namespace halbdsim
