// Real Ethernet frames for the frame walk: the tags the walk reads are decoded from the frame's
// bytes, and each copy is written back as the same bytes with the tags the chip left on it.
// Captures are read and written with libpcap where the build has it.
#ifndef HALBD_SIM_FRAME_IO_H
#define HALBD_SIM_FRAME_IO_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/frame_walk.h"

namespace halbdsim {

using Bytes = std::vector<uint8_t>;

// A frame taken apart: its addresses, its VLAN tags, its payload, and where the bytes after them
// (the EtherType or length and the payload) begin.
struct EthernetFrame {
  Bytes bytes;
  sim::Frame frame;
  size_t restOffset = 0;
};

// Decodes the tags in front of the EtherType: at most two, each one whose TPID is 0x8100,
// 0x88a8, 0x9100, 0x9200 or one of tagTpids (the receiving port's). ScenarioError for a frame
// too short for its addresses, its tags and the EtherType behind them.
EthernetFrame DecodeFrame(Bytes bytes, const std::vector<uint16_t>& tagTpids);

// The frame's bytes with the copy's tags in place of the ones it arrived with; the addresses and
// everything after the tags are left as they were.
Bytes EncodeCopy(const EthernetFrame& arrived, const sim::Frame& copy);

// The bytes behind the tags of a frame given by its tags, 60 bytes long with its addresses:
// "dhcp", a DHCP discover's IPv4 and UDP headers (0.0.0.0 port 68 to 255.255.255.255 port 67);
// "igmp", an IGMPv2 membership report for 239.1.1.1; "" a frame of the local experimental
// EtherType 0x88b5, all zero.
Bytes PayloadOf(const std::string& kind);
// The group address an IGMP report of PayloadOf("igmp") is sent to: 01:00:5e:01:01:01.
extern const sim::MacAddress kIgmpReportMac;

// Hex digits, two per byte, in one or more words; ':' and '.' between bytes are allowed.
Bytes ParseHexBytes(const std::vector<std::string>& words);

// "ffffffffffff 020000000001 8100600a 0800 4500..." : addresses, each tag, then the rest.
std::string HexText(const Bytes& bytes, size_t tags);

// One frame of a capture file, with its capture time.
struct CapturedFrame {
  Bytes bytes;
  int64_t seconds = 0;
  int64_t microseconds = 0;
  size_t originalLength = 0;  // on the wire; more than bytes.size() when the capture cut it
};

// Whether this build reads and writes capture files (it needs libpcap).
bool CapturesSupported();

// Every frame of an Ethernet capture file; ScenarioError when it cannot be read, is not of link
// type Ethernet, or the build has no libpcap.
std::vector<CapturedFrame> ReadCapture(const std::string& path);

// Writes the frames as an Ethernet capture file; the text of the failure, or empty.
std::string WriteCapture(const std::string& path, const std::vector<CapturedFrame>& frames);

}  // namespace halbdsim

#endif  // HALBD_SIM_FRAME_IO_H
