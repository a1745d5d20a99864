#include "live_ports.h"

#include <poll.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>

#include "line_reader.h"
#include "sim/datapath.h"
#include "sim/frame_walk.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

// Frames taken from one interface before the others, and standard input, get their turn: a host
// flooding its port cannot starve the shell or the other hosts.
constexpr size_t kBurst = 64;

// The stop signals' state. The handler only sets the flag; everything else happens on the one
// thread, after ppoll returns.
volatile std::sig_atomic_t stopRaised = 0;
bool stopCaught = false;
sigset_t waitMask;  // the mask while waiting: the stop signals let through
sigset_t savedMask;
struct sigaction savedInterrupt {};
struct sigaction savedTerminate {};

void RaiseStop(int) {
  stopRaised = 1;
}

timespec Milliseconds(long long ms) {
  constexpr long long kPerSecond = 1000;
  constexpr long kNanosPerMilli = 1000000;
  return timespec{static_cast<time_t>(ms / kPerSecond),
                  static_cast<long>(ms % kPerSecond) * kNanosPerMilli};
}

}  // namespace

std::vector<LeavingFrame> ForwardFrame(int ingressPort, const Bytes& bytes) {
  const sim::PortState& port = sim::chip().Port(ingressPort);
  EthernetFrame arrived;
  try {
    arrived = DecodeFrame(bytes, {port.outerTpid, port.innerTpid});
  } catch (const ScenarioError&) {
    return {};  // a runt: no chip forwards it
  }
  const sim::FrameWalk walk = sim::WalkFrame(ingressPort, arrived.frame);
  std::vector<LeavingFrame> leaving;
  leaving.reserve(walk.copies.size());
  for (const sim::FrameCopy& copy : walk.copies)
    leaving.push_back(LeavingFrame{copy.port, EncodeCopy(arrived, copy.frame)});
  if (!walk.cpuReason.empty())
    leaving.push_back(LeavingFrame{kCpuPort, bytes});
  return leaving;
}

StopSignals::StopSignals() {
  stopRaised = 0;
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, &savedMask);
  waitMask = savedMask;
  sigdelset(&waitMask, SIGINT);
  sigdelset(&waitMask, SIGTERM);
  struct sigaction action {};
  action.sa_handler = &RaiseStop;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &savedInterrupt);
  sigaction(SIGTERM, &action, &savedTerminate);
  stopCaught = true;
}

StopSignals::~StopSignals() {
  stopCaught = false;
  sigaction(SIGINT, &savedInterrupt, nullptr);
  sigaction(SIGTERM, &savedTerminate, nullptr);
  pthread_sigmask(SIG_SETMASK, &savedMask, nullptr);
}

void LivePorts::Attach(int chipPort, const std::string& portName, const std::string& interface,
                       const std::string& netns) {
  if (const TapDevice* existing = InterfaceOf(chipPort))
    throw LiveError(portName + " has an interface already: " + existing->Name());
  if (ports_.empty())
    clockMark_ = std::chrono::steady_clock::now();
  auto tap = std::make_unique<TapDevice>(interface, netns);  // first: it may throw
  ports_[chipPort] = LivePort{portName, std::move(tap)};
}

void LivePorts::AdvanceChipClock() {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
      std::chrono::steady_clock::now() - clockMark_);
  if (seconds.count() <= 0)
    return;
  clockMark_ += seconds;
  sim::AdvanceClock(seconds.count());
}

const TapDevice* LivePorts::InterfaceOf(int chipPort) const {
  const auto found = ports_.find(chipPort);
  return found == ports_.end() ? nullptr : found->second.tap.get();
}

size_t LivePorts::ForwardFrom(int port, TapDevice& tap) {
  size_t count = 0;
  while (count < kBurst && tap.Receive(frame_)) {
    ++count;
    if (port == kCpuPort)
      continue;  // the model's CPU sends nothing: what a process writes there is dropped
    for (const LeavingFrame& copy : ForwardFrame(port, frame_)) {
      const auto egress = ports_.find(copy.port);
      if (egress != ports_.end())
        egress->second.tap->Send(copy.bytes);
    }
  }
  return count;
}

size_t LivePorts::ForwardWaiting() {
  size_t count = 0;
  for (auto& [port, live] : ports_)
    count += ForwardFrom(port, *live.tap);
  return count;
}

