#include "arguments.h"

#include <gtest/gtest.h>

#include "line_reader.h"
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

TEST(Table, SaysNoneWhenEmpty) {
  EXPECT_EQ(Table({"class", "outer"}).Lines(),
            (std::vector<std::string>{"class  outer", "(none)"}));
}

}  // namespace
}  // namespace halbdsim
