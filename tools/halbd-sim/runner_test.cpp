#include "runner.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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
        BadLine{"SetPrio4Untagged eth1/1 256", "pcp out of range (0 to 7): 256"},
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
                "member-table, trace, running-config, fdb, counters"},
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
        BadLine{"frame eth1/1 hex 0g", "frame bytes must be hex digits: '0g'"},
        BadLine{"frame eth1/1 src 02:00:00:00:00",
                "src must be a MAC address such as 02:00:00:00:00:01: '02:00:00:00:00'"},
        BadLine{"frame eth1/1 dhcp igmp", "unexpected argument 'igmp'"},
        BadLine{"show fdb 4096", "vlan out of range (1 to 4095): 4096"},
        BadLine{"fdb flush eth1/9", "unknown interface eth1/9: declare it with 'port'"},
        BadLine{"fdb age -1", "seconds out of range (0 to 1000000): -1"},
        BadLine{"show counters vlan 0", "vlan out of range (1 to 4095): 0"},
        BadLine{"expect fdb 10 02-00-00-00-00-0g eth1/1",
                "mac must be a MAC address such as 02:00:00:00:00:01: '02-00-00-00-00-0g'"},
        BadLine{"tap eth1/9", "unknown interface eth1/9: declare it with 'port'"},
        BadLine{"tap eth1/1 h1 ifname", "missing interface name"},
        BadLine{"tap eth1/1 h1 ifname x y", "unexpected argument 'y'"}));

TEST_F(RunnerTest, QuitStopsReadingAndLeavingTheShellIsNoFailureUnlessStrict) {
  EXPECT_EQ(Run("bogus\nquit\nbogus\n", true), 1);
  EXPECT_EQ(err_.str(), "unknown command 'bogus' (help lists the commands)\n");
  std::ostringstream summary;
  EXPECT_EQ(FinishRun(session_, 1, false, summary, true), 0);
  EXPECT_EQ(FinishRun(session_, 1, true, summary, true), 1);
}

TEST_F(RunnerTest, ShowTraceListsEachCallOnce) {
  Run(kPrelude + "SetTpid eth1/1 0x88a8\nshow trace\nshow trace\nshow trace --json\n");

  // An empty trace is no line of text, and an empty list in JSON.
  EXPECT_NE(out_.str().find("> show trace\n  bcm_port_tpid_set(0, 0x4000001, 0x88a8) = 0\n"
                            "> show trace\n> show trace --json\n"
                            R"({"kind":"table","file":"test.scn","line":6,)"
                            R"("command":"show trace --json","table":"trace","trace":[]})"
                            "\n"),
            std::string::npos)
      << out_.str();
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
  EXPECT_EQ(summary.str(),
            "halbd-sim: strict: 1 operation failed, 1 expect did not hold:\n"
            "  test.scn:6: SetTpid eth1/1 0x88a8 (result -1)\n  test.scn:7: expect result 0\n");
  EXPECT_EQ(FinishRun(session_, 0, false, summary), 0);
}

TEST_F(RunnerTest, ARangeIsCheckedWholeBeforeAnyOfItRuns) {
  EXPECT_EQ(Run(kPrelude + "vlan 11-12\naddMember vlan10-12 eth1/1 tagged\n"
                           "delMember vlan11-12 eth1/1\nvlan 12-14\nvlan 15\n"),
            1);
  EXPECT_EQ(err_.str(), "test.scn:6: VLAN 12 already exists on the chip\n");
  // Each VLAN's result says which VLAN it is for.
  EXPECT_NE(out_.str().find("> addMember vlan10-12 eth1/1 tagged\n  vlan10: result: 0\n"
                            "  vlan11: result: 0\n  vlan12: result: 0\n"),
            std::string::npos)
      << out_.str();
  EXPECT_EQ(sim::chip().Vlans(), (std::vector<bcm_vlan_t>{10, 11, 12}));
  EXPECT_EQ(sim::chip().Vlan(10).members.size(), 1u);
  EXPECT_TRUE(sim::chip().Vlan(11).members.empty());
}

// Whether each key of expected has its value in actual.
bool Holds(const nlohmann::json& actual, const nlohmann::json& expected) {
  for (const auto& [key, value] : expected.items()) {
    if (!actual.contains(key) || actual[key] != value)
      return false;
  }
  return true;
}

// Under --json every line is one object; each record type has its kind and typed values, and
// says which line (and, in a range, which VLAN) it answers.
class JsonTest : public RunnerTest, public ::testing::WithParamInterface<bool> {};

