// The trunk hash: which member of a trunk a frame leaves by. The same addresses and VLAN always
// give the same member, so a flow's frames stay in order; different flows spread over the members.
#include "sim/datapath.h"

namespace sim {
namespace {

constexpr uint16_t kCrcPolynomial = 0x1021;
constexpr uint16_t kCrcInitial = 0xffff;

uint16_t CrcStep(uint16_t crc, uint8_t byte) {
  crc = static_cast<uint16_t>(crc ^ (byte << 8));
  for (int bit = 0; bit < 8; ++bit) {
    crc = (crc & 0x8000) != 0 ? static_cast<uint16_t>((crc << 1) ^ kCrcPolynomial)
                              : static_cast<uint16_t>(crc << 1);
  }
  return crc;
}

}  // namespace

uint16_t TrunkHash(const MacAddress& dst, const MacAddress& src, uint16_t vlan) {
  uint16_t crc = kCrcInitial;
  for (uint8_t byte : dst)
    crc = CrcStep(crc, byte);
  for (uint8_t byte : src)
    crc = CrcStep(crc, byte);
  crc = CrcStep(crc, static_cast<uint8_t>(vlan >> 8));
  return CrcStep(crc, static_cast<uint8_t>(vlan));
}

std::optional<int> TrunkMemberOf(uint16_t hash, const std::set<int>& members) {
  if (members.empty())
    return std::nullopt;
  // The CRC's low bits follow only some bits of each address byte; folding its high byte in
  // lets every address bit move a small trunk's choice.
  const unsigned folded = (hash ^ (hash >> 8)) & 0xffu;
  auto member = members.begin();
  std::advance(member, folded % members.size());
  return *member;
}

}  // namespace sim
