// What the switch (32-bit big-endian PowerPC) and a development host (64-bit little-endian) must
// agree on: identifier layout, order and hash, gport arithmetic, the text of 32-bit values in
// messages and traces, and the layout of the SDK records. The suite runs on both; every expectation
// is a fixed value, so a difference between the two shows up as a failure on one of them.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "chip_sdk.h"
#include "hal_platform.h"
#include "service_fixtures.h"

namespace {

// The target build defines HALBD_TARGET_BIG_ENDIAN_32: there the suite must really run as a 32-bit
// big-endian program, or the target run would prove nothing.
TEST(HostModel, MemoryOrderIsTheCompilersAndTheTargetIsBigEndian32Bit) {
  const uint32_t word = 0x01020304;
  unsigned char bytes[sizeof word];
  std::memcpy(bytes, &word, sizeof word);
  const bool bigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
  EXPECT_EQ(bytes[0], bigEndian ? 0x01 : 0x04);
  EXPECT_EQ(sizeof(int), 4u);
#ifdef HALBD_TARGET_BIG_ENDIAN_32
  EXPECT_TRUE(bigEndian);
  EXPECT_EQ(sizeof(void*), 4u);
  EXPECT_EQ(sizeof(long), 4u);
#endif
}

// Identifiers in ascending order with their four bytes read as a big-endian number: kind, slot,
// then port, with bytes of 0x80 and above ordering as unsigned bytes. No name makes a first byte
// of 0x7f or more: those are built as bytes, and the first byte orders as the most significant.
const struct IdCase {
  const char* name;
  uint32_t bytes;
} kIds[] = {
    {"eth1/3", 0x01010003},   {"eth1/127", 0x0101007f}, {"eth1/128", 0x01010080},
    {"eth1/255", 0x010100ff}, {"eth1/256", 0x01010100}, {"eth1/33023", 0x010180ff},
    {"eth2/300", 0x0102012c}, {"eth200/1", 0x01c80001}, {"lag5", 0x02000005},
    {"lag32769", 0x02008001}, {"vlan4094", 0x03000ffe}, {nullptr, 0x7f000001},
    {nullptr, 0x80000000},    {nullptr, 0xff000000},
};

// Identifiers are copied into and out of byte buffers and packed records of the companion
// libraries: four bytes, no padding; the hash is those bytes read in network order. The services'
// books are ordered maps keyed by identifiers: they iterate in the same order.
using Identifiers = BridgePortTest;
TEST_F(Identifiers, BytesHashAndOrderAreTheSameOnEveryHostAndInTheServicesBooks) {
  struct Record {
    unsigned char kind;
    limid_t id;
    unsigned char tail;
  };
  EXPECT_EQ(
      std::make_tuple(sizeof(limid_t), alignof(limid_t), offsetof(Record, id), sizeof(Record)),
      std::make_tuple(4u, 1u, 1u, 6u));
  std::set<limid_t> ordered;
  for (auto it = std::rbegin(kIds); it != std::rend(kIds); ++it) {
    const IdCase& c = *it;
    SCOPED_TRACE(c.bytes);
    const unsigned char expected[] = {
        static_cast<unsigned char>(c.bytes >> 24), static_cast<unsigned char>(c.bytes >> 16),
        static_cast<unsigned char>(c.bytes >> 8), static_cast<unsigned char>(c.bytes)};
    limid_t id{};
    std::memcpy(id.bytes, expected, sizeof expected);
    if (c.name != nullptr) {
      EXPECT_EQ(std::memcmp(sim::ParseId(c.name).bytes, expected, sizeof expected), 0);
      EXPECT_EQ(sim::NameOf(id), c.name);
      EXPECT_EQ(HalBcmCommon::GetInstance()->DecodeLimId(id).get(), std::string(c.name));
    }
    EXPECT_EQ(std::hash<limid_t>()(id), c.bytes);
    // The library's two LAG tests agree with the identifier's kind.
    EXPECT_EQ(limid_is_from_type_ethernet(id) != 0, expected[0] == 1);
    EXPECT_EQ(halbd::IsLag(id), expected[0] == 2);
    EXPECT_EQ(halbd::IsLagByTypeCompare(id), expected[0] == 2);
    ordered.insert(id);
    if (expected[0] != 2)  // not a LAG
      service->SetAcceptableFrameType(id, HAL_BP_ADMIT_ONLY_TAGGED);
  }
  std::vector<uint32_t> inSetOrder, inBookOrder;
  inSetOrder.reserve(ordered.size());
  inBookOrder.reserve(ordered.size());
  for (const limid_t& id : ordered)
    inSetOrder.push_back(std::hash<limid_t>()(id));
  for (const auto& entry : Books().acceptableFrameTypes())
    inBookOrder.push_back(std::hash<limid_t>()(entry.first));
  EXPECT_EQ(inSetOrder.size(), std::size(kIds));
  EXPECT_TRUE(std::is_sorted(inSetOrder.begin(), inSetOrder.end()));
  EXPECT_EQ(inBookOrder.size(), std::size(kIds) - 2);
  EXPECT_TRUE(std::is_sorted(inBookOrder.begin(), inBookOrder.end()));
  EXPECT_EQ(halbd::VlanOfBridgeDomain(sim::BridgeDomain(4094)), 4094);
}

// The type field is bits 26-31 read unsigned: a gport with bit 31 set is a negative int and must
// not be sign-extended into another type.
TEST(GportArithmetic, FieldsDecodeTheSameForEveryTypeAndSign) {
  const struct {
    int32_t gport;
    uint32_t type;
    bool local;
    int localOrInvalid;
    bool trunk;
    int trunkId;
    bool module;
  } cases[] = {
      {0x04000003, 1, true, 3, false, 3, false},
      {sim::LocalGport(2047), 1, true, 2047, false, 2047, false},
      {0x04200003, 1, false, -1, false, 0x200003, false},  // a reserved bit set
      {0x08000805, 2, false, -1, false, 0x805, true},      // module 1 port 5
      {0x0c000007, 3, false, -1, true, 7, false},
      {sim::TrunkGport(0x3ffffff), 3, false, -1, true, 0x3ffffff, false},
      {5, 0, false, -1, false, 5, false},
      {static_cast<int32_t>(0x84000003u), 33, false, -1, false, 3, false},
      {-1, 63, false, -1, false, 0x3ffffff, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.gport);
    EXPECT_EQ(halbd::GportType(c.gport), c.type);
    EXPECT_EQ(halbd::IsLocalPortGport(c.gport), c.local);
    EXPECT_EQ(halbd::LocalPortOrInvalid(c.gport), c.localOrInvalid);
    EXPECT_EQ(halbd::IsTrunkGport(c.gport), c.trunk);
    EXPECT_EQ(halbd::TrunkIdOfGport(c.gport), c.trunkId);
    EXPECT_EQ(halbd::IsModulePortGport(c.gport), c.module);
  }
  EXPECT_EQ(std::make_tuple(sim::LocalGport(3), sim::ModuleGport(1, 5), sim::TrunkGport(7)),
            std::make_tuple(0x04000003, 0x08000805, 0x0c000007));
}

// 32-bit values reach the messages through the varargs of the HAL callbacks, and refused gports
// appear in the trace and the log: their text must not depend on the host.
TEST_F(PlatformTest, ThirtyTwoBitValuesReadTheSameInMessagesAndTraceOnEveryHost) {
  halbd::Hal()->log(3, "Error adding encap ID 0x%08X of gport 0x%08X to multicast group %08X: %s.",
                    0x8003u, 0x4000003u, 0x100000au, bcm_errmsg(BCM_E_EXISTS));
  halbd::Hal()->error(BCM_E_PORT, "%s (%#x) on VLAN %u: %s", "eth1/3", 0x84000003u,
                      static_cast<bcm_vlan_t>(4095), bcm_errmsg(BCM_E_PORT));
  halbd::Hal()->log(3, "%#x %#x 0x%04x %d", 0u, 0xffffffeeu, 0x8a8u, BCM_E_NOT_FOUND);
  EXPECT_THAT(TakeLog(), ElementsAre("log(3): Error adding encap ID 0x00008003 of gport 0x04000003 "
                                     "to multicast group 0100000A: Entry exists.",
                                     "error(-18): eth1/3 (0x84000003) on VLAN 4095: Invalid port",
                                     "log(3): 0 0xffffffee 0x08a8 -7"));

  sim::common().AddPort(Eth(5), static_cast<int32_t>(0x84000003u));
  EXPECT_EQ(HalBridgePortItf::getInstance(nullptr)->SetNativeVlan(Eth(5), 10), -1);
  EXPECT_EQ(HalBridgePortItf::getInstance(nullptr)->SetNativeVlan(Eth(8), 10), -1);
  EXPECT_THAT(Trace(), ElementsAre("bcm_port_untagged_vlan_set(0, -2080374781, 10) = -18",
                                   "bcm_port_untagged_vlan_set(0, 0x8000808, 10) = -18"));
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error setting eth1/5 (0x84000003) native VLAN: Invalid port.",
                          "log(3): Error setting eth1/8 (0x8000808) native VLAN: Invalid port."));
}

