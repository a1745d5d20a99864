// The frame command: a broadcast frame received on a port of the simulated chip, and where the
// state that the library programmed sends it (docs/FRAME-WALK.md states the stages' rules).
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "hal_bcm_common.h"
#include "line_reader.h"
#include "sim/frame_walk.h"

namespace halbdsim {

const char* const kFrameSyntaxHelp =
    "FRAME: untagged (also when left out), or tag TPID VLAN PCP once or twice, outermost first";

namespace {

// The walk recognises an outer and an inner tag; a frame of more would only show tags as data.
constexpr size_t kMaxTags = 2;

// The chip port that receives: the port table's entry of the port, as the library finds it.
int TakeChipPort(const Session& session, Arguments& args) {
  const std::string name = args.Take("port");
  const limid_t id = session.Resolve(name, "port", kPort);
  int gport = 0;
  try {
    gport = HalBcmCommon::GetInstance()->LookupPort(id).port;
  } catch (const std::out_of_range&) {
    throw ScenarioError(name + " is not in the port table: no chip port receives for it");
  }
  const std::optional<int> chipPort = ChipPortOfGport(gport);
  if (!chipPort) {
    throw ScenarioError(name + " is gport " + Hex(static_cast<unsigned>(gport)) +
                        ", not a port of this chip");
  }
  return *chipPort;
}

sim::FrameTag TakeTag(Arguments& args) {
  sim::FrameTag tag;
  tag.tpid = ParseNumber<uint16_t>(args.Take("tpid"), "tpid");
  tag.vlan = static_cast<uint16_t>(ParseInteger(args.Take("vlan"), 0, 4095, "vlan"));
  tag.priority = static_cast<uint8_t>(ParseInteger(args.Take("pcp"), 0, 7, "pcp"));
  return tag;
}

sim::Frame TakeFrame(Arguments& args) {
  sim::Frame frame;
  const std::string first = args.Peek();
  if (!args.Empty() && first != "untagged" && first != "tag" && first != "--trace") {
    throw ScenarioError("frame must be untagged or tag TPID VLAN PCP: '" + first + "'");
  }
  if (args.TakeKeyword({"untagged"}))
    return frame;
  while (args.TakeKeyword({"tag"})) {
    if (frame.tags.size() == kMaxTags)
      throw ScenarioError("a frame carries at most two tags");
    frame.tags.push_back(TakeTag(args));
  }
  return frame;
}

// Stage by stage; an egress stage is named after the port its copy leaves by.
void PrintSteps(Session& session, const sim::FrameWalk& walk) {
  size_t copy = 0;
  for (const sim::WalkStep& step : walk.steps) {
    std::string stage = step.stage;
    if (copy < walk.copies.size() && stage == "egress " + std::to_string(walk.copies[copy].port)) {
      stage = "egress " + session.NameOfChipPort(walk.copies[copy++].port);
    }
    session.Print(stage + ": " + step.note);
  }
}

void PrintWalk(Session& session, const sim::FrameWalk& walk, bool stages) {
  if (stages)
    PrintSteps(session, walk);
  if (walk.dropped) {
    session.Print("dropped at " + walk.dropStage + ": " + walk.dropReason);
    return;
  }
  for (const sim::FrameCopy& copy : walk.copies) {
    session.Print("to " + session.NameOfChipPort(copy.port) + ": " + sim::FormatFrame(copy.frame));
  }
}

Action PrepareFrame(const Session& session, Arguments& args) {
  const int port = TakeChipPort(session, args);
  const sim::Frame frame = TakeFrame(args);
  const bool stages = args.TakeKeyword({"--trace"}).has_value();
  args.ExpectEnd();
  return [=](Session& s) {
    const sim::FrameWalk walk = sim::WalkFrame(port, frame);
    s.RememberWalk(walk);
    PrintWalk(s, walk, stages);
  };
}

}  // namespace

std::vector<Command> FrameCommands() {
  return {
      {"frame", "<port> [FRAME] [--trace]",
       "where the chip sends a broadcast frame received on a port (stage by stage: --trace)",
       PrepareFrame},
  };
}

}  // namespace halbdsim