LivePorts::Wake LivePorts::ForwardUntilInput(int input, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  std::vector<pollfd> waiting;
  std::vector<int> waitingPorts;  // the chip port of each TAP in waiting, in the same order
  for (;;) {
    if (stopRaised != 0)
      return Wake::Stopped;
    waiting.clear();
    waitingPorts.clear();
    if (input >= 0)
      waiting.push_back(pollfd{input, POLLIN, 0});
    for (const auto& [port, live] : ports_) {
      waiting.push_back(pollfd{live.tap->Descriptor(), POLLIN, 0});
      waitingPorts.push_back(port);
    }
    timespec left{};
    if (timeoutMs >= 0) {
      const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (remaining.count() <= 0)
        return Wake::Timeout;
      left = Milliseconds(remaining.count());
    }
    const int ready = ppoll(waiting.data(), waiting.size(), timeoutMs >= 0 ? &left : nullptr,
                            stopCaught ? &waitMask : nullptr);
    if (!ports_.empty())
      AdvanceChipClock();
    if (ready < 0 && errno != EINTR)
      return Wake::Input;  // the reader meets the failure itself
    if (ready <= 0)
      continue;
    if (input >= 0 && waiting.front().revents != 0)
      return Wake::Input;
    const size_t firstTap = input >= 0 ? 1 : 0;
    for (size_t i = firstTap; i < waiting.size(); ++i) {
      const int port = waitingPorts[i - firstTap];
      if ((waiting[i].revents & POLLIN) != 0)
        ForwardFrom(port, *ports_.at(port).tap);
      else if (waiting[i].revents != 0)
        Lose(port);
    }
  }
}

void LivePorts::Lose(int port) {
  // Its interface was deleted under it (with its namespace, say): the descriptor can only report
  // the error from now on, and would wake every wait.
  const LivePort& live = ports_.at(port);
  std::cerr << "halbd-sim: " << live.tap->Name() << " is gone: " << live.portName
            << " has no interface any more" << std::endl;
  ports_.erase(port);
}

int LivePorts::ForwardUntilStopped(std::ostream& err) {
  if (ports_.empty()) {
    err << "halbd-sim: --live: no port has an interface to forward between (tap PORT [NETNS])"
        << std::endl;
    return 1;
  }
  err << "halbd-sim: forwarding between " << ports_.size()
      << (ports_.size() == 1 ? " interface" : " interfaces") << " until Ctrl-C or SIGTERM"
      << std::endl;
  ForwardUntilInput(-1, -1);  // without input and time limit, only a stop signal ends it
  return 0;
}

Table LivePorts::WithInterfaces(const Table& ports) const {
  if (ports_.empty())
    return ports;
  std::map<std::string, const TapDevice*> byName;
  for (const auto& [port, live] : ports_)
    byName[live.portName] = live.tap.get();
  const auto tapOf = [&byName](const std::vector<std::string>& row) -> const TapDevice* {
    const auto found = byName.find(row.front());
    return found == byName.end() ? nullptr : found->second;
  };
  // The ports' own cells keep their typed values; only the two columns are added.
  Table withInterfaces = ports;
  withInterfaces.AppendColumn(Column("interface"), [&tapOf](const std::vector<std::string>& row) {
    const TapDevice* tap = tapOf(row);
    return tap ? Cell(tap->Name()) : Cell("-", nullptr);
  });
  withInterfaces.AppendColumn(Column("netns"), [&tapOf](const std::vector<std::string>& row) {
    const TapDevice* tap = tapOf(row);
    return tap && !tap->Netns().empty() ? Cell(tap->Netns()) : Cell("-", nullptr);
  });
  // The CPU port is no port of the library's, but its interface is listed with the others, last.
  const auto cpu = ports_.find(kCpuPort);
  if (cpu != ports_.end()) {
    std::vector<Cell> row(withInterfaces.Columns().size() - 2, Cell("-", nullptr));
    row.front() = Cell("cpu");
    const TapDevice& tap = *cpu->second.tap;
    row.emplace_back(tap.Name());
    row.push_back(tap.Netns().empty() ? Cell("-", nullptr) : Cell(tap.Netns()));
    withInterfaces.AddRow(std::move(row));
  }
  return withInterfaces;
}

}  // namespace halbdsim