// The SDK records cross the boundary to the chip SDK, which was compiled for the switch: their
// layout is the SDK's and must come out the same from these declarations on both hosts. Enums are
// int-sized, VLAN numbers two bytes, and the control record is passed by value.
TEST(SdkRecordLayout, FieldsSitWhereTheSdkHasThem) {
  EXPECT_EQ(std::make_tuple(sizeof(bcm_vlan_t), sizeof(bcm_vlan_action_t),
                            sizeof(bcm_vlan_tpid_action_t), sizeof(bcm_vlan_translate_key_t),
                            sizeof(bcm_port_class_t), sizeof(bcm_vlan_action_set_t),
                            sizeof(bcm_vlan_control_vlan_t), sizeof(soc_control_t)),
            std::make_tuple(2u, 4u, 4u, 4u, 4u, 68u, 12u, 12u));
  using Action = bcm_vlan_action_set_t;
  EXPECT_EQ(std::make_tuple(offsetof(Action, new_inner_vlan), offsetof(Action, new_inner_pkt_prio),
                            offsetof(Action, priority), offsetof(Action, outer_tpid),
                            offsetof(Action, inner_tpid), offsetof(Action, outer_tpid_action),
                            offsetof(Action, inner_tpid_action), offsetof(Action, dt_outer),
                            offsetof(Action, dt_inner), offsetof(Action, ot_outer),
                            offsetof(Action, it_outer), offsetof(Action, it_inner_pkt_prio),
                            offsetof(Action, flags)),
            std::make_tuple(2u, 4u, 8u, 12u, 14u, 16u, 20u, 24u, 32u, 40u, 48u, 60u, 64u));
  EXPECT_EQ(std::make_tuple(offsetof(bcm_vlan_control_vlan_t, broadcast_group),
                            offsetof(bcm_vlan_control_vlan_t, protocol_pkt.dhcp_action),
                            offsetof(soc_control_t, xlate_pkt_prio),
                            offsetof(soc_control_t, chip_family_flags)),
            std::make_tuple(4u, 8u, 4u, 8u));
}

}  // namespace
