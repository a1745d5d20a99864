// Where does a frame go? The simulated chip's answer, computed from the state that the SDK calls
// set and from what the chip learned of earlier frames (its address table). docs/FRAME-WALK.md
// states each stage's rule and what the model leaves out.
#ifndef HALBD_SIM_FRAME_WALK_H
#define HALBD_SIM_FRAME_WALK_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

struct FrameTag {
  uint16_t tpid = 0x8100;
  uint16_t vlan = 0;
  uint8_t priority = 0;
  bool dei = false;  // drop eligible: kept as the frame brought it; a pushed tag has it clear
  bool operator==(const FrameTag& o) const {
    return tpid == o.tpid && vlan == o.vlan && priority == o.priority && dei == o.dei;
  }
};

using MacAddress = std::array<uint8_t, 6>;
constexpr MacAddress kBroadcastMac = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// A frame as it is on the wire: its VLAN tags, outermost first (none for an untagged frame), its
// addresses, and the bytes behind the tags: the EtherType and what it announces (empty when
// nothing is known of them; the walk then sees no protocol in the frame).
struct Frame {
  Frame() = default;
  explicit Frame(std::vector<FrameTag> frameTags) : tags(std::move(frameTags)) {}
  std::vector<FrameTag> tags;
  MacAddress dst = kBroadcastMac;
  MacAddress src{};  // all zero: not learned
  std::vector<uint8_t> payload;
  bool operator==(const Frame& o) const {
    return dst == o.dst && src == o.src && tags == o.tags && payload == o.payload;
  }
};

// Bytes on the wire without the frame check sequence: addresses, tags, payload.
size_t FrameBytes(const Frame& frame);

struct FrameCopy {
  int port;
  Frame frame;
};

// One stage's decision, for tracing.
struct WalkStep {
  std::string stage;
  std::string note;
};

struct FrameWalk {
  bool dropped = false;
  std::string dropStage;  // the stage that dropped the frame
  std::string dropReason;
  std::vector<FrameCopy> copies;  // one per egress port, in port order
  std::vector<WalkStep> steps;    // every stage in order
  int vlan = -1;                  // the VLAN the frame was assigned, once assigned
  bool knownUnicast = false;      // forwarded by its learned destination rather than flooded
  std::string cpuReason;          // why a copy went to the CPU ("DHCP"); empty: none did
};

// The name a walk gives a chip port (or a trunk) in its notes, drop reasons and egress stages.
using PortNamer = std::function<std::string(int port)>;

// What the chip does with a frame received on ingressPort: it learns the source address, counts
// the frame, and floods or forwards it. Without namers, ports are "port 3" in notes and reasons
// and "egress 3" as stages, trunks "trunk 1".
// Throws std::out_of_range for a port the chip does not have.
FrameWalk WalkFrame(int ingressPort, const Frame& frame, const PortNamer& namer = nullptr,
                    const PortNamer& trunkNamer = nullptr);

// "untagged", or the tags as "[0x88a8 100 p0][0x8100 10 p3]" (TPID, VLAN, priority), with " dei"
// after the priority of a drop-eligible tag.
std::string FormatFrame(const Frame& frame);

// "02:00:00:00:00:01".
std::string FormatMac(const MacAddress& mac);
// Six hex bytes separated by ':' or '-', or twelve hex digits; empty for anything else.
std::optional<MacAddress> ParseMac(const std::string& text);

}  // namespace sim

#endif  // HALBD_SIM_FRAME_WALK_H
