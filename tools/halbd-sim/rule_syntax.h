// The compact text form of a VLAN mapping rule used by scenarios, e.g.
//   match outer 100 replace outer 200
//   match outer 100 inner 10 replace-replace outer 200 tpid 0x88a8 inner 20 prio 3
//
//   rule      := [ "match" tag-group ] operation [ tag-group ]
//   tag-group := any of "outer" tag, "inner" tag, each at most once, in either order
//   tag       := VLAN [ "tpid" TPID ] [ "prio" PRIORITY ]
//   operation := add | replace | add-replace | replace-replace | unknown | op NUMBER
//
// A tag that is not given keeps the rule type's defaults (VLAN 0, TPID 0 and priority 15, the
// "unused" values); a match tag that is given sets the matching presence flag.
#ifndef HALBD_SIM_RULE_SYNTAX_H
#define HALBD_SIM_RULE_SYNTAX_H

#include <string>
#include <vector>

#include "arguments.h"
#include "vlan_xlate.h"

namespace halbdsim {

// Lines of help that summarise the syntax above, without a final newline.
extern const char* const kRuleSyntaxHelp;

// Takes the rest of the arguments as one rule; ScenarioError on any mistake. A rule that the
// library takes but that cannot do what it seems to (an operation that writes a tag with none
// given writes VLAN 0; an operation the library does not know does nothing) adds a line to
// warnings, when given: such rules still reach the library, whose handling of them is the point.
vlanxlate::VlanMapping ParseRule(Arguments& args, std::vector<std::string>* warnings = nullptr);

// The rule in the form above, which ParseRule reads back to the same rule. Tags left at the
// unused values are not written, except the outer tag that a named operation writes.
std::string RuleText(const vlanxlate::VlanMapping& rule);

}  // namespace halbdsim

#endif  // HALBD_SIM_RULE_SYNTAX_H
