#include "runner.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>

#include "commands.h"
#include "completion.h"
#include "sim/sim_platform.h"

namespace halbdsim {
namespace {

// A session whose output and errors are kept; one per test process, like the services.
class RunnerTest : public ::testing::Test {
 protected:
  int Run(const std::string& scenario, bool interactive = false) {
    std::istringstream in(scenario);
    LineReader reader(in, "test.scn", nullptr);
    return RunScenario(session_, reader, interactive, err_);
  }

  std::ostringstream out_;
  std::ostringstream err_;
  Session session_{out_};
};

// Declares eth1/1 and VLAN 10 and makes no chip call and no log line.
const std::string kPrelude = "port eth1/1 local 1\nvlan 10\n";
const std::string kPreludeOutput =
    "> port eth1/1 local 1\n  gport 0x4000001\n> vlan 10\n  broadcast group 0x100000a\n";

struct BadLine {
  const char* line;
  const char* message;
};

void PrintTo(const BadLine& bad, std::ostream* os) {
  *os << '"' << bad.line << '"';
}

class BadLineTest : public RunnerTest, public ::testing::WithParamInterface<BadLine> {};

TEST_P(BadLineTest, IsReportedWithItsPlaceAndStopsTheRunBeforeAnythingOfItRuns) {
  const int status = Run(kPrelude + GetParam().line + "\nSetTpid eth1/1 0x88a8\n");

  EXPECT_EQ(status, 1);
  EXPECT_EQ(err_.str(), std::string("test.scn:3: ") + GetParam().message + "\n");
  EXPECT_EQ(out_.str(), kPreludeOutput);
  EXPECT_TRUE(sim::chip().Trace().empty());
  EXPECT_TRUE(sim::halLog().Records().empty());
  EXPECT_EQ(session_.Declared().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, BadLineTest,
    ::testing::Values(
        BadLine{"frobnicate eth1/1", "unknown command 'frobnicate' (help lists the commands)"},
        BadLine{"SetTpid eth1/9 0x88a8", "unknown interface eth1/9: declare it with 'port'"},
        BadLine{"addMember vlan10 lag6 tagged", "unknown interface lag6: declare it with 'lag'"},
        BadLine{"SetTpid ethernet1 0x88a8",
                "id: 'ethernet1' is not an interface name (eth<slot>/<port>, lag<n> or vlan<n>)"},
        BadLine{"SetPrio4Untagged eth1/1 256", "pcp out of range (0 to 255): 256"},
        BadLine{"SetNativeVlan eth1/1 10 20", "unexpected argument '20'"},
        BadLine{"addMember eth1/1 eth1/1 tagged", "bridgeDomain must be a bridge domain: eth1/1"},
        BadLine{"addMember vlan10 vlan10 tagged", "intf must be a port or a LAG: vlan10"},
        BadLine{"addMember vlan10 eth1/1 maybe",
                "tagged must be tagged, untagged, true or false: 'maybe'"},
        BadLine{"AddVlanMappingRule eth1/1 sideways replace outer 1",
                "stage must be ingress or egress or a number: 'sideways'"},
        BadLine{"fail bcm_port_frob_set 1 -4", "unknown SDK function 'bcm_port_frob_set'"},
        BadLine{"fail bcm_port_tpid_set 0 -4", "count out of range (1 to 2147483647): 0"},
        BadLine{"refuse 10 nobody both", "no client 10 nobody is registered"},
        BadLine{"memberAdded lag6 eth1/1", "unknown interface lag6: declare it with 'lag'"},
        BadLine{"port eth1/1 local 1", "eth1/1 is already declared"},
        BadLine{"port eth1/2 local 2 extra", "unexpected argument 'extra'"},
        BadLine{"port eth1/2 trunk 2", "gport kind must be local, module or none: 'trunk'"},
        BadLine{"port lag2 local 2", "port name must read eth<slot>/<port>: 'lag2'"},
        BadLine{"vlan 10", "VLAN 10 already exists on the chip"},
        BadLine{"vlan 4096", "vlan out of range (0 to 4095): 4096"},
        BadLine{"vlan 10-4096", "vlan out of range (0 to 4095): 4096"},
        BadLine{"vlan 10-", "bad number for vlan: ''"},
        BadLine{"addMember vlan9-3 eth1/1 tagged", "vlan range runs backwards: 9-3"},
        BadLine{"trace maybe", "trace must be on or off: 'maybe'"},
        BadLine{"vlan 0",
                "the chip refuses to create VLAN 0: Invalid parameter (-4); VLAN 0 "
                "marks priority-tagged frames"},
        BadLine{"show",
                "show needs one of: ports, port-vlans, vlans, ingress, egress, lags, "
                "member-table, trace, running-config"},
        BadLine{"show vlans 20-10", "vlan range runs backwards: 20-10"},
        BadLine{"save /nonexistent/saved.scn",
                "cannot write /nonexistent/saved.scn: No such file or directory"},
        BadLine{"show ports eth1/7", "unknown interface eth1/7: declare it with 'port'"},
        BadLine{"frame vlan10", "port must be a port: vlan10"},
        BadLine{"frame eth1/1 tagged", "frame must be untagged or tag TPID VLAN PCP: 'tagged'"},
        BadLine{"frame eth1/1 tag 0x8100 10", "missing pcp"},
        BadLine{"frame eth1/1 tag 0x8100 10 8", "pcp out of range (0 to 7): 8"},
        BadLine{"frame eth1/1 tag 0x10000 10 0", "tpid out of range (0 to 65535): 0x10000"},
        BadLine{"frame eth1/1 tag 0x88a8 10 0 tag 0x8100 20 0 tag 0x8100 30 0",
                "a frame carries at most two tags"},
        BadLine{"frame eth1/1 untagged tag 0x8100 10 0", "unexpected argument 'tag'"},
        BadLine{"frame eth1/1 --trace untagged", "unexpected argument 'untagged'"},
        BadLine{"frame eth1/1 hex ffffffffffff020000000001 8100",
                "too short to hold its tags: 14 bytes, 18 needed"},
        BadLine{"frame eth1/1 hex ffffff", "too short for an Ethernet header: 3 bytes, 14 needed"},
        BadLine{"frame eth1/1 hex 0g", "frame bytes must be hex digits: '0g'"}));

TEST_F(RunnerTest, FrameNeedsAPortOfThisChipInThePortTable) {
  const int status =
      Run("port eth1/5 none\nport eth1/6 module 3 6\nframe eth1/5\nframe eth1/6\n", true);

  EXPECT_EQ(status, 1);
  EXPECT_EQ(err_.str(),
            "eth1/5 is not in the port table: no chip port receives for it\n"
            "eth1/6 is gport 0x8001806, not a port of this chip\n");
}

TEST_F(RunnerTest, InteractiveRunReportsAMistakePlainlyAndGoesOnWithoutEcho) {
  const int status = Run("port eth1/1 local 1\nbogus\nSetTpid eth1/1 0x88a8\n", true);

  EXPECT_EQ(status, 1);
  EXPECT_EQ(err_.str(), "unknown command 'bogus' (help lists the commands)\n");
  EXPECT_EQ(out_.str(), "  gport 0x4000001\n  result: 0\n");
  EXPECT_EQ(sim::chip().Port(1).outerTpid, 0x88a8);
}

TEST_F(RunnerTest, QuitStopsReading) {
  EXPECT_EQ(Run("quit\nbogus\n"), 0);
  EXPECT_EQ(err_.str(), "");
}

TEST_F(RunnerTest, ShowTraceListsEachCallOnce) {
  Run(kPrelude + "SetTpid eth1/1 0x88a8\nshow trace\nshow trace\n");

  EXPECT_NE(out_.str().find("> show trace\n  bcm_port_tpid_set(0, 0x4000001, 0x88a8) = 0\n"
                            "> show trace\n"),
            std::string::npos)
      << out_.str();
}

TEST_F(RunnerTest, AnExceptionLeavingTheLibraryIsItsOutcome) {
  Run("lag lag5 5\nlagDeleted lag5\nSetTpid lag5 0x88a8\n");

  EXPECT_NE(out_.str().find("> SetTpid lag5 0x88a8\n  exception std::out_of_range: "),
            std::string::npos)
      << out_.str();
}

TEST_F(RunnerTest, ImpossibleSetUpAndLagChangesAreRefusedWholeAndOddRulesWarned) {
  const int status =
      Run("port eth1/1 local 1\nport eth1/2 local 2\nlag lag5 5\nlag lag6 6\n"
          "memberAdded lag5 eth1/1\nport eth1/3 module 0 1\nlag lag7 5\nmemberAdded lag5 eth1/1\n"
          "memberAdded lag6 eth1/1\nmemberDeleted lag6 eth1/2\n"
          "AddVlanMappingRule eth1/2 ingress match outer 100 replace\n"
          "AddVlanMappingRule eth1/2 ingress match outer 200 op 99 outer 7\n",
          true);

  EXPECT_EQ(status, 1);
  EXPECT_EQ(err_.str(),
            "chip port 1 is already eth1/1\n"
            "trunk 5 is already lag5\n"
            "eth1/1 is already a member of lag5\n"
            "eth1/1 is a member of lag5: it leaves lag5 (member deleted) before it "
            "joins lag6 (member added)\n"
            "eth1/2 is not a member of lag6\n");
  EXPECT_EQ(sim::common().LagOf(sim::EthernetPort(1, 1)), sim::Lag(5));
  EXPECT_NE(out_.str().find("  warning: the rule gives no outer tag to write: it writes VLAN 0\n"
                            "  result: 0\n  warning: operation 99 is none the library knows: "
                            "the rule is installed without tag actions and does nothing\n"
                            "  result: 0\n"),
            std::string::npos)
      << out_.str();
}

TEST_F(RunnerTest, EventsOnADeletedLagAskForItToBeDeclaredAgain) {
  EXPECT_EQ(Run("port eth1/1 local 1\nlag lag5 5\nlagDeleted lag5\nmemberAdded lag5 eth1/1\n"), 1);
  EXPECT_EQ(err_.str(), "test.scn:4: lag5 was deleted: declare it again with 'lag'\n");
}

// eth1/1 untagged in VLAN 10 with native VLAN 10, eth1/2 tagged; a frame from eth1/1 sent.
const std::string kChecked = kPrelude +
                             "port eth1/2 local 2\naddMember vlan10 eth1/1 untagged\n"
                             "SetNativeVlan eth1/1 10\naddMember vlan10 eth1/2 tagged\n"
                             "frame eth1/1\n";

struct ExpectCase {
  const char* line;
  const char* failure;  // empty when the expect holds
};

void PrintTo(const ExpectCase& c, std::ostream* os) {
  *os << '"' << c.line << '"';
}

class ExpectTest : public RunnerTest, public ::testing::WithParamInterface<ExpectCase> {};

TEST_P(ExpectTest, HoldsOrSaysWhatWasExpectedAndWhatIsWithItsPlace) {
  const int status = Run(kChecked + GetParam().line + "\n");

  EXPECT_EQ(status, 0);  // a failed expect does not stop the run
  const std::string failure = GetParam().failure;
  EXPECT_EQ(err_.str(), failure.empty() ? "" : "test.scn:8: expect failed: " + failure + "\n");
  EXPECT_EQ(session_.FailedExpects(), failure.empty() ? 0 : 1);
  std::ostringstream summary;  // under --strict, an expect that did not hold fails the run alone
  EXPECT_EQ(FinishRun(session_, 0, true, summary), failure.empty() ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    Checks, ExpectTest,
    ::testing::Values(ExpectCase{"expect frame eth1/2 [0x8100 10 p0]", ""},
                      ExpectCase{"expect frame eth1/2 untagged",
                                 "frame to eth1/2: expected untagged, is "
                                 "[0x8100 10 p0]"},
                      ExpectCase{"expect frame eth1/1 none", ""}, ExpectCase{"expect copies 1", ""},
                      ExpectCase{"expect dropped", "frame: expected dropped, is 1 copy"},
                      ExpectCase{"expect member vlan10 eth1/1 untagged", ""},
                      ExpectCase{"expect member vlan10 eth1/2", ""},
                      ExpectCase{"expect member vlan10 eth1/2 untagged",
                                 "member vlan10 eth1/2: expected untagged, is tagged"},
                      ExpectCase{"expect ports eth1/1 native 10", ""},
                      ExpectCase{"expect ports eth1/2 native 10",
                                 "ports eth1/2 native: expected 10, is 1"},
                      ExpectCase{"expect vlans vlan10 tagged eth1/2", ""},
                      ExpectCase{"expect port-vlans eth1/1 native yes", ""},
                      ExpectCase{"expect ports eth1/9 native 1",
                                 "ports eth1/9 native: expected 1, is no row "
                                 "eth1/9"},
                      ExpectCase{"expect result -1", "result: expected -1, is 0"}));

TEST_F(RunnerTest, AnExpectedFailureIsNotCountedUnderStrict) {
  const std::string failing = kPrelude + "fail bcm_port_tpid_set 2 -4\nSetTpid eth1/1 0x88a8\n";
  Run(failing + "expect result -1\nSetTpid eth1/1 0x88a8\nexpect result 0\n");

  EXPECT_EQ(session_.UnexpectedFailures(), 1);
  EXPECT_EQ(session_.FailedExpects(), 1);
  std::ostringstream summary;
  EXPECT_EQ(FinishRun(session_, 0, true, summary), 1);
  EXPECT_EQ(summary.str(), "halbd-sim: strict: 1 operation failed, 1 expect did not hold\n");
  EXPECT_EQ(FinishRun(session_, 0, false, summary), 0);
}

TEST_F(RunnerTest, ARangeIsCheckedWholeBeforeAnyOfItRuns) {
  EXPECT_EQ(Run(kPrelude + "vlan 11-12\naddMember vlan10-12 eth1/1 tagged\n"
                           "delMember vlan11-12 eth1/1\nvlan 12-14\nvlan 15\n"),
            1);
  EXPECT_EQ(err_.str(), "test.scn:6: VLAN 12 already exists on the chip\n");
  EXPECT_EQ(sim::chip().Vlans(), (std::vector<bcm_vlan_t>{10, 11, 12}));
  EXPECT_EQ(sim::chip().Vlan(10).members.size(), 1u);
  EXPECT_TRUE(sim::chip().Vlan(11).members.empty());
}

TEST_F(RunnerTest, ShowFiltersRowsAndGivesJsonByColumn) {
  Run(kChecked + "vlan 20\nshow vlans 20 --json\nshow port-vlans eth1/2 --json\n");

  const std::string out = out_.str();
  const size_t vlans = out.find('{', out.find("> show vlans 20 --json"));
  const size_t portVlans = out.find("> show port-vlans");
  const nlohmann::json vlanRows = nlohmann::json::parse(out.substr(vlans, portVlans - vlans));
  ASSERT_EQ(vlanRows.at("vlans").size(), 1u);
  EXPECT_EQ(vlanRows["vlans"][0].at("vlan"), 20);
  EXPECT_EQ(vlanRows["vlans"][0].at("untagged"), nlohmann::json::array());
  const nlohmann::json portRows = nlohmann::json::parse(out.substr(out.find('{', portVlans)));
  EXPECT_EQ(portRows, nlohmann::json::parse(R"({"port-vlans": [{"port": "eth1/2", "vlan": 10,
                                                "tagging": "tagged", "native": false}]})"));
}

TEST_F(RunnerTest, SourceRunsAFileThatStopsAtItsMistakeWhileTheShellGoesOn) {
  const std::string file = ::testing::TempDir() + "sourced.scn";
  std::ofstream(file) << "vlan 20\nvlan twenty\nvlan 30\n";

  EXPECT_EQ(Run(kPrelude + "source " + file + "\nsource /nonexistent\nvlan 40\n", true), 1);
  EXPECT_EQ(err_.str(), file + ":2: bad number for vlan: 'twenty'\n" +
                            "cannot read /nonexistent: No such file or directory\n");
  EXPECT_EQ(sim::chip().Vlans(), (std::vector<bcm_vlan_t>{10, 20, 40}));
}

TEST_F(RunnerTest, HelpExplainsACommandAndWrapsTheListToTheWidth) {
  Run("help addmember\nhelp\n", true);

  EXPECT_EQ(out_.str().rfind("usage: addMember <bridgeDomain> <intf> <tagged> [attributes]\n", 0),
            0u);
  EXPECT_NE(out_.str().find("example: addMember vlan10-20 eth1/1 tagged\n"), std::string::npos);
  std::istringstream lines(out_.str());
  for (std::string line; std::getline(lines, line);)
    EXPECT_LE(line.size(), 80u) << line;
}

TEST_F(RunnerTest, TabCompletesByPositionWithoutRegardToCase) {
  Run(kPrelude + "lag lag3 3\n");
  using Words = std::vector<std::string>;
  const struct {
    const char* typed;
    Words completions;
  } cases[] = {
      {"addm", {"addMember"}},
      {"show p", {"port-vlans", "ports"}},
      {"SetTpid ", {"eth1/1", "lag3"}},
      {"memberAdded lag3 ", {"eth1/1"}},
      {"addMember v", {"vlan10"}},
      {"addMember vlan10 eth1/1 ", {"tagged", "untagged"}},
      {"fail bcm_port_dt", {"bcm_port_dtag_mode_set"}},
      {"AddVlanMappingRule eth1/1 in", {"ingress"}},
      {"AddVlanMappingRule eth1/1 ingress match outer 10 re", {"replace", "replace-replace"}},
      {"help getM", {"getMembers"}},
      {"frobnicate ", {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Completions(session_, c.typed), c.completions) << c.typed;
}

// The shell on a real terminal: tmux gives it a pseudo-terminal and types into it.
class ShellTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifndef HALBD_HAVE_LIBEDIT
    GTEST_SKIP() << "built without libedit: the shell has no line editing to test";
#endif
    if (Shell("tmux -V >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "tmux is not installed: the terminal test of the shell is skipped";
    socket_ = "halbd-shell-" + std::to_string(getpid());
    const std::string history = ::testing::TempDir() + socket_ + ".history";
    Tmux("new-session -d -s shell -x 120 -y 40 'HALBD_HISTORY=" + history + " " + HALBD_SIM_BINARY +
         "; sleep 10'");
  }
  void TearDown() override {
    Tmux("kill-server");
  }

  // The test is the only thread of its process.
  static int Shell(const std::string& command) {
    return std::system(command.c_str());  // NOLINT(concurrency-mt-unsafe)
  }
  int Tmux(const std::string& arguments) {
    return Shell("tmux -L " + socket_ + " " + arguments + " >/dev/null 2>&1");
  }
  void Keys(const std::string& keys) {
    Tmux("send-keys -t shell " + keys);
  }
  std::string Screen() {
    const std::string file = ::testing::TempDir() + socket_ + ".screen";
    Shell("tmux -L " + socket_ + " capture-pane -t shell -p > " + file);
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  bool ShellRuns() {
    return Shell("pgrep -f '^" + std::string(HALBD_SIM_BINARY) + "$' >/dev/null") == 0;
  }
  // The shell answers when the machine lets it: poll for up to 20 s rather than guess a delay.
  template <typename Condition>
  static bool Eventually(Condition holds) {
    for (int tries = 0; tries < 400; ++tries, std::this_thread::sleep_for(kPoll))
      if (holds())
        return true;
    return false;
  }
  bool ScreenShows(const std::string& text) {
    return Eventually([&] { return Screen().find(text) != std::string::npos; });
  }
  static constexpr std::chrono::milliseconds kPoll{50};

  std::string socket_;
};

TEST_F(ShellTest, CompletesRecallsAbandonsAndEnds) {
  ASSERT_TRUE(ScreenShows("halbd-sim>")) << Screen();
  Keys("'port eth1/1 local 1' Enter");
  ASSERT_TRUE(ScreenShows("gport 0x4000001\nhalbd-sim>")) << Screen();
  Keys("addM Tab");
  // The screen is read without trailing blanks.
  EXPECT_TRUE(ScreenShows("halbd-sim> addMember\n")) << Screen();
  Keys("C-c");
  EXPECT_TRUE(ScreenShows("halbd-sim> addMember ^C\nhalbd-sim>\n")) << Screen();
  EXPECT_TRUE(ShellRuns());
  Keys("Up");
  EXPECT_TRUE(
      ScreenShows("halbd-sim> port eth1/1 local 1\n"
                  "  gport 0x4000001\n"
                  "halbd-sim> addMember ^C\n"
                  "halbd-sim> port eth1/1 local 1\n"))
      << Screen();
  Keys("C-u C-d");
  EXPECT_TRUE(Eventually([&] { return !ShellRuns(); }));
}

}  // namespace
}  // namespace halbdsim
