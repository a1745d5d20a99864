// The CPU port: the protocol packets a VLAN's control record sends to the CPU. DHCP follows the
// record's DHCP action word, IGMP its snooping flag, both read as the library wrote them.
#include <cstdio>

#include "datapath_internal.h"

namespace sim {
namespace internal {
namespace {

// The chip's packet action bits of the DHCP action word (the library writes its own values 1
// and 4 straight into it). The other bits the word may hold do not change forwarding here.
constexpr uint32_t kPacketToCpu = 0x1;
constexpr uint32_t kPacketDrop = 0x4;

constexpr uint16_t kEtherTypeIpv4 = 0x0800;
constexpr uint8_t kProtocolIgmp = 2;
constexpr uint8_t kProtocolUdp = 17;
constexpr uint16_t kDhcpServerPort = 67;
constexpr uint16_t kDhcpClientPort = 68;
constexpr size_t kEtherTypeBytes = 2;
constexpr size_t kMinIpHeader = 20;

enum class Protocol { Other, Dhcp, Igmp };

uint16_t Read16(const std::vector<uint8_t>& bytes, size_t offset) {
  return static_cast<uint16_t>((bytes[offset] << 8) | bytes[offset + 1]);
}

// IPv4 behind the EtherType; UDP is looked at only in a first fragment, which carries its header.
Protocol ProtocolOf(const std::vector<uint8_t>& payload) {
  if (payload.size() < kEtherTypeBytes + kMinIpHeader || Read16(payload, 0) != kEtherTypeIpv4)
    return Protocol::Other;
  const size_t ip = kEtherTypeBytes;
  const size_t headerBytes = static_cast<size_t>(payload[ip] & 0x0f) * 4;
  if ((payload[ip] >> 4) != 4 || headerBytes < kMinIpHeader)
    return Protocol::Other;
  const uint8_t protocol = payload[ip + 9];
  if (protocol == kProtocolIgmp)
    return Protocol::Igmp;
  const bool firstFragment = (Read16(payload, ip + 6) & 0x1fff) == 0;
  const size_t udp = ip + headerBytes;
  if (protocol != kProtocolUdp || !firstFragment || payload.size() < udp + 4)
    return Protocol::Other;
  const uint16_t dstPort = Read16(payload, udp + 2);
  return dstPort == kDhcpServerPort || dstPort == kDhcpClientPort ? Protocol::Dhcp
                                                                  : Protocol::Other;
}

std::string HexWord(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

CpuAction DhcpAction(const VlanState& vlan, uint16_t vlanId) {
  const uint32_t bits = vlan.control.protocol_pkt.dhcp_action;
  CpuAction action;
  action.reason = "DHCP";
  action.toCpu = (bits & kPacketToCpu) != 0;
  action.forward = (bits & kPacketDrop) == 0;
  std::string what = action.toCpu ? "to the CPU" : "";
  if (!action.forward)
    what += what.empty() ? "dropped" : ", not forwarded";
  action.note = "DHCP, VLAN " + std::to_string(vlanId) + " DHCP action " + HexWord(bits) + ": " +
                (what.empty() ? "forwarded" : what);
  return action;
}

// Snooping is on while the VLAN's disable flag is clear: reports and queries go to the CPU only,
// which decides where group traffic goes.
CpuAction IgmpAction(const VlanState& vlan, uint16_t vlanId) {
  const bool snooping = (vlan.control.flags & BCM_VLAN_IGMP_SNOOP_DISABLE) == 0;
  CpuAction action;
  action.reason = "IGMP";
  action.toCpu = snooping;
  action.forward = !snooping;
  action.note = "IGMP, VLAN " + std::to_string(vlanId) + " snooping " +
                (snooping ? "on: to the CPU, not flooded" : "off (flag 0x800): forwarded");
  return action;
}

}  // namespace

std::optional<CpuAction> CpuActionFor(const VlanState& vlan, uint16_t vlanId,
                                      const std::vector<uint8_t>& payload) {
  switch (ProtocolOf(payload)) {
    case Protocol::Dhcp:
      return DhcpAction(vlan, vlanId);
    case Protocol::Igmp:
      return IgmpAction(vlan, vlanId);
    default:
      return std::nullopt;
  }
}

}  // namespace internal
}  // namespace sim
