// Where does a frame go? The simulated chip's answer for a broadcast frame, computed only from the
// state that the SDK calls set. docs/FRAME-WALK.md states each stage's rule and what the model
// leaves out.
#ifndef HALBD_SIM_FRAME_WALK_H
#define HALBD_SIM_FRAME_WALK_H

#include <cstdint>
#include <functional>
#include <string>
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

// A frame as it is on the wire: its VLAN tags, outermost first (none for an untagged frame).
struct Frame {
  std::vector<FrameTag> tags;
  bool operator==(const Frame& o) const { return tags == o.tags; }
};

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
};

// The name a walk gives a chip port in its notes, drop reasons and egress stages.
using PortNamer = std::function<std::string(int port)>;

// What the chip does with a broadcast frame received on ingressPort. Without a namer, ports are
// "port 3" in notes and reasons and "egress 3" as stages.
// Throws std::out_of_range for a port the chip does not have.
FrameWalk WalkFrame(int ingressPort, const Frame& frame, const PortNamer& namer = nullptr);

// "untagged", or the tags as "[0x88a8 100 p0][0x8100 10 p3]" (TPID, VLAN, priority), with " dei"
// after the priority of a drop-eligible tag.
std::string FormatFrame(const Frame& frame);

}  // namespace sim

#endif  // HALBD_SIM_FRAME_WALK_H
