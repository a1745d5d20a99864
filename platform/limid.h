/*
 * Identifier library contract.
 *
 * An interface identifier is an opaque 4-byte value naming a physical ethernet port, a LAG or a
 * bridge domain (VLAN). The bridge library never looks inside one: it copies, compares and hashes
 * it, and asks the identifier library about its kind and name. The byte layout belongs to the
 * identifier library of the platform.
 */
#ifndef HALBD_PLATFORM_LIMID_H
#define HALBD_PLATFORM_LIMID_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Four bytes with byte alignment, passed and stored by value. */
typedef struct limid_s {
  unsigned char bytes[4];
} limid_t;

/* The kind of an identifier. */
typedef unsigned char limid_type_t;

/* The kind that marks an identifier as a LAG. */
extern const limid_type_t limid_type_lag;

/* Non-zero when id is of kind type. */
int limid_is_from_type(limid_t id, limid_type_t type);

/* Writes the kind of id through type; the result carries no meaning for callers. */
int limid_to_type(limid_t id, limid_type_t* type);

/* Non-zero when a and b name the same kind. */
int limid_type_compare(limid_type_t a, limid_type_t b);

/* Non-zero when id is a physical ethernet port. */
int limid_is_from_type_ethernet(limid_t id);

/* Writes the NUL-terminated interface name of id into buffer (callers pass 64 bytes). */
int limid_to_intfname(limid_t id, char* buffer, size_t size);

/*
 * Decodes a bridge-domain identifier. The caller zeroes *vlan before the call; afterwards its
 * low 16 bits are the VLAN ID of the bridge domain. *domainKind receives the bridge-domain kind.
 */
int limid_to_bridgedomain_components(limid_t id, uint32_t* domainKind, uint32_t* vlan);

#ifdef __cplusplus
}  // extern "C"

#include <cstring>
#include <functional>

static_assert(sizeof(limid_t) == 4, "an identifier is four bytes");
static_assert(alignof(limid_t) == 1, "an identifier has byte alignment");

/*
 * The four bytes as one number, the first byte most significant, whatever the host's byte order.
 * Comparing these numbers is comparing the bytes with memcmp (unsigned, first byte first), and it
 * compiles to a load, a byte swap and a compare instead of a library call on every step of every
 * map descent. The bytes are read as one word: read one by one, an identifier passed by value was
 * taken apart into its four bytes and put together again wherever it was stored, some twenty
 * instructions per identifier.
 */
inline uint32_t limid_big_endian_value(const limid_t& id) {
  uint32_t value;
  std::memcpy(&value, id.bytes, sizeof value);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap32(value);
#else
  return value;
#endif
}

/*
 * Identifiers order as their bytes compare with memcmp: the first byte is the most significant
 * and bytes compare unsigned, on every host. Every map and set of identifiers relies on it.
 */
inline bool operator<(const limid_t& a, const limid_t& b) {
  return limid_big_endian_value(a) < limid_big_endian_value(b);
}
/* Equality needs no byte order: the two words as they lie in memory. */
inline bool operator==(const limid_t& a, const limid_t& b) {
  uint32_t x;
  uint32_t y;
  std::memcpy(&x, a.bytes, sizeof x);
  std::memcpy(&y, b.bytes, sizeof y);
  return x == y;
}
inline bool operator!=(const limid_t& a, const limid_t& b) {
  return !(a == b);
}

namespace std {
/*
 * The hash is the four bytes read as a big-endian 32-bit value, whatever the host's byte order,
 * so that bucket placement is the same on the switch and on a development host. It is cheap and
 * cannot throw, which also keeps hash codes out of the nodes of unordered containers.
 */
template <>
struct hash<limid_t> {
  size_t operator()(const limid_t& id) const noexcept { return limid_big_endian_value(id); }
};
}  // namespace std

#endif  // __cplusplus

#endif  // HALBD_PLATFORM_LIMID_H
