// Live ports: switch ports whose frames come from and go to real Linux interfaces (TAPs), so that
// hosts in network namespaces send traffic through what the library programmed.
//
// One thread does everything: it runs the commands and forwards the frames, waiting on standard
// input and every TAP at once. A command therefore runs between two frames, never during one,
// and the library and the model are only ever called from that thread.
#ifndef HALBD_SIM_LIVE_PORTS_H
#define HALBD_SIM_LIVE_PORTS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "frame_io.h"
#include "table.h"
#include "tap_device.h"

namespace halbdsim {

// Where the frames the chip hands to its CPU leave, in place of a chip port.
constexpr int kCpuPort = -1;

// A copy of a frame as it leaves the chip by a port, or to the CPU.
struct LeavingFrame {
  int port;
  Bytes bytes;
};

// What the chip makes of the bytes of a frame received on a chip port, learning and counting as
// it goes: the bytes that leave by each egress port, tags as the chip rewrote them, and the frame
// as it came for the CPU when the chip hands it there. None for a frame it drops, and for one too
// short to be an Ethernet frame.
std::vector<LeavingFrame> ForwardFrame(int ingressPort, const Bytes& bytes);

// While it lives, Ctrl-C (SIGINT) and SIGTERM stop a live run instead of killing the process, so
// that the run ends between two frames and its interfaces go with its objects. They stay blocked
// except while LivePorts waits, so that neither is lost between a check and the wait.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
};

class LivePorts {
 public:
  enum class Wake { Input, Timeout, Stopped };

  // Gives a chip port (or kCpuPort) an interface, made in netns (empty: halbd-sim's own).
  // LiveError when the port has one already or the interface cannot be made.
  void Attach(int chipPort, const std::string& portName, const std::string& interface,
              const std::string& netns);
  // The interface of a chip port; null for a port without one.
  const TapDevice* InterfaceOf(int chipPort) const;
  bool Empty() const { return ports_.empty(); }
  size_t Count() const { return ports_.size(); }

  // Forwards the frames that arrive on any interface until input (a descriptor; -1 for none) can
  // be read, timeoutMs passes (-1: never), or a stop signal arrives.
  Wake ForwardUntilInput(int input, int timeoutMs);
  // What a live run does once its scenario has run: says on err how many interfaces forward, then
  // forwards until a stop signal. 1, with a line on err, when no port has an interface.
  int ForwardUntilStopped(std::ostream& err);
  // Forwards the frames waiting on the interfaces, a bounded burst from each; returns how many.
  size_t ForwardWaiting();

  // The port table with the interface of each port (and its namespace) added, when any port has
  // one; the table as it is otherwise, so that a run without live ports shows what it always did.
  Table WithInterfaces(const Table& ports) const;

 private:
  struct LivePort {
    std::string portName;
    std::unique_ptr<TapDevice> tap;
  };
  size_t ForwardFrom(int port, TapDevice& tap);
  // Forgets a port whose interface no longer exists, saying so on standard error.
  void Lose(int port);
  // The chip's clock follows the wall clock while ports are live, so that what it learned ages
  // as on a switch in service.
  void AdvanceChipClock();

  std::map<int, LivePort> ports_;                    // by chip port
  Bytes frame_;                                      // reused for every frame received
  std::chrono::steady_clock::time_point clockMark_;  // the wall time the chip's clock has reached
};

}  // namespace halbdsim

#endif  // HALBD_SIM_LIVE_PORTS_H
