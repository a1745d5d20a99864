#include "arguments.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "line_reader.h"
#include "options.h"
#include "table.h"

namespace halbdsim {
namespace {

std::string ErrorOf(const std::function<void()>& check) {
  try {
    check();
  } catch (const ScenarioError& error) {
    return error.what();
  }
  return "(accepted)";
}

TEST(ParseInteger, ReadsDecimalHexAndNegativeNumbers) {
  const struct {
    const char* text;
    long long value;
  } cases[] = {{"0", 0},   {"4095", 4095}, {"0x88a8", 0x88a8}, {"0X10", 16},
               {"-7", -7}, {"-0x10", -16}, {"010", 10}};
  for (const auto& c : cases) {
    EXPECT_EQ(ParseInteger(c.text, -100000, 100000, "n"), c.value) << c.text;
  }
  EXPECT_EQ(ParseNumber<int>("-2147483648", "rc"), -2147483647 - 1);
}

TEST(ParseInteger, RefusesWhatIsNotAWholeNumberInRange) {
  const struct {
    const char* text;
    const char* message;
  } cases[] = {
      {"", "bad number for vlan: ''"},
      {"ten", "bad number for vlan: 'ten'"},
      {"10x", "bad number for vlan: '10x'"},
      {"0x", "bad number for vlan: '0x'"},
      {"-", "bad number for vlan: '-'"},
      {"+5", "bad number for vlan: '+5'"},
      {"--5", "bad number for vlan: '--5'"},
      {"4096", "vlan out of range (0 to 4095): 4096"},
      {"-1", "vlan out of range (0 to 4095): -1"},
      {"99999999999999999999", "vlan out of range (0 to 4095): 99999999999999999999"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ErrorOf([&] { ParseInteger(c.text, 0, 4095, "vlan"); }), c.message) << c.text;
  }
}

TEST(ParseRange, ReadsOneNumberOrAnAscendingPair) {
  EXPECT_EQ(ParseRange("10", 0, 4095, "vlan"), std::make_pair(10LL, 10LL));
  EXPECT_EQ(ParseRange("10-20", 0, 4095, "vlan"), std::make_pair(10LL, 20LL));
  EXPECT_EQ(ErrorOf([] { ParseRange("20-10", 0, 4095, "vlan"); }),
            "vlan range runs backwards: 20-10");
  EXPECT_EQ(ErrorOf([] { ParseRange("10-4096", 0, 4095, "vlan"); }),
            "vlan out of range (0 to 4095): 4096");
  EXPECT_EQ(ErrorOf([] { ParseRange("10-", 0, 4095, "vlan"); }), "bad number for vlan: ''");
}

TEST(ParseOptions, ReadsTheOptionsAndNamesAnUnknownOne) {
  const struct {
    std::vector<const char*> argv;
    const char* error;  // empty when accepted
    const char* summary;
  } cases[] = {
      {{"--strict", "-q", "--json", "a.scn"}, "", "strict quiet json a.scn"},
      {{"-sqj"}, "", "strict quiet json -"},
      {{"--version"}, "", "version -"},
      {{"help", "addMember"}, "", "help:addMember help"},
      {{"-i", "-"}, "", "interactive -"},
      {{"-x"}, "unknown option '-x'", ""},
      {{"-qx"}, "unknown option '-x'", ""},
      {{"--frob=1"}, "unknown option '--frob'", ""},
      {{"--strict=yes"}, "unknown option '--strict'", ""},
      {{"a.scn", "b.scn"}, "unexpected argument 'b.scn'", ""},
  };
  for (const auto& c : cases) {
    std::vector<char*> argv = {const_cast<char*>("halbd-sim")};
    for (const char* arg : c.argv)
      argv.push_back(const_cast<char*>(arg));
    argv.push_back(nullptr);
    Options options;
    std::string error;
    const bool accepted =
        ParseOptions(static_cast<int>(argv.size() - 1), argv.data(), options, error);
    EXPECT_EQ(error, c.error) << c.argv[0];
    if (!accepted)
      continue;
    std::string summary = options.strict ? "strict " : "";
    summary += std::string(options.quiet ? "quiet " : "") + (options.json ? "json " : "") +
               (options.version ? "version " : "") + (options.interactive ? "interactive " : "") +
               (options.help ? "help:" + options.helpCommand + " " : "") + options.path;
    EXPECT_EQ(summary, c.summary) << c.argv[0];
  }
}

TEST(Nearest, SuggestsCommandsWithinAFewEditsOrStartingWithTheWord) {
  const struct {
    const char* typed;
    std::vector<std::string> suggested;
  } cases[] = {
      {"addmembr", {"addMember"}},   {"addM", {"addMember"}}, {"SetTpd", {"SetTpid"}},
      {"getmember", {"getMembers"}}, {"frobnicate", {}},      {"xy", {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Nearest(c.typed, CommandWords()), c.suggested) << c.typed;
}

TEST(ExpandRanges, GivesOneLinePerVlanOfARange) {
  using Lines = std::vector<std::vector<std::string>>;
  EXPECT_EQ(ExpandRanges({"vlan", "10-12"}),
            (Lines{{"vlan", "10"}, {"vlan", "11"}, {"vlan", "12"}}));
  EXPECT_EQ(ExpandRanges({"delMember", "vlan7-8", "eth1/1"}),
            (Lines{{"delMember", "vlan7", "eth1/1"}, {"delMember", "vlan8", "eth1/1"}}));
  EXPECT_EQ(ExpandRanges({"SetTpid", "eth1/1", "0x8100"}),
            (Lines{{"SetTpid", "eth1/1", "0x8100"}}));
  EXPECT_EQ(ErrorOf([] {
              ExpandRanges({"addMember", "vlan9-3", "eth1/1", "tagged"});
            }),
            "vlan range runs backwards: 9-3");
}

TEST(ParseChoice, TakesAWordOrANumberOfTheTypeRange) {
  const Choices modes = {{"disable", 0}, {"enable", 1}};
  EXPECT_EQ(ParseChoiceOrNumber("enable", modes, -5, 5, "mode"), 1);
  EXPECT_EQ(ParseChoiceOrNumber("-3", modes, -5, 5, "mode"), -3);
  EXPECT_EQ(ErrorOf([&] { ParseChoiceOrNumber("on", modes, -5, 5, "mode"); }),
            "mode must be disable or enable or a number: 'on'");
  EXPECT_EQ(ErrorOf([&] { ParseChoice("2", modes, "mode"); }),
            "mode must be disable or enable: '2'");
  EXPECT_EQ(ErrorOf([] { ParseOnOff("yes", "trace"); }), "trace must be on or off: 'yes'");
}

TEST(Arguments, NameWhatIsMissingOrLeftOver) {
  Arguments args({"eth1/1"});
  EXPECT_EQ(args.Take("id"), "eth1/1");
  EXPECT_EQ(ErrorOf([&] { args.Take("vlan"); }), "missing vlan");
  Arguments extra({"a", "b"});
  extra.Take("first");
  EXPECT_EQ(ErrorOf([&] { extra.ExpectEnd(); }), "unexpected argument 'b'");
  Arguments keyword({"tpid", "5"});
  EXPECT_FALSE(keyword.TakeKeyword({"prio"}));
  EXPECT_EQ(keyword.TakeKeyword({"prio", "tpid"}), "tpid");
}

TEST(SplitWords, DropsCommentsAndBlanks) {
  EXPECT_EQ(SplitWords("  SetTpid\teth1/1  0x88a8 # uplink"),
            (std::vector<std::string>{"SetTpid", "eth1/1", "0x88a8"}));
  EXPECT_TRUE(SplitWords("# only a comment").empty());
  EXPECT_EQ(Trim("  show ports   # all\r"), "show ports   # all");
}

TEST(Table, AlignsColumnsWithoutTrailingBlanks) {
  Table table({"port", "tpid", "lag"});
  table.AddRow({"eth1/10", "0x8100", "-"});
  table.AddRow({"eth1/2", "0x88a8", ""});
  EXPECT_EQ(table.Lines(), (std::vector<std::string>{"port     tpid    lag", "eth1/10  0x8100  -",
                                                     "eth1/2   0x88a8"}));
}

TEST(Table, JsonKeysAreTheColumnsWithValuesOfTheirKind) {
  Table table({"port",
               {"gport", ColumnKind::Number},
               {"vlans", ColumnKind::List},
               {"native", ColumnKind::Flag},
               {"rules", ColumnKind::RuleList},
               {"prio", ColumnKind::Number}});
  table.AddRow({"eth1/1", "0x4000001", "10 20", "yes", "match outer 1 add; replace outer 2", "-"});
  table.AddRow({"eth1/2", "7", "-", "-", "-", "3"});

  const nlohmann::json json = nlohmann::json::parse(table.Json("ports"));
  const nlohmann::json& rows = json.at("ports");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].at("port"), "eth1/1");
  EXPECT_EQ(rows[0].at("gport"), 0x4000001);
  EXPECT_EQ(rows[0].at("vlans"), nlohmann::json({"10", "20"}));
  EXPECT_EQ(rows[0].at("native"), true);
  EXPECT_EQ(rows[0].at("rules"), nlohmann::json({"match outer 1 add", "replace outer 2"}));
  EXPECT_TRUE(rows[0].at("prio").is_null());
  EXPECT_EQ(rows[1].at("vlans"), nlohmann::json::array());
  EXPECT_EQ(rows[1].at("native"), false);
  EXPECT_EQ(rows[1].at("rules"), nlohmann::json::array());
  EXPECT_EQ(rows[1].at("prio"), 3);
}

TEST(Table, SaysNoneWhenEmpty) {
  EXPECT_EQ(Table({"class", "outer"}).Lines(),
            (std::vector<std::string>{"class  outer", "(none)"}));
}

}  // namespace
}  // namespace halbdsim
