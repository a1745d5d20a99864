#include "frame_io.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>

#include "line_reader.h"

#ifdef HALBD_SIM_HAVE_PCAP
#include <pcap/pcap.h>
#endif

namespace halbdsim {

namespace {

constexpr size_t kAddressBytes = 12;  // destination and source MAC addresses
constexpr size_t kTagBytes = 4;
constexpr size_t kTypeBytes = 2;
constexpr size_t kMaxDecodedTags = 2;  // the walk recognises an outer and an inner tag
constexpr unsigned kVlanMask = 0xfff;
constexpr unsigned kPcpShift = 13;
constexpr unsigned kDeiBit = 0x1000;
// The TPIDs that mark a tag whatever the port: 802.1Q, 802.1ad, and the two pre-standard
// service-tag TPIDs still met on provider networks.
constexpr uint16_t kKnownTpids[] = {0x8100, 0x88a8, 0x9100, 0x9200};

uint16_t Read16(const Bytes& bytes, size_t offset) {
  return static_cast<uint16_t>((bytes[offset] << 8) | bytes[offset + 1]);
}

void Append16(Bytes& bytes, unsigned value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8));
  bytes.push_back(static_cast<uint8_t>(value));
}

bool IsTagTpid(uint16_t type, const std::vector<uint16_t>& tagTpids) {
  return std::find(std::begin(kKnownTpids), std::end(kKnownTpids), type) != std::end(kKnownTpids) ||
         std::find(tagTpids.begin(), tagTpids.end(), type) != tagTpids.end();
}

int HexDigit(char c) {
  if (std::isdigit(static_cast<unsigned char>(c)))
    return c - '0';
  const int lower = std::tolower(static_cast<unsigned char>(c));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The one's-complement sum that an IPv4 header carries in bytes 10 and 11.
void SetIpChecksum(Bytes& bytes, size_t header) {
  constexpr size_t kHeaderBytes = 20;
  uint32_t sum = 0;
  for (size_t i = header; i < header + kHeaderBytes; i += 2)
    sum += Read16(bytes, i);
  while (sum > 0xffff)
    sum = (sum & 0xffff) + (sum >> 16);
  bytes[header + 10] = static_cast<uint8_t>(~sum >> 8);
  bytes[header + 11] = static_cast<uint8_t>(~sum);
}

}  // namespace

const sim::MacAddress kIgmpReportMac = {0x01, 0x00, 0x5e, 0x01, 0x01, 0x01};

Bytes PayloadOf(const std::string& kind) {
  constexpr size_t kPayloadBytes = 48;  // EtherType and 46 bytes: a 60-byte untagged frame
  Bytes bytes;
  if (kind == "dhcp") {
    // IPv4, 28 bytes, UDP, TTL 64, 0.0.0.0 -> 255.255.255.255; UDP 68 -> 67, 8 bytes.
    bytes = {0x08, 0x00, 0x45, 0,    0,    28,   0,    0, 0,  0, 64, 17, 0, 0, 0,
             0,    0,    0,    0xff, 0xff, 0xff, 0xff, 0, 68, 0, 67, 0,  8, 0, 0};
  } else if (kind == "igmp") {
    // IPv4, 28 bytes, IGMP, TTL 1, 198.51.100.1 -> 239.1.1.1; an IGMPv2 report for 239.1.1.1.
    bytes = {0x08, 0x00, 0x45, 0,   0, 28, 0, 0,    0, 0,    1,    2,   0, 0, 198,
             51,   100,  1,    239, 1, 1,  1, 0x16, 0, 0xf9, 0xfc, 239, 1, 1, 1};
  } else {
    bytes = {0x88, 0xb5};
  }
  if (bytes.size() > kTypeBytes + 20)
    SetIpChecksum(bytes, kTypeBytes);
  bytes.resize(kPayloadBytes, 0);
  return bytes;
}

EthernetFrame DecodeFrame(Bytes bytes, const std::vector<uint16_t>& tagTpids) {
  if (bytes.size() < kAddressBytes + kTypeBytes) {
    throw ScenarioError("too short for an Ethernet header: " + std::to_string(bytes.size()) +
                        " bytes, 14 needed");
  }
  EthernetFrame decoded;
  size_t offset = kAddressBytes;
  while (decoded.frame.tags.size() < kMaxDecodedTags) {
    const uint16_t type = Read16(bytes, offset);
    if (!IsTagTpid(type, tagTpids))
      break;
    if (bytes.size() < offset + kTagBytes + kTypeBytes) {
      throw ScenarioError("too short to hold its tags: " + std::to_string(bytes.size()) +
                          " bytes, " + std::to_string(offset + kTagBytes + kTypeBytes) + " needed");
    }
    const uint16_t tci = Read16(bytes, offset + 2);
    decoded.frame.tags.push_back(sim::FrameTag{type, static_cast<uint16_t>(tci & kVlanMask),
                                               static_cast<uint8_t>(tci >> kPcpShift),
                                               (tci & kDeiBit) != 0});
    offset += kTagBytes;
  }
  decoded.restOffset = offset;
  std::copy(bytes.begin(), bytes.begin() + 6, decoded.frame.dst.begin());
  std::copy(bytes.begin() + 6, bytes.begin() + 12, decoded.frame.src.begin());
  decoded.frame.payload.assign(bytes.begin() + static_cast<long>(offset), bytes.end());
  decoded.bytes = std::move(bytes);
  return decoded;
}

