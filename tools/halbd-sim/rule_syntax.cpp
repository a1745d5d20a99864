#include "rule_syntax.h"

#include <cstdio>
#include <string>

#include "line_reader.h"

namespace halbdsim {

const char* const kRuleSyntaxHelp =
    "RULE: [match [outer TAG] [inner TAG]] OPERATION [outer TAG] [inner TAG]\n"
    "OPERATION: add, replace, add-replace, replace-replace, unknown or op N\n"
    "TAG: VLAN [tpid TPID] [prio PRIORITY] (unset: VLAN 0, TPID 0 and priority 15, unused)";

namespace {

using vlanxlate::Operation;
using vlanxlate::VlanTag;

const Choices kOperations = {
    {"add", static_cast<long long>(Operation::Add)},
    {"replace", static_cast<long long>(Operation::Replace)},
    {"add-replace", static_cast<long long>(Operation::AddReplace)},
    {"replace-replace", static_cast<long long>(Operation::ReplaceReplace)},
    {"unknown", static_cast<long long>(Operation::Unknown)},
};

VlanTag ParseTag(Arguments& args, const std::string& where) {
  VlanTag tag;
  tag.vlanId = ParseNumber<uint16_t>(args.Take(where + " VLAN"), where + " VLAN");
  if (args.TakeKeyword({"tpid"})) {
    tag.tpid = ParseNumber<uint16_t>(args.Take(where + " TPID"), where + " TPID");
  }
  if (args.TakeKeyword({"prio"})) {
    tag.priority = ParsePriority(args.Take(where + " priority"), where + " priority");
  }
  return tag;
}

// Reads "outer TAG" and "inner TAG" in any order, each at most once. Returns which were given.
std::pair<bool, bool> ParseTagGroup(Arguments& args, const std::string& part, VlanTag& outer,
                                    VlanTag& inner) {
  bool hasOuter = false;
  bool hasInner = false;
  while (auto position = args.TakeKeyword({"outer", "inner"})) {
    bool& given = *position == "outer" ? hasOuter : hasInner;
    if (given)
      throw ScenarioError(part + " " + *position + " tag given twice");
    given = true;
    (*position == "outer" ? outer : inner) = ParseTag(args, part + " " + *position);
  }
  return {hasOuter, hasInner};
}

Operation ParseOperation(Arguments& args) {
  const std::string word = args.Take("rule operation");
  if (word == "op") {
    // Raw values let a scenario hand the library operations beyond the named ones.
    return static_cast<Operation>(
        ParseNumber<uint32_t>(args.Take("operation value"), "operation value"));
  }
  if (word == "outer" || word == "inner") {
    throw ScenarioError("rule operation expected before the " + word +
                        " tag (match tags follow 'match')");
  }
  return static_cast<Operation>(ParseChoice(word, kOperations, "rule operation"));
}

// Every named operation but Unknown writes the outer tag; its inner tag is written only when
// given a VLAN.
std::vector<std::string> Warnings(const vlanxlate::VlanMapping& rule, bool hasActionOuter) {
  const auto value = static_cast<uint32_t>(rule.operation);
  if (value > static_cast<uint32_t>(Operation::ReplaceReplace)) {
    return {"operation " + std::to_string(value) +
            " is none the library knows: the rule is installed without tag actions and does "
            "nothing"};
  }
  if (rule.operation != Operation::Unknown && !hasActionOuter)
    return {"the rule gives no outer tag to write: it writes VLAN 0"};
  return {};
}

std::string TagText(const VlanTag& tag) {
  std::string text = std::to_string(tag.vlanId);
  if (tag.tpid != VlanTag{}.tpid) {
    char tpid[16];
    std::snprintf(tpid, sizeof tpid, "0x%04x", tag.tpid);
    text += std::string(" tpid ") + tpid;
  }
  if (tag.priority != VlanTag{}.priority)
    text += " prio " + std::to_string(tag.priority);
  return text;
}

bool IsUnused(const VlanTag& tag) {
  return !(tag < VlanTag{}) && !(VlanTag{} < tag);
}

std::string OperationWord(Operation operation) {
  for (const auto& [word, value] : kOperations) {
    if (static_cast<Operation>(value) == operation)
      return word;
  }
  return "op " + std::to_string(static_cast<uint32_t>(operation));
}

}  // namespace

std::string RuleText(const vlanxlate::VlanMapping& rule) {
  std::string text;
  // The text has no words for a match tag that is absent but not at the unused values; the
  // library matches on the presence flags alone, so nothing is lost.
  if (rule.match.hasOuterVlan || rule.match.hasInnerVlan) {
    text = "match";
    if (rule.match.hasOuterVlan)
      text += " outer " + TagText(rule.match.outerVlanTag);
    if (rule.match.hasInnerVlan)
      text += " inner " + TagText(rule.match.innerVlanTag);
    text += " ";
  }
  text += OperationWord(rule.operation);
  const bool writesOuter =
      rule.operation != Operation::Unknown &&
      static_cast<uint32_t>(rule.operation) <= static_cast<uint32_t>(Operation::ReplaceReplace);
  if (writesOuter || !IsUnused(rule.action.outerVlanTag))
    text += " outer " + TagText(rule.action.outerVlanTag);
  if (!IsUnused(rule.action.innerVlanTag))
    text += " inner " + TagText(rule.action.innerVlanTag);
  return text;
}

vlanxlate::VlanMapping ParseRule(Arguments& args, std::vector<std::string>* warnings) {
  vlanxlate::VlanMapping rule;
  if (args.TakeKeyword({"match"})) {
    auto [hasOuter, hasInner] =
        ParseTagGroup(args, "match", rule.match.outerVlanTag, rule.match.innerVlanTag);
    if (!hasOuter && !hasInner)
      throw ScenarioError("match needs an outer or an inner tag");
    rule.match.hasOuterVlan = hasOuter;
    rule.match.hasInnerVlan = hasInner;
  }
  rule.operation = ParseOperation(args);
  const bool hasActionOuter =
      ParseTagGroup(args, "action", rule.action.outerVlanTag, rule.action.innerVlanTag).first;
  args.ExpectEnd();
  if (warnings != nullptr) {
    for (std::string& warning : Warnings(rule, hasActionOuter))
      warnings->push_back(std::move(warning));
  }
  return rule;
}

}  // namespace halbdsim
