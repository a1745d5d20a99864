// Identifier order, equality and hash, composed_id order and the SDK error texts: contracts that
// every map of the library and every message relies on, on any host byte order.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <unordered_map>

#include "composed_id.h"
#include "hal_platform.h"
#include "limid.h"
#include "sim/sim_platform.h"

namespace {

limid_t Id(unsigned char b0, unsigned char b1, unsigned char b2, unsigned char b3) {
  return limid_t{{b0, b1, b2, b3}};
}

struct OrderCase {
  const char* what;
  limid_t lower;
  limid_t higher;
};

TEST(LimidOrder, FirstByteIsMostSignificantAndBytesCompareUnsigned) {
  const OrderCase cases[] = {
      {"last byte decides when the rest is equal", Id(1, 2, 3, 4), Id(1, 2, 3, 5)},
      {"0x80 sorts after 0x7f", Id(0x7f, 0, 0, 0), Id(0x80, 0, 0, 0)},
      {"0xff sorts after 0x00", Id(0, 0, 0, 0xff), Id(0, 0, 1, 0)},
      {"first byte outweighs all the others", Id(1, 0xff, 0xff, 0xff), Id(2, 0, 0, 0)},
      {"high bit in the last byte", Id(0, 0, 0, 0x01), Id(0, 0, 0, 0x81)},
  };
  for (const OrderCase& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_TRUE(c.lower < c.higher);
    EXPECT_FALSE(c.higher < c.lower);
    EXPECT_FALSE(c.lower == c.higher);
  }
}

TEST(LimidOrder, EqualBytesAreEqualAndNotLess) {
  EXPECT_TRUE(Id(9, 8, 7, 6) == Id(9, 8, 7, 6));
  EXPECT_FALSE(Id(9, 8, 7, 6) < Id(9, 8, 7, 6));
  EXPECT_TRUE(Id(9, 8, 7, 6) != Id(9, 8, 7, 7));
}

TEST(LimidOrder, OrderedContainersFollowByteOrder) {
  const std::set<limid_t> ids = {Id(0x80, 0, 0, 0), Id(0x7f, 0xff, 0xff, 0xff), Id(0, 0, 1, 2),
                                 Id(0, 0, 1, 2)};
  ASSERT_EQ(ids.size(), 3u);
  auto it = ids.begin();
  EXPECT_TRUE(*it++ == Id(0, 0, 1, 2));
  EXPECT_TRUE(*it++ == Id(0x7f, 0xff, 0xff, 0xff));
  EXPECT_TRUE(*it == Id(0x80, 0, 0, 0));
}

TEST(LimidHash, IsTheBytesReadBigEndian) {
  const std::hash<limid_t> hash;
  EXPECT_EQ(hash(Id(0, 0, 1, 2)), 0x102u);
  EXPECT_EQ(hash(Id(0x12, 0x34, 0x56, 0x78)), 0x12345678u);
  EXPECT_EQ(hash(Id(0xff, 0, 0, 0)), 0xff000000u);
}

TEST(LimidHash, ServesUnorderedMapsAndBucketsByValueModuloCount) {
  std::unordered_map<limid_t, unsigned short> tpids;
  tpids.rehash(1);
  tpids[Id(0, 0, 1, 2)] = 0x88a8;
  tpids[Id(0, 0, 1, 3)] = 0x9100;
  tpids[Id(0, 0, 1, 2)] = 0x8100;
  EXPECT_EQ(tpids.size(), 2u);
  EXPECT_EQ(tpids.at(Id(0, 0, 1, 2)), 0x8100);
  EXPECT_EQ(tpids.bucket(Id(0, 0, 1, 2)), 0x102u % tpids.bucket_count());
}

TEST(ComposedId, OrdersLexicographicallyWithSignedMembers) {
  using Key = composed_id<int>;
  EXPECT_TRUE((Key{5, -1} < Key{5, 0}));
  EXPECT_TRUE((Key{4, 7} < Key{5, -1}));
  EXPECT_FALSE((Key{5, 0} < Key{5, -1}));
  EXPECT_TRUE((Key{-1, 100} < Key{0, -100}));
  std::map<Key, int> table = {{{5, 0}, 2}, {{5, -1}, 1}, {{4, 7}, 0}};
  int expected = 0;
  for (const auto& entry : table) EXPECT_EQ(entry.second, expected++);
}

struct ErrmsgCase {
  int rc;
  int entry;
};

TEST(BcmErrmsg, IndexesByNegatedCodeWithOneCatchAllEntry) {
  const ErrmsgCase cases[] = {{0, 0},    {-1, 1},     {-7, 7}, {-8, 8},  {-22, 22},
                              {-23, 23}, {-100, 23}, {5, 23}, {1, 23}, {-30, 23}};
  for (const ErrmsgCase& c : cases) {
    SCOPED_TRACE(c.rc);
    EXPECT_EQ(bcm_errmsg(c.rc), _shr_errmsg[c.entry]);
  }
}

}  // namespace
