// The small universe that the fault sweep, the bad-input table and the fuzzer drive: a few ports,
// LAGs, VLANs and rules with valid and invalid values, the one interpreter of operations on it
// (universe.cpp), and the driver that checks after each operation (driver.cpp).
#ifndef HALBD_TESTS_RELIABILITY_UNIVERSE_H
#define HALBD_TESTS_RELIABILITY_UNIVERSE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hal_bcm_bridge_domain.h"
#include "hal_bcm_bridge_port.h"
#include "vlan_xlate.h"

namespace reliability {

// In the fuzzer's input order, which the seed corpus depends on; arguments in universe.cpp.
enum OpKind : uint8_t {
  kAddMember,
  kDelMember,
  kDelAllMembers,
  kIsMember,
  kGetMembers,
  kAddProperty,
  kRemoveProperty,
  kSetNativeVlan,
  kSetPrio,
  kSetQinQ,
  kSetTpid,
  kSetInnerTpid,
  kSetFrameType,
  kBlock,
  kAddRule,
  kDeleteRule,
  kCreateLag,
  kJoinLag,
  kLeaveLag,
  kDeleteLag,
  kFault,  // the next operation's first call of an SDK function fails with a code
  kOpKindCount
};

// Its arguments index the value tables, wrapping around, so that any four bytes make one.
struct Op {
  uint8_t kind, a = 0, b = 0, c = 0;
};

// Table indices, for the operations written by hand.
enum Interface : uint8_t { P1, P2, P3, P4, kRemotePort, kUnknownPort, L1, L2, kUnknownLag };
enum Vlan : uint8_t { V10, V20, V30, kAbsentVlan };  // 30 has no replication group, 4000 no VLAN
enum Rule : uint8_t {
  kReplace100,        // outer 100 -> 200
  kAdd101,            // outer 101, push 201 with priority 5
  kInnerOnly102,      // inner 102 -> 202
  kDouble103,         // outer 103 + inner 13 -> 203 / 23
  kAddReplace104,     // outer 104 -> 204 over inner 24
  kUnknownOperation,  // outer 105, operation 0
  kInvalidOperation,  // outer 106, operation 7
  kReplace100Again,   // outer 100 -> 300: the entry of kReplace100 with another action
  kReplace107Tpid,    // outer 107 -> 207 with TPID 0x88a8 and priority 3
  kRuleCount
};
enum Flag : uint8_t { kOff, kOn, kUntagged = kOff, kTagged = kOn };
enum NativeVlanValue : uint8_t { kNative10, kNative20, kNative0, kNoNative, kNative4096 };
enum PcpValue : uint8_t { kPcp3, kPcp0, kPcp7, kPcp8 };
enum QinQValue : uint8_t { kQinQOn, kQinQOff, kQinQMode2 };
enum TpidValue : uint8_t { kTpid88a8, kTpid8100, kTpid9100 };
enum FrameTypeValue : uint8_t { kTaggedOnly, kUntaggedOnly, kAllFrames, kFrameType7 };
enum PropertyValue : uint8_t { kDhcp, kIgmp, kProperty2, kPropertyMinus1 };
enum DhcpValue : uint8_t { kDhcpToCpu, kDhcpDrop, kDhcpBoth, kDhcpOtherBit };
enum StageValue : uint8_t { kIngress, kEgress, kStage2 };
enum ClientValue : uint8_t { kStlp, kStlpTrailingBlank, kStlpUpperCase };

// A generic failure, the one code that some paths take as "nothing there", and a code beyond the
// SDK's table of texts.
inline constexpr int kFaultCodes[] = {BCM_E_INTERNAL, BCM_E_NOT_FOUND, -25};

limid_t InterfaceId(uint8_t index);
limid_t LagId(uint8_t index);  // lag1 or lag2
unsigned short VlanNumber(uint8_t index);
const vlanxlate::VlanMapping& RuleAt(uint8_t index);
int LocalPortOf(limid_t port);  // chip port of eth1/1..eth1/4, -1 for the others
std::string SdkFunction(uint8_t index);
// "join lag1 eth1/3", "add-rule eth1/1 stage 0 rule #0", ...
std::string Describe(const Op& op);

struct Outcome {
  bool skipped = false;  // no caller would ask this in the current state
  bool failed = false;   // -1, or a LAG client that did not handle the event
  bool threw = false;
  bool outOfRange = false;  // what was thrown is a std::out_of_range
  std::string exception;
};

// Both services, registered with one LAG orchestrator on first use. They are process-wide
// singletons, so Reset() empties their books instead of building new ones.
HalBcmBridgePort& Port();
HalBcmBridgeDomain& Domain();
// A clean platform holding the universe (LAGs created, no members) and empty books.
void Reset();
Outcome Apply(const Op& op);
const limid_t* LagOf(limid_t port);  // the LAG that lists a port, if any

// A fault planned for a run: the SDK call with this index (counted from the run's start), the nth
// call of its function, fails with rc. Every operation of the run succeeds without it, so the
// faulty operation is checked in full.
struct Injection {
  size_t callIndex;
  std::string function;
  int nth;
  int rc;
};

struct RunResult {
  bool allSucceeded = true;  // every operation was made and succeeded
  bool faultHit = false;
  size_t checks = 0;
  std::vector<std::string> violations;
};

// Runs the operations on a fresh universe, with the fault if one is planned, and checks after
// each one. A kFault operation arms a fault for the next operation's first call of its function.
RunResult RunOps(const std::vector<Op>& ops, const std::optional<Injection>& planned = {});
// The fuzzer's input: every four bytes are one operation (kind, then the three arguments), cut at
// 64 operations so that a run stays short and the fuzzer tries many.
std::vector<Op> DecodeOps(const uint8_t* data, size_t size);

}  // namespace reliability

#endif  // HALBD_TESTS_RELIABILITY_UNIVERSE_H