TEST_P(JsonTest, EveryRecordIsOneTypedObjectALineThatNamesItsLine) {
  const bool quiet = GetParam();
  session_.SetJson(true);
  session_.SetQuiet(quiet);
  Run(kChecked +
      "RegisterClient 7 snoop  # follows membership\nvlan 20-21\n"
      "addMember vlan20-21 eth1/2 tagged\nGetTpid eth1/1\nisMember vlan10 eth1/2\n"
      "show vlans 10-20\nshow port-vlans eth1/2 --json\nexpect result -1\n\nhelp show\n");

  std::vector<nlohmann::json> objects;
  std::istringstream lines(out_.str());
  for (std::string line; std::getline(lines, line);) {
    ASSERT_NO_THROW(objects.push_back(nlohmann::json::parse(line))) << line;
    ASSERT_TRUE(objects.back().is_object()) << line;
  }
  const nlohmann::json tag = {{"tpid", 0x8100}, {"vlan", 10}, {"pcp", 0}, {"dei", false}};
  const struct {
    const char* json;
    bool quiet;  // also under --quiet
  } records[] = {
      {R"({"kind": "command", "file": "test.scn", "line": 1, "command": "port eth1/1 local 1"})",
       false},
      {R"({"kind": "port", "line": 1, "port": "eth1/1", "gport": 67108865})", false},
      {R"({"kind": "vlan", "line": 2, "vlan": 10, "broadcast-group": 16777226})", false},
      {R"({"kind": "result", "line": 4, "command": "addMember vlan10 eth1/1 untagged", "rc": 0})",
       true},
      {R"({"kind": "frame-copy", "line": 7, "port": "eth1/2", "frame": "[0x8100 10 p0]"})", true},
      {R"({"kind": "command", "line": 8, "command": "RegisterClient 7 snoop"})", false},
      {R"({"kind": "vlan", "line": 9, "vlan": 21, "broadcast-group": 16777237})", false},
      {R"({"kind": "notification", "line": 10, "vlan": 21, "priority": 7, "client": "snoop",
           "event": "vlan_add", "interface": "eth1/2", "tagged": true, "answer": true})",
       false},
      {R"({"kind": "result", "line": 10, "vlan": 20, "rc": 0})", true},
      {R"({"kind": "result", "line": 10, "vlan": 21, "rc": 0})", true},
      {R"({"kind": "result", "line": 11, "tpid": 33024})", true},
      {R"({"kind": "result", "line": 12, "rc": 0, "member": true, "tagged": true,
           "attributes": 0})",
       true},
      {R"({"kind": "table", "line": 14, "table": "port-vlans", "port-vlans": [
           {"port": "eth1/2", "vlan": 10, "tagging": "tagged", "native": false},
           {"port": "eth1/2", "vlan": 20, "tagging": "tagged", "native": false},
           {"port": "eth1/2", "vlan": 21, "tagging": "tagged", "native": false}]})",
       true},
      {R"({"kind": "expect-failed", "line": 15, "command": "expect result -1",
           "message": "expect failed: result: expected -1, is 0"})",
       true},
      {R"({"kind": "help", "line": 17, "topic": "show"})", true},
  };
  for (const auto& record : records) {
    const nlohmann::json expected = nlohmann::json::parse(record.json);
    const bool found = std::any_of(objects.begin(), objects.end(),
                                   [&](const nlohmann::json& o) { return Holds(o, expected); });
    EXPECT_EQ(found, record.quiet || !quiet) << record.json;
  }
  const auto vlans = std::find_if(objects.begin(), objects.end(), [](const nlohmann::json& o) {
    return o.value("table", "") == "vlans";
  });
  ASSERT_NE(vlans, objects.end());
  ASSERT_EQ((*vlans)["vlans"].size(), 2u);  // the filter keeps rows in their place
  EXPECT_EQ((*vlans)["vlans"][0]["untagged"], nlohmann::json::array({"eth1/1"}));
  EXPECT_EQ((*vlans)["vlans"][1]["untagged"], nlohmann::json::array());
  EXPECT_TRUE(std::any_of(objects.begin(), objects.end(), [&](const nlohmann::json& o) {
    return o.value("kind", "") == "frame-copy" && o["tags"] == nlohmann::json::array({tag});
  }));
  EXPECT_EQ(err_.str(), "test.scn:15: expect failed: result: expected -1, is 0\n");
}

INSTANTIATE_TEST_SUITE_P(AlsoQuiet, JsonTest, ::testing::Bool());

