// The address table: what the chip learns from source addresses, per VLAN, and how entries age.
// Nothing of it is written by SDK calls of the library; frames fill it, time and flushes empty it.
#include <algorithm>

#include "datapath_internal.h"

namespace sim {
namespace internal {
namespace {

bool IsZero(const MacAddress& mac) {
  return std::all_of(mac.begin(), mac.end(), [](uint8_t byte) { return byte == 0; });
}

// The chip's aging sweep: every entry idle for the age time or longer goes.
void Age(ChipModel& model) {
  if (model.ageTime <= 0)
    return;
  for (auto it = model.fdb.begin(); it != model.fdb.end();) {
    if (model.clock - it->second.lastSeen >= model.ageTime)
      it = model.fdb.erase(it);
    else
      ++it;
  }
}

}  // namespace

// The individual/group bit is the least significant bit of the first byte.
bool IsGroupAddress(const MacAddress& mac) {
  return (mac[0] & 0x01) != 0;
}

Learned Learn(ChipModel& model, uint16_t vlan, const MacAddress& src, int port,
              std::optional<int> trunk) {
  Learned learned;
  if (IsGroupAddress(src) || IsZero(src))
    return learned;
  const FdbEntry now{vlan, src, trunk.has_value(), trunk ? *trunk : port, model.clock};
  auto [it, inserted] = model.fdb.try_emplace({vlan, src}, now);
  if (inserted) {
    learned.kind = Learned::New;
  } else {
    learned.previous = it->second;
    const bool same = it->second.trunk == now.trunk && it->second.portOrTrunk == now.portOrTrunk;
    learned.kind = same ? Learned::Refreshed : Learned::Moved;
    it->second = now;
  }
  return learned;
}

const FdbEntry* FindDestination(const ChipModel& model, uint16_t vlan, const MacAddress& dst) {
  if (IsGroupAddress(dst))
    return nullptr;
  auto it = model.fdb.find({vlan, dst});
  return it == model.fdb.end() ? nullptr : &it->second;
}

}  // namespace internal

std::vector<FdbEntry> FdbEntries() {
  std::vector<FdbEntry> entries;
  for (const auto& [key, entry] : internal::Model().fdb)
    entries.push_back(entry);
  return entries;
}

bool Matches(const FdbMatch& which, const FdbEntry& entry) {
  return (!which.vlan || entry.vlan == *which.vlan) &&
         (!which.port || (!entry.trunk && entry.portOrTrunk == *which.port)) &&
         (!which.trunk || (entry.trunk && entry.portOrTrunk == *which.trunk));
}

size_t FlushFdb(const FdbMatch& which) {
  auto& fdb = internal::Model().fdb;
  size_t flushed = 0;
  for (auto it = fdb.begin(); it != fdb.end();) {
    if (Matches(which, it->second)) {
      it = fdb.erase(it);
      ++flushed;
    } else {
      ++it;
    }
  }
  return flushed;
}

void SetAgeTime(int seconds) {
  internal::Model().ageTime = seconds;
  internal::Age(internal::Model());
}

int AgeTime() {
  return internal::Model().ageTime;
}

int64_t Clock() {
  return internal::Model().clock;
}

void AdvanceClock(int64_t seconds) {
  internal::Model().clock += seconds;
  internal::Age(internal::Model());
}

}  // namespace sim
