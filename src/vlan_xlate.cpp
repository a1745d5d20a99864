#include "vlan_xlate.h"

#include <cstdio>

namespace vlanxlate {

namespace {

constexpr uint16_t kUnusedTpid = 0;
constexpr uint8_t kUnusedPriority = 15;
constexpr const char* kUnusedText = "Unused";

// Writes "VLAN Id: <id> / TPID: <tpid> / Priority: <priority>". The buffers are bounded: a longer
// line would be cut, never overrun.
void WriteTagLine(std::ostream& os, const VlanTag& tag) {
  char tpid[8];
  char priority[8];
  char line[64];
  std::snprintf(tpid, sizeof tpid, "0x%04x", static_cast<unsigned>(tag.tpid));
  std::snprintf(priority, sizeof priority, "%hhu", tag.priority);
  std::snprintf(line, sizeof line, "VLAN Id: %d / TPID: %s / Priority: %s", tag.vlanId,
                tag.tpid == kUnusedTpid ? kUnusedText : tpid,
                tag.priority == kUnusedPriority ? kUnusedText : priority);
  os << line;
}

void WriteTag(std::ostream& os, const char* label, const VlanTag& tag) {
  os << label << "{ ";
  WriteTagLine(os, tag);
  os << " }" << std::endl;
}

// The flag prints as a word; boolalpha is switched off again so that the caller's later output of
// bools is not affected.
void WriteFlag(std::ostream& os, const char* label, bool flag) {
  os << label << std::boolalpha << flag << std::noboolalpha << std::endl;
}

}  // namespace

const char* OperationName(Operation operation) {
  switch (operation) {
    case Operation::Unknown:
      return "Unknown";
    case Operation::Add:
      return "Add";
    case Operation::Replace:
      return "Replace";
    case Operation::AddReplace:
      return "AddReplace";
    case Operation::ReplaceReplace:
      return "ReplaceReplace";
    default:
      return "Invalid";
  }
}

std::ostream& operator<<(std::ostream& os, const VlanMapping& rule) {
  os << "Match: {" << std::endl;
  WriteFlag(os, "  Outer VLAN: ", rule.match.hasOuterVlan);
  WriteTag(os, "  Outer VLAN Tag: ", rule.match.outerVlanTag);
  WriteFlag(os, "  Inner VLAN: ", rule.match.hasInnerVlan);
  WriteTag(os, "  Inner VLAN Tag: ", rule.match.innerVlanTag);
  os << "}" << std::endl;
  os << "Operation: " << OperationName(rule.operation) << std::endl;
  os << "Action: {" << std::endl;
  WriteTag(os, "  Outer VLAN Tag: ", rule.action.outerVlanTag);
  WriteTag(os, "  Inner VLAN Tag: ", rule.action.innerVlanTag);
  // Log lines append their own text after the rule, so the last line has no line end.
  return os << "}";
}

}  // namespace vlanxlate
