// What the simulated chip keeps while it forwards: the address table it learns, its clock and
// age time, the trunk hash, and its counters. Frames change this state through WalkFrame
// (frame_walk.h); these calls read it, flush it and set its knobs. sim::Reset() clears all of it.
#ifndef HALBD_SIM_DATAPATH_H
#define HALBD_SIM_DATAPATH_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/frame_walk.h"

namespace sim {

// ---- The address table (independent learning: one table per VLAN) ----------------------------
struct FdbEntry {
  uint16_t vlan = 0;
  MacAddress mac{};
  bool trunk = false;    // learned against a trunk (the ingress port was a member of it)
  int portOrTrunk = 0;   // the chip port, or the trunk id
  int64_t lastSeen = 0;  // clock second of the last frame from the address
};

// Every entry, by VLAN, then address.
std::vector<FdbEntry> FdbEntries();

// Which entries a flush removes or a view shows; an empty criterion matches every entry.
struct FdbMatch {
  std::optional<uint16_t> vlan;
  std::optional<int> port;   // entries learned against this chip port
  std::optional<int> trunk;  // entries learned against this trunk
};
bool Matches(const FdbMatch& which, const FdbEntry& entry);
// Removes the matching entries; returns how many.
size_t FlushFdb(const FdbMatch& which);

// The chip's age time: an entry no frame refreshed for this many seconds is removed. 0 turns
// aging off. 300 after a reset.
constexpr int kDefaultAgeTime = 300;
void SetAgeTime(int seconds);
int AgeTime();

// The chip's clock, in seconds since the reset. Time passes only when told, so that a run is
// repeatable; passing time ages the table.
int64_t Clock();
void AdvanceClock(int64_t seconds);

// ---- The trunk hash ---------------------------------------------------------------------------
// CRC-16/CCITT (polynomial 0x1021, initial value 0xffff) over the destination address, the
// source address and the VLAN (two bytes, big-endian), in that order.
uint16_t TrunkHash(const MacAddress& dst, const MacAddress& src, uint16_t vlan);
// The member a frame of this hash leaves by: the hash's two bytes XORed together, modulo the
// member count, index the members in port order. Empty without members.
std::optional<int> TrunkMemberOf(uint16_t hash, const std::set<int>& members);

// ---- Counters ---------------------------------------------------------------------------------
struct PortCounters {
  uint64_t rxFrames = 0;
  uint64_t rxBytes = 0;
  uint64_t txFrames = 0;
  uint64_t txBytes = 0;
  std::map<std::string, uint64_t> drops;  // by the stage that dropped the frame
};

struct VlanCounters {
  uint64_t forwarded = 0;  // known unicast, to one port
  uint64_t flooded = 0;    // unknown unicast, broadcast and multicast
  uint64_t toCpu = 0;
};

// Only ports and VLANs that counted something have an entry.
const std::map<int, PortCounters>& PortCounterTable();
const std::map<uint16_t, VlanCounters>& VlanCounterTable();
void ClearCounters();

}  // namespace sim

#endif  // HALBD_SIM_DATAPATH_H
