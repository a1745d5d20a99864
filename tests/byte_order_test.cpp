// What the switch (32-bit big-endian PowerPC) and a development host (64-bit little-endian) must
// agree on: identifier layout, order and hash, gport arithmetic, the text of 32-bit values in
// messages and traces, and the layout of the SDK records. The suite runs on both; every expectation
// is a fixed value, so a difference between the two shows up as a failure on one of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "chip_sdk.h"
#include "hal_bridge_port_itf.h"
#include "hal_platform.h"
#include "limid.h"
#include "sim_test.h"

namespace {

using ::testing::ElementsAre;

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

// Identifiers are copied into and out of byte buffers and packed records of the companion
// libraries: four bytes, no padding before or after, on every host.
TEST(IdentifierLayout, FourBytesWithByteAlignmentEvenInsidePackedRecords) {
  struct Record {
    unsigned char kind;
    limid_t id;
    unsigned char tail;
  };
  EXPECT_EQ(sizeof(limid_t), 4u);
  EXPECT_EQ(alignof(limid_t), 1u);
  EXPECT_EQ(offsetof(Record, id), 1u);
  EXPECT_EQ(sizeof(Record), 6u);

  const std::vector<limid_t> ids = {sim::EthernetPort(1, 3), sim::Lag(5)};
  const unsigned char expected[] = {0x01, 0x01, 0x00, 0x03, 0x02, 0x00, 0x00, 0x05};
  ASSERT_EQ(ids.size() * sizeof(limid_t), sizeof expected);
  EXPECT_EQ(std::memcmp(ids.data(), expected, sizeof expected), 0);
}

struct HashCase {
  limid_t id;
  uint32_t hash;
};

// The hash is the four bytes read big-endian, that is the identifier's bytes as the network and
// the switch's memory hold them, whatever the host reads from memory.
TEST(IdentifierHash, EqualsTheBytesReadInNetworkOrderForEveryKind) {
  const HashCase cases[] = {
      {sim::EthernetPort(1, 3), 0x01010003},   {sim::EthernetPort(2, 300), 0x0102012c},
      {sim::EthernetPort(1, 128), 0x01010080}, {sim::Lag(5), 0x02000005},
      {sim::BridgeDomain(4094), 0x03000ffe},
  };
  for (const HashCase& c : cases) {
    SCOPED_TRACE(sim::NameOf(c.id));
    EXPECT_EQ(std::hash<limid_t>()(c.id), c.hash);
    // On the switch that is simply the identifier's memory read as a word.
    uint32_t word = 0;
    std::memcpy(&word, c.id.bytes, sizeof word);
    if (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__)
      EXPECT_EQ(word, c.hash);
    else
      EXPECT_EQ(__builtin_bswap32(word), c.hash);
  }
}

// Multi-byte coordinates compare as big-endian numbers, so identifier order is the order of kind,
// slot and port on both hosts (a port number crossing a byte or the sign bit of a byte included).
TEST(IdentifierOrder, FollowsKindSlotAndPortAcrossByteBoundaries) {
  const std::set<limid_t> ids = {sim::BridgeDomain(1),      sim::Lag(2),
                                 sim::EthernetPort(2, 1),   sim::EthernetPort(1, 256),
                                 sim::EthernetPort(1, 255), sim::EthernetPort(1, 128),
                                 sim::EthernetPort(1, 127), sim::Lag(1)};
  std::vector<std::string> names;
  names.reserve(ids.size());
  for (const limid_t& id : ids)
    names.push_back(sim::NameOf(id));
  EXPECT_THAT(names, ElementsAre("eth1/127", "eth1/128", "eth1/255", "eth1/256", "eth2/1", "lag1",
                                 "lag2", "vlan1"));
}

struct GportCase {
  const char* what;
  int32_t gport;
  uint32_t type;
  bool local;
  int localOrInvalid;
  bool trunk;
  int trunkId;
  bool module;
};

// The type field is bits 26-31 read unsigned: a gport with bit 31 set is a negative int and must
// not be sign-extended into another type.
TEST(GportArithmetic, FieldsDecodeTheSameForEveryTypeAndSign) {
  const GportCase cases[] = {
      {"local port 3", sim::LocalGport(3), 1, true, 3, false, 3, false},
      {"local port 2047", sim::LocalGport(2047), 1, true, 2047, false, 2047, false},
      {"local with a reserved bit", 0x04200003, 1, false, -1, false, 0x200003, false},
      {"module 1 port 5", sim::ModuleGport(1, 5), 2, false, -1, false, 0x805, true},
      {"trunk 7", sim::TrunkGport(7), 3, false, -1, true, 7, false},
      {"widest trunk id", sim::TrunkGport(0x3ffffff), 3, false, -1, true, 0x3ffffff, false},
      {"plain port number", 5, 0, false, -1, false, 5, false},
      {"type 33, bit 31 set", static_cast<int32_t>(0x84000003u), 33, false, -1, false, 3, false},
      {"all bits set", -1, 63, false, -1, false, 0x3ffffff, false},
  };
  for (const GportCase& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(halbd::GportType(c.gport), c.type);
    EXPECT_EQ(halbd::IsLocalPortGport(c.gport), c.local);
    EXPECT_EQ(halbd::LocalPortOrInvalid(c.gport), c.localOrInvalid);
    EXPECT_EQ(halbd::IsTrunkGport(c.gport), c.trunk);
    EXPECT_EQ(halbd::TrunkIdOfGport(c.gport), c.trunkId);
    EXPECT_EQ(halbd::IsModulePortGport(c.gport), c.module);
  }
  EXPECT_EQ(sim::LocalGport(3), 0x04000003);
  EXPECT_EQ(sim::ModuleGport(1, 5), 0x08000805);
  EXPECT_EQ(sim::TrunkGport(7), 0x0c000007);
}

class ByteOrderMessages : public SimTest {};

// 32-bit values reach the messages through the varargs of the HAL callbacks; their text must not
// depend on the host's byte order, word size or calling convention.
TEST_F(ByteOrderMessages, HexFormatsOf32BitValuesReadTheSameOnEveryHost) {
  halbd::Hal()->log(3, "Error adding encap ID 0x%08X of gport 0x%08X to multicast group %08X: %s.",
                    0x8003u, 0x4000003u, 0x100000au, bcm_errmsg(BCM_E_EXISTS));
  halbd::Hal()->error(BCM_E_PORT, "%s (%#x) on VLAN %u: %s", "eth1/3", 0x84000003u,
                      static_cast<bcm_vlan_t>(4095), bcm_errmsg(BCM_E_PORT));
  halbd::Hal()->log(3, "%#x %#x 0x%04x %d", 0u, 0xffffffeeu, 0x8a8u, BCM_E_NOT_FOUND);
  EXPECT_THAT(LogLines(),
              ElementsAre("log(3): Error adding encap ID 0x00008003 of gport 0x04000003 to "
                          "multicast group 0100000A: Entry exists.",
                          "error(-18): eth1/3 (0x84000003) on VLAN 4095: Invalid port",
                          "log(3): 0 0xffffffee 0x08a8 -7"));
}

struct RefusedGportCase {
  int32_t gport;
  const char* trace;
  const char* message;
};

// The library prints a refused chip port with %#x, the simulated chip's trace prints a gport with
// bit 31 set as a negative number: both texts are fixed on every host.
TEST_F(ByteOrderMessages, RefusedGportsAppearInTraceAndLogWithTheirFixedText) {
  const RefusedGportCase cases[] = {
      {sim::ModuleGport(1, 5), "bcm_port_untagged_vlan_set(0, 0x8000805, 10) = -18",
       "log(3): Error setting eth1/5 (0x8000805) native VLAN: Invalid port."},
      {static_cast<int32_t>(0x84000003u), "bcm_port_untagged_vlan_set(0, -2080374781, 10) = -18",
       "log(3): Error setting eth1/5 (0x84000003) native VLAN: Invalid port."},
  };
  for (const RefusedGportCase& c : cases) {
    SCOPED_TRACE(c.trace);
    sim::Reset();
    sim::common().AddPort(sim::EthernetPort(1, 5), c.gport);
    EXPECT_EQ(HalBridgePortItf::getInstance(nullptr)->SetNativeVlan(sim::EthernetPort(1, 5), 10),
              -1);
    EXPECT_THAT(Trace(), ElementsAre(c.trace));
    EXPECT_THAT(LogLines(), ElementsAre(c.message));
  }
}

struct FieldOffset {
  const char* field;
  size_t offset;
  size_t expected;
};

// The SDK records cross the boundary to the chip SDK, which was compiled for the switch: their
// layout is the SDK's and must come out the same from these declarations on both hosts. Enums are
// int-sized, VLAN numbers two bytes, and the control record is passed by value.
TEST(SdkRecordLayout, FieldsSitWhereTheSdkHasThem) {
  EXPECT_EQ(sizeof(bcm_vlan_t), 2u);
  EXPECT_EQ(sizeof(bcm_vlan_action_t), 4u);
  EXPECT_EQ(sizeof(bcm_vlan_tpid_action_t), 4u);
  EXPECT_EQ(sizeof(bcm_vlan_translate_key_t), 4u);
  EXPECT_EQ(sizeof(bcm_port_class_t), 4u);
  EXPECT_EQ(sizeof(bcm_vlan_action_set_t), 68u);
  EXPECT_EQ(sizeof(bcm_vlan_control_vlan_t), 12u);
  EXPECT_EQ(sizeof(soc_control_t), 12u);

#define HALBD_FIELD(record, field, expected) \
  { #record "." #field, offsetof(record, field), expected }
  const FieldOffset fields[] = {
      HALBD_FIELD(bcm_vlan_action_set_t, new_outer_vlan, 0),
      HALBD_FIELD(bcm_vlan_action_set_t, new_inner_vlan, 2),
      HALBD_FIELD(bcm_vlan_action_set_t, new_inner_pkt_prio, 4),
      HALBD_FIELD(bcm_vlan_action_set_t, priority, 8),
      HALBD_FIELD(bcm_vlan_action_set_t, outer_tpid, 12),
      HALBD_FIELD(bcm_vlan_action_set_t, inner_tpid, 14),
      HALBD_FIELD(bcm_vlan_action_set_t, outer_tpid_action, 16),
      HALBD_FIELD(bcm_vlan_action_set_t, inner_tpid_action, 20),
      HALBD_FIELD(bcm_vlan_action_set_t, dt_outer, 24),
      HALBD_FIELD(bcm_vlan_action_set_t, dt_inner, 32),
      HALBD_FIELD(bcm_vlan_action_set_t, ot_outer, 40),
      HALBD_FIELD(bcm_vlan_action_set_t, it_outer, 48),
      HALBD_FIELD(bcm_vlan_action_set_t, it_inner_pkt_prio, 60),
      HALBD_FIELD(bcm_vlan_action_set_t, flags, 64),
      HALBD_FIELD(bcm_vlan_control_vlan_t, flags, 0),
      HALBD_FIELD(bcm_vlan_control_vlan_t, broadcast_group, 4),
      HALBD_FIELD(bcm_vlan_control_vlan_t, protocol_pkt.dhcp_action, 8),
      HALBD_FIELD(soc_control_t, chip_type, 0),
      HALBD_FIELD(soc_control_t, xlate_pkt_prio, 4),
      HALBD_FIELD(soc_control_t, chip_family_flags, 8),
  };
#undef HALBD_FIELD
  for (const FieldOffset& f : fields) {
    SCOPED_TRACE(f.field);
    EXPECT_EQ(f.offset, f.expected);
  }
}

}  // namespace
