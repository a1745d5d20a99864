// Every SDK call of every scenario fails in turn, with each of a few codes. After each run the
// failing operation has reported its failure, nothing but the documented exceptions escaped, and
// the books and the chip still agree wherever the library promises it.
#include <gmock/gmock.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "sim/sim_platform.h"
#include "universe.h"

namespace reliability {
namespace {

using ::testing::IsEmpty;

// Realistic configurations of a switch; each operation succeeds on a chip without faults. The
// fuzzer's seed corpus (fuzz/corpus) holds the same operations.
struct Scenario {
  const char* name;
  std::vector<Op> ops;
};
const Scenario kScenarios[] = {
    {"access ports",
     {Op{kAddMember, V10, P1, kUntagged}, Op{kAddMember, V10, P2, kUntagged},
      Op{kAddMember, V10, P3, kTagged}, Op{kAddMember, V20, P3, kTagged},
      Op{kAddMember, V30, P1, kTagged}, Op{kAddMember, V20, kRemotePort, kTagged},
      Op{kSetNativeVlan, P1, kNative10}, Op{kSetNativeVlan, P2, kNative10}, Op{kSetPrio, P1, kPcp3},
      Op{kSetFrameType, P3, kTaggedOnly}, Op{kSetTpid, P3, kTpid8100}, Op{kIsMember, V10, P1},
      Op{kGetMembers, V10}, Op{kDelMember, V10, P2}, Op{kSetNativeVlan, P2, kNoNative},
      Op{kDelMember, V30, P1}, Op{kDelMember, V20, kRemotePort}}},
    {"LAG uplink in several VLANs, members joining and leaving",
     {Op{kJoinLag, L1, P1}, Op{kJoinLag, L1, P2}, Op{kAddMember, V10, L1, kTagged},
      Op{kAddMember, V20, L1, kTagged}, Op{kAddMember, V30, L1, kUntagged},
      Op{kAddMember, V10, P3, kUntagged}, Op{kJoinLag, L1, P3}, Op{kLeaveLag, L1, P1},
      Op{kDelMember, V20, L1}, Op{kJoinLag, L1, P1}, Op{kGetMembers, V10}, Op{kLeaveLag, L1, P2},
      Op{kDeleteLag, L1}}},
    {"Q-in-Q port with ingress and egress rules",
     {Op{kAddRule, P1, kIngress, kReplace100}, Op{kAddRule, P1, kIngress, kAdd101},
      Op{kAddRule, P1, kEgress, kReplace100}, Op{kAddRule, P1, kEgress, kReplace107Tpid},
      Op{kSetQinQ, P1, kQinQOn}, Op{kAddRule, P1, kIngress, kAddReplace104},
      Op{kSetQinQ, P1, kQinQOff}, Op{kDeleteRule, P1, kIngress, kReplace100},
      Op{kSetQinQ, P1, kQinQOn}, Op{kDeleteRule, P1, kIngress, kAdd101},
      Op{kDeleteRule, P1, kEgress, kReplace100}, Op{kAddRule, P2, kIngress, kDouble103},
      Op{kAddRule, P2, kIngress, kInnerOnly102}, Op{kDeleteRule, P2, kIngress, kDouble103}}},
    {"Q-in-Q LAG with rules, a port with rules of its own joining",
     {Op{kJoinLag, L2, P3}, Op{kAddRule, L2, kIngress, kReplace100},
      Op{kAddRule, L2, kEgress, kReplace100}, Op{kSetQinQ, L2, kQinQOn},
      Op{kAddRule, P4, kIngress, kInnerOnly102}, Op{kAddRule, P4, kEgress, kReplace107Tpid},
      Op{kJoinLag, L2, P4}, Op{kAddRule, L2, kIngress, kAdd101}, Op{kSetQinQ, L2, kQinQOff},
      Op{kLeaveLag, L2, P3}, Op{kDeleteRule, L2, kIngress, kReplace100},
      Op{kAddRule, P3, kEgress, kReplace107Tpid}, Op{kDeleteLag, L2}}},
    {"blocking and acceptable frame types",
     {Op{kBlock, P1, kOn, kStlp}, Op{kSetFrameType, P1, kTaggedOnly}, Op{kBlock, P1, kOff, kStlp},
      Op{kSetFrameType, L1, kUntaggedOnly}, Op{kBlock, P2, kOn, kStlp}, Op{kJoinLag, L1, P2},
      Op{kJoinLag, L1, P1}, Op{kSetFrameType, L1, kFrameType7}, Op{kLeaveLag, L1, P2},
      Op{kBlock, P2, kOff, kStlp}, Op{kSetFrameType, P2, kAllFrames}}},
    {"LAG attributes carried to joining ports",
     {Op{kSetTpid, L2, kTpid88a8}, Op{kSetNativeVlan, L2, kNative20}, Op{kSetPrio, L2, kPcp3},
      Op{kSetFrameType, L2, kTaggedOnly}, Op{kJoinLag, L2, P1}, Op{kJoinLag, L2, P2},
      Op{kSetTpid, L2, kTpid9100}, Op{kSetNativeVlan, L2, kNoNative}, Op{kSetPrio, L2, kPcp0},
      Op{kSetInnerTpid, P1, kTpid9100}, Op{kLeaveLag, L2, P1}, Op{kDeleteLag, L2}}},
    {"VLAN properties, clearing a VLAN",
     {Op{kAddProperty, V10, kDhcp, kDhcpToCpu}, Op{kAddProperty, V10, kDhcp, kDhcpDrop},
      Op{kRemoveProperty, V10, kDhcp, kDhcpToCpu}, Op{kRemoveProperty, V20, kIgmp, kDhcpToCpu},
      Op{kAddProperty, V20, kIgmp, kDhcpToCpu}, Op{kAddProperty, V30, kDhcp, kDhcpBoth},
      Op{kAddMember, V20, P1, kTagged}, Op{kAddMember, V20, P2, kUntagged}, Op{kDelAllMembers, V20},
      Op{kIsMember, V20, P1}, Op{kDelAllMembers, V30}}},
};

TEST(FaultSweep, EveryFailingChipCallIsReportedAndBooksAndChipStayInStep) {
  std::vector<std::string> failures;
  size_t points = 0;
  size_t checks = 0;
  for (const Scenario& scenario : kScenarios) {
    const RunResult clean = RunOps(scenario.ops);
    ASSERT_TRUE(clean.allSucceeded) << scenario.name;
    ASSERT_THAT(clean.violations, IsEmpty()) << scenario.name;
    for (const sim::LogRecord& record : sim::halLog().Records())  // nothing above information
      ASSERT_FALSE(record.isError || record.levelOrCode < 6)
          << scenario.name << ": " << record.text;

    const std::vector<sim::SdkCall> calls = sim::chip().Trace();
    std::map<std::string, int> seen;
    for (size_t index = 0; index < calls.size(); ++index) {
      const std::string& function = calls[index].function;
      const int nth = ++seen[function];
      for (const int rc : kFaultCodes) {
        const RunResult run = RunOps(scenario.ops, Injection{index, function, nth, rc});
        const std::string where = std::string(scenario.name) + ", call " + std::to_string(index) +
                                  " " + function + " = " + std::to_string(rc) + ": ";
        if (!run.faultHit)
          failures.push_back(where + "the fault hit no call");
        for (const std::string& violation : run.violations)
          failures.push_back(where + violation);
        checks += run.checks;
      }
    }
    points += calls.size();
    checks += clean.checks;
    std::printf("[ sweep    ] %-60s %2zu operations, %3zu SDK calls\n", scenario.name,
                scenario.ops.size(), calls.size());
  }
  std::printf(
      "[ sweep    ] %zu scenarios, %zu injection points x %zu codes = %zu faulty runs, "
      "%zu checks\n",
      std::size(kScenarios), points, std::size(kFaultCodes), points * std::size(kFaultCodes),
      checks);
  if (failures.size() > 25)
    failures.resize(25);
  EXPECT_THAT(failures, IsEmpty());
}

}  // namespace
}  // namespace reliability
