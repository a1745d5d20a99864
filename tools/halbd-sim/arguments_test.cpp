#include "arguments.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "line_reader.h"
#include "options.h"
#include "table.h"

namespace halbdsim {
namespace {

// What a parse gives: its value in text, or the message it is refused with.
template <typename Parse>
std::string Outcome(const Parse& parse) {
  try {
    return std::to_string(parse());
  } catch (const ScenarioError& error) {
    return error.what();
  }
}

TEST(ParseInteger, ReadsWholeNumbersInRangeAndNamesWhatIsWrongWithTheRest) {
  const struct {
    const char* text;
    const char* outcome;
  } cases[] = {{"0", "0"},
               {"4095", "4095"},
               {"0x88a8", "34984"},
               {"0X10", "16"},
               {"-7", "-7"},
               {"-0x10", "-16"},
               {"010", "10"},
               {"", "bad number for n: ''"},
               {"ten", "bad number for n: 'ten'"},
               {"10x", "bad number for n: '10x'"},
               {"0x", "bad number for n: '0x'"},
               {"-", "bad number for n: '-'"},
               {"+5", "bad number for n: '+5'"},
               {"--5", "bad number for n: '--5'"},
               {"40001", "n out of range (-20 to 40000): 40001"},
               {"-21", "n out of range (-20 to 40000): -21"},
               {"99999999999999999999", "n out of range (-20 to 40000): 99999999999999999999"}};
  for (const auto& c : cases)
    EXPECT_EQ(Outcome([&] { return ParseInteger(c.text, -20, 40000, "n"); }), c.outcome) << c.text;
  EXPECT_EQ(ParseNumber<int>("-2147483648", "rc"), -2147483647 - 1);
}

TEST(ParseOptions, ReadsTheOptionsAndNamesAnUnknownOne) {
  const struct {
    std::vector<const char*> argv;
    const char* outcome;  // the options taken, or the refusal
  } cases[] = {
      {{"--strict", "-q", "--json", "a.scn"}, "strict quiet json a.scn"},
      {{"-sqj"}, "strict quiet json -"},
      {{"--version"}, "version -"},
      {{"help", "addMember"}, "help:addMember help"},
      {{"help", "show", "ports"}, "help:show ports help"},
      {{"-i", "-"}, "interactive -"},
      {{"-x"}, "unknown option '-x'"},
      {{"-qx"}, "unknown option '-x'"},
      {{"--frob=1"}, "unknown option '--frob'"},
      {{"--strict=yes"}, "unknown option '--strict'"},
      {{"a.scn", "b.scn"}, "unexpected argument 'b.scn'"},
  };
  for (const auto& c : cases) {
    std::vector<char*> argv = {const_cast<char*>("halbd-sim")};
    for (const char* arg : c.argv)
      argv.push_back(const_cast<char*>(arg));
    argv.push_back(nullptr);
    Options o;
    std::string error;
    if (!ParseOptions(static_cast<int>(argv.size() - 1), argv.data(), o, error)) {
      EXPECT_EQ(error, c.outcome) << c.argv[0];
      continue;
    }
    EXPECT_EQ(std::string(o.strict ? "strict " : "") + (o.quiet ? "quiet " : "") +
                  (o.json ? "json " : "") + (o.version ? "version " : "") +
                  (o.interactive ? "interactive " : "") +
                  (o.help ? "help:" + o.helpCommand + " " : "") + o.path,
              c.outcome)
        << c.argv[0];
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

TEST(Table, JsonKeysAreTheColumnsWithValuesOfTheirKind) {
  Table table({"port",
               {"gport", ColumnKind::Number},
               {"vlans", ColumnKind::List},
               {"native", ColumnKind::Flag},
               {"rules", ColumnKind::RuleList},
               {"prio", ColumnKind::Number}});
  table.AddRow({"eth1/1", "0x4000001", "10 20", "yes", "match outer 1 add; replace outer 2", "-"});
  table.AddRow(std::vector<std::string>{"eth1/2", "7", "-", "-", "-", "3"});

  EXPECT_EQ(nlohmann::json::parse(table.JsonRows().dump()), nlohmann::json::parse(R"([
      {"port": "eth1/1", "gport": 67108865, "vlans": ["10", "20"], "native": true,
       "rules": ["match outer 1 add", "replace outer 2"], "prio": null},
      {"port": "eth1/2", "gport": 7, "vlans": [], "native": false, "rules": [], "prio": 3}])"));
}

}  // namespace
}  // namespace halbdsim