TEST_F(RunnerTest, SourceRunsAFileThatStopsAtItsMistakeWhileTheShellGoesOn) {
  const std::string file = ::testing::TempDir() + "sourced.scn";
  std::ofstream(file) << "vlan 20\nvlan twenty\nvlan 30\n";

  EXPECT_EQ(Run(kPrelude + "source " + file + "\nsource /nonexistent\nvlan 40\n", true), 1);
  EXPECT_EQ(err_.str(), file + ":2: bad number for vlan: 'twenty'\n" +
                            "cannot read /nonexistent: No such file or directory\n");
  EXPECT_EQ(sim::chip().Vlans(), (std::vector<bcm_vlan_t>{10, 20, 40}));
}

// What a command line prints on its standard output.
std::string OutputOf(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");  // NOLINT(cert-env33-c): the tool under test
  char buffer[4096];
  for (size_t n; pipe != nullptr && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    output.append(buffer, n);
  if (pipe != nullptr)
    pclose(pipe);
  return output;
}

TEST_F(RunnerTest, HelpExplainsACommandAFamilyAndWrapsTheListToTheWidth) {
  Run("help addmember\nhelp show\nhelp\n", true);

  EXPECT_EQ(out_.str().rfind("usage: addMember <bridgeDomain> <intf> <tagged> [attributes]\n", 0),
            0u);
  EXPECT_NE(out_.str().find("example: addMember vlan10-20 eth1/1 tagged\n"), std::string::npos);
  EXPECT_NE(out_.str().find("usage: show <table> [filter] [--json]\n"), std::string::npos);
  EXPECT_NE(out_.str().find("tables:\n  ports           per declared port"), std::string::npos);
  std::istringstream lines(out_.str());
  for (std::string line; std::getline(lines, line);)
    EXPECT_LE(line.size(), 80u) << line;
  // The command line explains a command of two words as the shell does.
  EXPECT_EQ(OutputOf(std::string(HALBD_SIM_COMMAND) + " help show ports"),
            HelpText({"show", "ports"}, 80));
  EXPECT_NE(HelpText({"show", "ports"}, 80).find("legend:\n"), std::string::npos);
}

TEST_F(RunnerTest, TabCompletesOnlyWhatThePositionTakesWithoutRegardToCase) {
  Run(kPrelude + "lag lag3 3\n");
  const std::string dir = ::testing::TempDir() + "complete" + std::to_string(getpid());
  std::filesystem::create_directories(dir + "/d");
  std::ofstream(dir + "/a.scn") << "";
  std::ofstream(dir + "/b.pcap") << "";
  using Words = std::vector<std::string>;
  const struct {
    std::string typed;
    Words completions;
  } cases[] = {
      {"addm", {"addMember"}},
      {"show p", {"port-vlans", "ports"}},
      {"show vlans ", {"--json", "10"}},
      {"show ports --json ", {"eth1/1"}},
      {"show lags eth", {}},
      {"SetTpid ", {"eth1/1", "lag3"}},
      {"memberAdded lag3 ", {"eth1/1"}},
      {"addMember v", {"vlan10"}},
      {"addMember vlan10 eth1/1 ", {"tagged", "untagged"}},
      {"fail bcm_port_dt", {"bcm_port_dtag_mode_set"}},
      {"AddVlanMappingRule eth1/1 in", {"ingress"}},
      {"AddVlanMappingRule eth1/1 ingress match outer 10 re", {"replace", "replace-replace"}},
      {"help getM", {"getMembers"}},
      {"frame eth1/1 ", {"--pcap", "--trace", "hex", "tag", "untagged"}},
      {"frame eth1/1 tag 0x8100 10 ", {}},
      {"frame eth1/1 tag 0x8100 10 0 ", {"--trace", "tag"}},
      {"frame eth1/1 hex 01 ", {"--trace"}},
      {"frame eth1/1 --pcap in.pcap ", {"--out", "--trace"}},
      {"frame eth1/1 --pcap " + dir + "/b", {dir + "/b.pcap"}},
      {"frame eth1/1 --pcap in.pcap --out " + dir + "/", {dir + "/d/"}},
      {"source " + dir + "/", {dir + "/a.scn", dir + "/b.pcap", dir + "/d/"}},
      {"save " + dir + "/A", {dir + "/a.scn"}},
      {"frobnicate ", {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Completions(session_, c.typed), c.completions) << c.typed;
  std::filesystem::remove_all(dir);
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
  ASSERT_TRUE(ScreenShows("Ctrl-D ends.\nhalbd-sim>")) << Screen();
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
