// The small universe that the fault sweep and the fuzzer drive (ports, LAGs,
// VLANs and rules with valid and invalid values) and the driver that runs operations on it,
// checking after each one what the library promises.
#ifndef HALBD_TESTS_RELIABILITY_UNIVERSE_H
#define HALBD_TESTS_RELIABILITY_UNIVERSE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/sim_lag_orchestrator.h"

namespace reliability {

// Every four bytes of a fuzzer input or a scenario are one operation: its kind, then arguments
// that index the value tables of universe.cpp, wrapping around. The kinds are in input order.
// Inputs kept in the tree write each kind and table index below its count, so that a kind or a
// table row added later leaves their meaning as it was.
// clang-format off
enum OpKind : uint8_t {
  kAddMember, kDelMember, kDelAllMembers, kIsMember, kGetMembers, kAddProperty, kRemoveProperty,
  kSetNativeVlan, kSetPrio, kSetQinQ, kSetTpid, kSetInnerTpid, kSetFrameType, kBlock, kAddRule,
  kDeleteRule, kCreateLag, kJoinLag, kLeaveLag, kDeleteLag,
  kFault,  // the next operation's first call of an SDK function fails with a code
  kListMembers, kRegisterClient, kDeregisterClient,
  kChipMode,  // the chip reports VLAN members as module gports, or not; before any call, its kind
  kLogThrows,  // the HAL's logging callback throws on its next message
  kForeignMember,  // another program puts a chip port that no interface names into a VLAN
  kOpKindCount
};
// eth1/6 (kGportOnly) is in the gport table, not in the port table.
enum Interface : uint8_t {
  P1, P2, P3, P4, kRemotePort, kUnknownPort, L1, L2, kUnknownLag, kGportOnly, L3, P7
};
// clang-format on
struct Op {
  uint8_t kind, a = 0, b = 0, c = 0;
};

// A generic failure, the code that some paths take as "nothing there", one beyond the SDK's texts.
inline constexpr int kFaultCodes[] = {-1, -7, -25};

// A planned fault: the SDK call with this index from the run's start, the nth call of its
// function, fails with rc.
struct Injection {
  size_t callIndex;
  std::string function;
  int nth;
  int rc;
};

struct RunResult {
  bool allSucceeded = true;
  size_t checks = 0;
  std::vector<std::string> violations;
};

// The LAG orchestrator both services register with on first use, and emptying their books
// (rules, attributes, memberships, VLAN clients): the services are process-wide singletons.
std::shared_ptr<sim::LagOrchestratorSim> Lags();
void ClearServiceBooks();

// Runs the operations on a fresh universe, with the fault if one is planned, checking after each.
RunResult RunOps(const std::vector<Op>& ops, const std::optional<Injection>& planned = {});
std::vector<Op> DecodeOps(const std::vector<uint8_t>& bytes);  // at most 64 operations
std::string Describe(const Op& op);

}  // namespace reliability

#endif  // HALBD_TESTS_RELIABILITY_UNIVERSE_H
