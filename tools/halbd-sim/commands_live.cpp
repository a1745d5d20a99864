// The tap command: a real interface for a port, through which a Linux host sends and receives
// the port's frames (docs/USING.md, "Live ports").
#include <algorithm>

#include "commands.h"
#include "line_reader.h"
#include "live_ports.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

// "eth1/1" is carried by "hbd-eth1-1": the prefix tells whose interface it is, and an interface
// name cannot hold a '/'.
std::string DefaultInterface(const std::string& portName) {
  std::string name = "hbd-" + portName;
  std::replace(name.begin(), name.end(), '/', '-');
  return name;
}

Action PrepareTap(const Session& session, Arguments& args) {
  const std::string portName = args.Peek();
  const int port = args.TakeKeyword({"cpu"}) ? kCpuPort : TakeChipPort(session, args);
  std::string netns;
  if (!args.Empty() && args.Peek() != "ifname")
    netns = args.Take("netns");
  const std::string interface =
      args.TakeKeyword({"ifname"}) ? args.Take("interface name") : DefaultInterface(portName);
  args.ExpectEnd();
  if (const TapDevice* existing = session.Live().InterfaceOf(port))
    throw ScenarioError(portName + " has an interface already: " + existing->Name());
  const std::string unavailable = LivePortsUnavailable();
  if (!unavailable.empty())
    throw ScenarioError(unavailable);
  return [=](Session& s) {
    try {
      s.Live().Attach(port, portName, interface, netns);
    } catch (const LiveError& error) {
      throw ScenarioError(error.what());
    }
    s.Print("interface " + interface + (netns.empty() ? "" : " in network namespace " + netns));
  };
}

}  // namespace

std::vector<Command> LiveCommands() {
  return {
      {"tap", "<port> [netns] [ifname NAME]",
       "give a port (or cpu) a TAP interface, in a network namespace if named: frames a host "
       "sends there go through the chip; cpu's gets what the chip hands its CPU",
       PrepareTap},
  };
}

}  // namespace halbdsim
