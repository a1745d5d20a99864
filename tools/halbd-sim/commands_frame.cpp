// The frame command: a frame received on a port of the simulated chip, and where the state that
// the library programmed and the addresses the chip learned send it (docs/FRAME-WALK.md states the
// stages' rules). Frames are given by their tags and addresses, as bytes, or as a capture file
// whose copies are written per interface.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "frame_io.h"
#include "hal_bcm_common.h"
#include "line_reader.h"
#include "sim/frame_walk.h"
#include "sim/sim_platform.h"

namespace halbdsim {

const char* const kFrameSyntaxHelp =
    "FRAME: untagged (also when left out), or tag TPID VLAN PCP once or twice, outermost first;\n"
    "  then optionally src MAC, dst MAC (broadcast when left out) and dhcp or igmp (a DHCP\n"
    "  discover, an IGMP report to 01:00:5e:01:01:01); or hex BYTES (a whole Ethernet frame), or "
    "--pcap IN.pcap [--out DIR] (each frame of a\n"
    "  capture; DIR/eth1_49.pcap gets the frames leaving eth1/49)";

namespace {

// The walk recognises an outer and an inner tag; a frame of more would only show tags as data.
constexpr size_t kMaxTags = 2;

}  // namespace

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

namespace {

sim::FrameTag TakeTag(Arguments& args) {
  sim::FrameTag tag;
  tag.tpid = ParseNumber<uint16_t>(args.Take("tpid"), "tpid");
  tag.vlan = static_cast<uint16_t>(ParseInteger(args.Take("vlan"), 0, 4095, "vlan"));
  tag.priority = static_cast<uint8_t>(ParseInteger(args.Take("pcp"), 0, 7, "pcp"));
  return tag;
}

sim::MacAddress TakeMac(Arguments& args, const std::string& name) {
  const std::string text = args.Take(name);
  const std::optional<sim::MacAddress> mac = sim::ParseMac(text);
  if (!mac)
    throw ScenarioError(name + " must be a MAC address such as 02:00:00:00:00:01: '" + text + "'");
  return *mac;
}

// A frame given by its tags comes from a host of its own behind each port: its source is
// 02:00:00:00:00:NN, NN the receiving chip port, unless given.
sim::Frame TakeFrame(Arguments& args, int port) {
  sim::Frame frame;
  frame.src = {0x02, 0, 0, 0, 0, static_cast<uint8_t>(port)};
  const std::string first = args.Peek();
  const std::set<std::string> starts = {"untagged", "tag", "src", "dst", "dhcp", "igmp", "--trace"};
  if (!args.Empty() && starts.count(first) == 0) {
    throw ScenarioError("frame must be untagged or tag TPID VLAN PCP: '" + first + "'");
  }
  if (!args.TakeKeyword({"untagged"})) {
    while (args.TakeKeyword({"tag"})) {
      if (frame.tags.size() == kMaxTags)
        throw ScenarioError("a frame carries at most two tags");
      frame.tags.push_back(TakeTag(args));
    }
  }
  std::optional<sim::MacAddress> dst;
  if (args.TakeKeyword({"src"}))
    frame.src = TakeMac(args, "src");
  if (args.TakeKeyword({"dst"}))
    dst = TakeMac(args, "dst");
  const std::optional<std::string> protocol = args.TakeKeyword({"dhcp", "igmp"});
  frame.payload = PayloadOf(protocol.value_or(""));
  frame.dst = dst.value_or(protocol == "igmp" ? kIgmpReportMac : sim::kBroadcastMac);
  return frame;
}

// Drop reasons, notes and egress stages name the scenario's interfaces.
sim::FrameWalk Walk(const Session& session, int port, const sim::Frame& frame) {
  return sim::WalkFrame(
      port, frame, [&session](int p) { return session.NameOfChipPort(p); },
      [&session](int trunk) { return session.NameOfTrunk(trunk); });
}

// A record of a walk's outcome; for the frames of a capture, "frame N: " and its number.
Record WalkRecord(const char* kind, std::optional<size_t> index) {
  Record record(kind, Role::Result);
  if (index)
    record.Text("frame ").Add("index", static_cast<long long>(*index)).Text(": ");
  return record;
}

Json TagsOf(const sim::Frame& frame) {
  Json tags = Json::array();
  for (const sim::FrameTag& tag : frame.tags)
    tags.push_back(
        {{"tpid", tag.tpid}, {"vlan", tag.vlan}, {"pcp", tag.priority}, {"dei", tag.dei}});
  return tags;
}

// The outcome of a walk: with stages, each stage's decision first; then the drop, or one record
// per copy, to which showCopy may add, and the copy to the CPU.
void PrintWalk(Session& session, const sim::FrameWalk& walk, bool stages,
               std::optional<size_t> index = std::nullopt,
               const std::function<void(const sim::FrameCopy&, Record&)>& showCopy = nullptr) {
  for (size_t i = 0; stages && i < walk.steps.size(); ++i) {
    session.Emit(WalkRecord("frame-stage", index)
                     .Add("stage", walk.steps[i].stage)
                     .Text(": ")
                     .Add("note", walk.steps[i].note));
  }
  if (walk.dropped) {
    session.Emit(WalkRecord("frame-dropped", index)
                     .Text("dropped at ")
                     .Add("stage", walk.dropStage)
                     .Text(": ")
                     .Add("reason", walk.dropReason));
    return;
  }
  for (const sim::FrameCopy& copy : walk.copies) {
    Record record = WalkRecord("frame-copy", index);
    record.Text("to ").Add("port", session.NameOfChipPort(copy.port)).Text(": ");
    record.Add("frame", sim::FormatFrame(copy.frame)).Set("tags", TagsOf(copy.frame));
    if (showCopy)
      showCopy(copy, record);
    session.Emit(record);
  }
  if (!walk.cpuReason.empty())
    session.Emit(WalkRecord("frame-cpu", index).Text("to cpu: ").Add("reason", walk.cpuReason));
}

// A frame's own tags are found by the TPIDs known everywhere and by the receiving port's.
std::vector<uint16_t> PortTpids(int port) {
  const sim::PortState& state = sim::chip().Port(port);
  return {state.outerTpid, state.innerTpid};
}

bool TakeTrace(Arguments& args) {
  const bool stages = args.TakeKeyword({"--trace"}).has_value();
  args.ExpectEnd();
  return stages;
}

// One frame given as hex bytes: each copy is followed by its bytes as they leave.
Action PrepareHexFrame(int port, Arguments& args) {
  std::vector<std::string> words;
  while (!args.Empty() && args.Peek() != "--trace")
    words.push_back(args.Take("frame bytes"));
  const bool stages = TakeTrace(args);
  const EthernetFrame arrived = DecodeFrame(ParseHexBytes(words), PortTpids(port));
  return [=](Session& s) {
    const sim::FrameWalk walk = Walk(s, port, arrived.frame);
    s.RememberWalk(walk);
    PrintWalk(s, walk, stages, std::nullopt, [&](const sim::FrameCopy& copy, Record& record) {
      record.Text("\n  ").Add("bytes",
                              HexText(EncodeCopy(arrived, copy.frame), copy.frame.tags.size()));
    });
  };
}

// "eth1/49" leaves by DIR/eth1_49.pcap.
std::string CaptureFileOf(const std::string& directory, const std::string& interface) {
  std::string file = interface;
  std::replace(file.begin(), file.end(), '/', '_');
  return directory + "/" + file + ".pcap";
}

// Walks every frame of the capture; returns the frames that leave by each chip port.
std::map<int, std::vector<CapturedFrame>> WalkCapture(Session& session, int port,
                                                      const std::vector<CapturedFrame>& frames,
                                                      bool stages) {
  std::map<int, std::vector<CapturedFrame>> leaving;
  for (size_t i = 0; i < frames.size(); ++i) {
    const CapturedFrame& captured = frames[i];
    auto refuse = [&](const std::string& reason) {
      session.Emit(WalkRecord("frame-refused", i + 1).Text("refused: ").Add("reason", reason));
    };
    if (captured.originalLength > captured.bytes.size()) {
      refuse("the capture holds " + std::to_string(captured.bytes.size()) + " of its " +
             std::to_string(captured.originalLength) + " bytes");
      continue;
    }
    EthernetFrame arrived;
    try {
      arrived = DecodeFrame(captured.bytes, PortTpids(port));
    } catch (const ScenarioError& error) {
      refuse(error.what());
      continue;
    }
    const sim::FrameWalk walk = Walk(session, port, arrived.frame);
    session.RememberWalk(walk);
    PrintWalk(session, walk, stages, i + 1, [&](const sim::FrameCopy& copy, Record&) {
      CapturedFrame out = captured;
      out.bytes = EncodeCopy(arrived, copy.frame);
      out.originalLength = out.bytes.size();
      leaving[copy.port].push_back(std::move(out));
    });
  }
  return leaving;
}

Action PrepareCapture(int port, Arguments& args) {
  const std::string input = args.Take("capture file");
  const std::string directory = args.TakeKeyword({"--out"}) ? args.Take("directory") : ".";
  const bool stages = TakeTrace(args);
  std::string cut;
  const std::vector<CapturedFrame> frames = ReadCapture(input, cut);
  std::error_code error;
  if (std::filesystem::exists(directory, error) &&
      !std::filesystem::is_directory(directory, error)) {
    throw ScenarioError("--out " + directory + " is not a directory");
  }
  // As a capture reader does, an empty capture is no failure, but a cut one fails once the frames
  // before the cut have been walked; so does a copy that cannot be written.
  return [=](Session& s) {
    const auto leaving = WalkCapture(s, port, frames, stages);
    if (frames.empty() && cut.empty())
      s.Print("the capture " + input + " holds no frames");
    std::error_code made;
    if (!leaving.empty())
      std::filesystem::create_directories(directory, made);
    if (made)
      throw ScenarioError("cannot write into " + directory + ": " + made.message());
    std::string failures = cut;
    for (const auto& [egress, copies] : leaving) {
      const std::string file = CaptureFileOf(directory, s.NameOfChipPort(egress));
      const std::string failure = WriteCapture(file, copies);
      if (!failure.empty()) {
        failures.append(failures.empty() ? "" : "; ").append("cannot write ").append(file);
        failures.append(": ").append(failure);
        continue;
      }
      s.Emit(Record("capture", Role::Result)
                 .Text("wrote ")
                 .Add("file", file)
                 .Text(": ")
                 .Add("frames", Json(copies.size()),
                      std::to_string(copies.size()) + (copies.size() == 1 ? " frame" : " frames")));
    }
    if (!failures.empty())
      throw ScenarioError(failures);
  };
}

Action PrepareFrame(const Session& session, Arguments& args) {
  const int port = TakeChipPort(session, args);
  if (args.TakeKeyword({"hex"}))
    return PrepareHexFrame(port, args);
  if (args.TakeKeyword({"--pcap"}))
    return PrepareCapture(port, args);
  const sim::Frame frame = TakeFrame(args, port);
  const bool stages = TakeTrace(args);
  return [=](Session& s) {
    const sim::FrameWalk walk = Walk(s, port, frame);
    s.RememberWalk(walk);  // for expect
    PrintWalk(s, walk, stages);
  };
}

}  // namespace

std::vector<Command> FrameCommands() {
  return {
      {"frame", "<port> [FRAME] [--trace]",
       "where the chip sends a frame received on a port (stage by stage: --trace)", PrepareFrame},
  };
}

}  // namespace halbdsim