Bytes EncodeCopy(const EthernetFrame& arrived, const sim::Frame& copy) {
  Bytes out(arrived.bytes.begin(), arrived.bytes.begin() + kAddressBytes);
  for (const sim::FrameTag& tag : copy.tags) {
    Append16(out, tag.tpid);
    Append16(out, (static_cast<unsigned>(tag.priority) << kPcpShift) | (tag.dei ? kDeiBit : 0) |
                      (tag.vlan & kVlanMask));
  }
  out.insert(out.end(), arrived.bytes.begin() + static_cast<long>(arrived.restOffset),
             arrived.bytes.end());
  return out;
}

Bytes ParseHexBytes(const std::vector<std::string>& words) {
  std::string digits;
  for (const std::string& word : words) {
    for (char c : word) {
      if (c == ':' || c == '.')
        continue;
      if (HexDigit(c) < 0)
        throw ScenarioError("frame bytes must be hex digits: '" + word + "'");
      digits += c;
    }
  }
  if (digits.empty())
    throw ScenarioError("missing frame bytes");
  if (digits.size() % 2 != 0)
    throw ScenarioError("frame bytes need two hex digits each: " + std::to_string(digits.size()) +
                        " digits given");
  Bytes bytes;
  for (size_t i = 0; i < digits.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(HexDigit(digits[i]) * 16 + HexDigit(digits[i + 1])));
  return bytes;
}

std::string HexText(const Bytes& bytes, size_t tags) {
  std::vector<size_t> fields = {6, 6};
  fields.insert(fields.end(), tags, kTagBytes);
  fields.push_back(kTypeBytes);
  std::string text;
  size_t offset = 0;
  for (size_t field = 0; offset < bytes.size(); ++field) {
    const size_t end = field < fields.size() ? offset + fields[field] : bytes.size();
    if (!text.empty())
      text += ' ';
    for (; offset < end && offset < bytes.size(); ++offset) {
      char pair[3];
      std::snprintf(pair, sizeof pair, "%02x", bytes[offset]);
      text += pair;
    }
  }
  return text;
}

#ifdef HALBD_SIM_HAVE_PCAP

bool CapturesSupported() {
  return true;
}

std::vector<CapturedFrame> ReadCapture(const std::string& path) {
  char error[PCAP_ERRBUF_SIZE] = "";
  std::unique_ptr<pcap_t, decltype(&pcap_close)> capture(pcap_open_offline(path.c_str(), error),
                                                         &pcap_close);
  if (!capture)
    throw ScenarioError("cannot read the capture " + path + ": " + error);
  const int link = pcap_datalink(capture.get());
  if (link != DLT_EN10MB) {
    const char* name = pcap_datalink_val_to_name(link);
    throw ScenarioError(path + " holds link type " + (name ? name : std::to_string(link)) +
                        ", not Ethernet frames");
  }
  std::vector<CapturedFrame> frames;
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int rc = 0;
  while ((rc = pcap_next_ex(capture.get(), &header, &data)) == 1) {
    frames.push_back(CapturedFrame{Bytes(data, data + header->caplen), header->ts.tv_sec,
                                   header->ts.tv_usec, header->len});
  }
  if (rc == PCAP_ERROR)
    throw ScenarioError("cannot read the capture " + path + ": " + pcap_geterr(capture.get()));
  return frames;
}

std::string WriteCapture(const std::string& path, const std::vector<CapturedFrame>& frames) {
  constexpr int kSnapLength = 65535;
  std::unique_ptr<pcap_t, decltype(&pcap_close)> dead(pcap_open_dead(DLT_EN10MB, kSnapLength),
                                                      &pcap_close);
  if (!dead)
    return "libpcap cannot open a capture";
  std::unique_ptr<pcap_dumper_t, decltype(&pcap_dump_close)> dumper(
      pcap_dump_open(dead.get(), path.c_str()), &pcap_dump_close);
  if (!dumper)
    return pcap_geterr(dead.get());
  for (const CapturedFrame& frame : frames) {
    pcap_pkthdr header{};
    header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(frame.seconds);
    header.ts.tv_usec = static_cast<decltype(header.ts.tv_usec)>(frame.microseconds);
    header.caplen = static_cast<bpf_u_int32>(frame.bytes.size());
    header.len = static_cast<bpf_u_int32>(frame.bytes.size());
    pcap_dump(reinterpret_cast<u_char*>(dumper.get()), &header, frame.bytes.data());
  }
  return pcap_dump_flush(dumper.get()) == 0 ? "" : "cannot write " + path;
}

#else

bool CapturesSupported() {
  return false;
}

std::vector<CapturedFrame> ReadCapture(const std::string&) {
  throw ScenarioError(
      "captures need libpcap: this halbd-sim was built without libpcap (frame PORT hex BYTES "
      "walks one frame)");
}

std::string WriteCapture(const std::string&, const std::vector<CapturedFrame>&) {
  return "built without libpcap";
}

#endif

}  // namespace halbdsim
