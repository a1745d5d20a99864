#include "live_ports.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "polling_line_reader.h"
#include "runner.h"

namespace halbdsim {
namespace {

struct ReadCase {
  std::string input;
  std::vector<std::string> lines;
};

class PollingLineReaderTest : public ::testing::TestWithParam<ReadCase> {};

// The reader takes the descriptor's bytes in chunks of its own: lines across chunk boundaries,
// empty lines and a last line without its newline come out as a stream's getline gives them.
TEST_P(PollingLineReaderTest, HandsOutTheLinesOfTheDescriptor) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], GetParam().input.data(), GetParam().input.size()),
            static_cast<ssize_t>(GetParam().input.size()));
  close(ends[1]);
  LivePorts live;
  PollingLineReader reader(ends[0], "<stdin>", nullptr, live);
  std::vector<std::string> lines;
  for (std::string line; reader.Next(line);)
    lines.push_back(line);
  close(ends[0]);
  EXPECT_EQ(lines, GetParam().lines);
  EXPECT_EQ(reader.LineNumber(), static_cast<int>(lines.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, PollingLineReaderTest,
    ::testing::Values(ReadCase{"", {}}, ReadCase{"vlan 10\nvlan 20\n", {"vlan 10", "vlan 20"}},
                      ReadCase{"vlan 10\nvlan 20", {"vlan 10", "vlan 20"}},
                      ReadCase{"\n\nshow ports\n", {"", "", "show ports"}},
                      ReadCase{std::string(5000, 'x') + "\ny\n", {std::string(5000, 'x'), "y"}}));

// The one step from bytes in to bytes out, on two access ports of VLAN 10 and a trunk.
class ForwardFrameTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::istringstream scenario(
        "port eth1/1 local 1\nport eth1/2 local 2\nport eth1/49 local 49\nvlan 10\n"
        "addMember vlan10 eth1/1 untagged\nSetNativeVlan eth1/1 10\n"
        "addMember vlan10 eth1/49 tagged\nAddPropertyValue vlan10 dhcp to-cpu\n");
    LineReader reader(scenario, "test.scn", nullptr);
    ASSERT_EQ(RunScenario(session_, reader, false, err_), 0) << err_.str();
  }
  std::ostringstream out_;
  std::ostringstream err_;
  Session session_{out_};
};

Bytes Hex(const std::string& text) {
  return ParseHexBytes(SplitWords(text));
}

TEST_F(ForwardFrameTest, CopiesLeaveWithTheChipsTagsAndTheFramesOtherBytes) {
  const auto copies = ForwardFrame(1, Hex("ffffffffffff020000000001 88b5 0102030405"));
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_EQ(copies[0].port, 49);
  EXPECT_EQ(copies[0].bytes, Hex("ffffffffffff020000000001 8100000a 88b5 0102030405"));
}

TEST_F(ForwardFrameTest, ARuntLeavesNowhere) {
  EXPECT_TRUE(ForwardFrame(1, Hex("ffffffffffff0200000000")).empty());
}

TEST_F(ForwardFrameTest, TheCpuGetsTheFrameAsItCame) {
  Bytes dhcp = Hex(
      "ffffffffffff020000000001 0800 450000300000000040110000 00000000ffffffff 00440043001c0000");
  dhcp.resize(60, 0);
  const auto copies = ForwardFrame(1, dhcp);
  ASSERT_FALSE(copies.empty());
  EXPECT_EQ(copies.back().port, kCpuPort);
  EXPECT_EQ(copies.back().bytes, dhcp);
}

}  // namespace
}  // namespace halbdsim
