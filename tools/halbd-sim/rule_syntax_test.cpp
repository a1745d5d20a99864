#include "rule_syntax.h"

#include <gtest/gtest.h>

#include <string>

#include "line_reader.h"

namespace halbdsim {
namespace {

// Tags read VLAN/TPID/priority; a match tag is prefixed by its presence flag.
std::string Describe(const vlanxlate::VlanTag& tag) {
  return std::to_string(tag.vlanId) + "/" + std::to_string(tag.tpid) + "/" +
         std::to_string(tag.priority);
}

std::string Describe(const vlanxlate::VlanMapping& rule) {
  return "match " + std::to_string(rule.match.hasOuterVlan) + ":" +
         Describe(rule.match.outerVlanTag) + " " + std::to_string(rule.match.hasInnerVlan) + ":" +
         Describe(rule.match.innerVlanTag) + " op " +
         std::to_string(static_cast<uint32_t>(rule.operation)) + " action " +
         Describe(rule.action.outerVlanTag) + " " + Describe(rule.action.innerVlanTag);
}

// The parsed rule in full, or the message it is refused with. The text form that show lags and
// saved configurations write must read back to the same rule.
std::string Outcome(const std::string& text) {
  try {
    Arguments args(SplitWords(text));
    const vlanxlate::VlanMapping rule = ParseRule(args);
    Arguments written(SplitWords(RuleText(rule)));
    const std::string reread = Describe(ParseRule(written));
    return reread == Describe(rule) ? reread : RuleText(rule) + " reads back as " + reread;
  } catch (const ScenarioError& error) {
    return error.what();
  }
}

TEST(RuleSyntax, ParsesToTheRuleItNamesOrRefusesNamingThePart) {
  const struct {
    const char* text;
    const char* outcome;
  } cases[] = {
      {"match outer 100 replace outer 200",
       "match 1:100/0/15 0:0/0/15 op 2 action 200/0/15 0/0/15"},
      {"add outer 300", "match 0:0/0/15 0:0/0/15 op 1 action 300/0/15 0/0/15"},
      {"match inner 10 outer 100 tpid 0x8100 prio 3 replace-replace outer 200 tpid 0x88a8 "
       "inner 20 prio 5",
       "match 1:100/33024/3 1:10/0/15 op 4 action 200/34984/15 20/0/5"},
      {"match outer 1 add-replace inner 2 outer 3",
       "match 1:1/0/15 0:0/0/15 op 3 action 3/0/15 2/0/15"},
      {"match outer 5 unknown", "match 1:5/0/15 0:0/0/15 op 0 action 0/0/15 0/0/15"},
      {"unknown inner 7 tpid 0x9100", "match 0:0/0/15 0:0/0/15 op 0 action 0/0/15 7/37120/15"},
      // Raw operation values reach the library as they are, beyond the named ones.
      {"match outer 5 op 7", "match 1:5/0/15 0:0/0/15 op 7 action 0/0/15 0/0/15"},
      {"match outer 4095 prio 0 replace outer 0",
       "match 1:4095/0/0 0:0/0/15 op 2 action 0/0/15 0/0/15"},
      {"", "missing rule operation"},
      {"match replace outer 2", "match needs an outer or an inner tag"},
      {"match outer 1 outer 2 replace", "match outer tag given twice"},
      {"match outer 1 replace inner 2 inner 3", "action inner tag given twice"},
      {"outer 100 replace outer 200",
       "rule operation expected before the outer tag (match tags follow 'match')"},
      {"match outer 70000 replace", "match outer VLAN out of range (0 to 65535): 70000"},
      {"match outer 1 swap",
       "rule operation must be add, replace, add-replace, replace-replace or unknown: 'swap'"},
      {"match outer 1 replace outer 2 prio 300",
       "action outer priority out of range (0 to 7): 300"},
      {"match outer 1 replace outer 2 tpid", "missing action outer TPID"},
      {"match outer 1 replace outer", "missing action outer VLAN"},
      {"match outer 1 op", "missing operation value"},
      {"match outer 1 replace outer 2 extra", "unexpected argument 'extra'"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Outcome(c.text), c.outcome) << c.text;
}

}  // namespace
}  // namespace halbdsim
