// Frames per second through halbd-sim's live ports, one host pair, 60-byte frames:
//   - the model alone: the bytes of a frame received on one access port turned into the bytes
//     that leave by the other (decode, walk with learning and counting, encode);
//   - the whole path: a packet socket sends into one port's TAP, the forwarding loop reads the
//     frame, walks it and writes the copy into the other port's TAP, and a packet socket there
//     receives it. One core does all of it, both hosts' kernels included, so the figure is what
//     one core can carry at least. Needs root; skipped otherwise, saying why.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "live_ports.h"
#include "runner.h"
#include "session.h"

namespace {

constexpr int kPortA = 1;
constexpr int kPortB = 2;
constexpr size_t kFrameBytes = 60;
constexpr int kBurst = 64;
constexpr int kWaitMs = 1000;
const halbdsim::Bytes kMacA = {0x02, 0, 0, 0, 0, 0x0a};
const halbdsim::Bytes kMacB = {0x02, 0, 0, 0, 0, 0x0b};

// Two access ports of VLAN 10, as the library programs them; one session for the process.
halbdsim::Session& HostPairSwitch() {
  static std::ostringstream output;
  static halbdsim::Session session(output);
  static const bool configured = [] {
    std::istringstream scenario(
        "port eth1/1 local 1\nport eth1/2 local 2\nvlan 10\n"
        "addMember vlan10 eth1/1 untagged\nSetNativeVlan eth1/1 10\n"
        "addMember vlan10 eth1/2 untagged\nSetNativeVlan eth1/2 10\n");
    halbdsim::LineReader reader(scenario, "bench", nullptr);
    return halbdsim::RunScenario(session, reader, false, std::cerr) == 0;
  }();
  if (!configured)
    std::cerr << "the host pair's switch could not be configured\n";
  return session;
}

// A 60-byte frame from one address to another, of the local experimental EtherType.
halbdsim::Bytes Frame(const halbdsim::Bytes& from, const halbdsim::Bytes& to) {
  halbdsim::Bytes frame(to);
  frame.insert(frame.end(), from.begin(), from.end());
  frame.push_back(0x88);
  frame.push_back(0xb5);
  frame.resize(kFrameBytes, 0);
  return frame;
}

// The model alone. B has spoken once, so that A's frames to it are known unicast, as a ping's are.
void BM_LiveForwardModelOnly(benchmark::State& state) {
  HostPairSwitch();
  halbdsim::ForwardFrame(kPortB, Frame(kMacB, kMacA));
  const halbdsim::Bytes frame = Frame(kMacA, kMacB);
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the loop variable is unused
    const auto copies = halbdsim::ForwardFrame(kPortA, frame);
    if (copies.size() != 1) {
      state.SkipWithError("the frame did not leave by exactly one port");
      break;
    }
    benchmark::DoNotOptimize(copies.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LiveForwardModelOnly);

// A packet socket on an interface: the host's end of a TAP.
class HostSocket {
 public:
  explicit HostSocket(const std::string& interface)
      : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_ALL))) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    ok_ = fd_ >= 0 && address.sll_ifindex != 0 &&
          bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~HostSocket() {
    if (fd_ >= 0)
      close(fd_);
  }
  HostSocket(const HostSocket&) = delete;
  HostSocket& operator=(const HostSocket&) = delete;
  bool Ok() const { return ok_; }
  bool Send(const halbdsim::Bytes& frame) const {
    return send(fd_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
  }
  // Frames from the given source received (not sent) here, waiting up to kWaitMs for the first.
  int ReceiveFrom(const halbdsim::Bytes& source, int wanted) const {
    int count = 0;
    unsigned char buffer[2048];
    while (count < wanted) {
      pollfd ready{fd_, POLLIN, 0};
      if (poll(&ready, 1, kWaitMs) <= 0)
        break;
      sockaddr_ll from{};
      socklen_t length = sizeof from;
      const ssize_t bytes =
          recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
      if (bytes >= 12 && from.sll_pkttype != PACKET_OUTGOING &&
          std::equal(source.begin(), source.end(), buffer + 6))
        ++count;
    }
    return count;
  }

 private:
  int fd_;
  bool ok_ = false;
};

// The hosts' kernels would send IPv6 solicitations of their own; the figure is the pair's frames.
void QuietIpv6(const std::string& interface) {
  std::ofstream("/proc/sys/net/ipv6/conf/" + interface + "/disable_ipv6") << 1;
}

// The two TAPs and the hosts' sockets, made once: Google Benchmark runs a function more than once.
struct HostPair {
  std::string unavailable;  // why the pair could not be made; empty when it was
  std::unique_ptr<HostSocket> a;
  std::unique_ptr<HostSocket> b;
};

HostPair MakeHostPair() {
  HostPair pair;
  pair.unavailable = halbdsim::LivePortsUnavailable();
  if (!pair.unavailable.empty())
    return pair;
  halbdsim::Session& session = HostPairSwitch();
  const std::string pid = std::to_string(getpid());
  const std::string nameA = "hbdb" + pid + "a";
  const std::string nameB = "hbdb" + pid + "b";
  try {
    session.Live().Attach(kPortA, "eth1/1", nameA, "");
    session.Live().Attach(kPortB, "eth1/2", nameB, "");
  } catch (const halbdsim::LiveError& error) {
    pair.unavailable = error.what();
    return pair;
  }
  QuietIpv6(nameA);
  QuietIpv6(nameB);
  pair.a = std::make_unique<HostSocket>(nameA);
  pair.b = std::make_unique<HostSocket>(nameB);
  if (!pair.a->Ok() || !pair.b->Ok())
    pair.unavailable = "cannot open packet sockets on the TAP interfaces";
  halbdsim::ForwardFrame(kPortB, Frame(kMacB, kMacA));  // B is known: A's frames are unicast
  return pair;
}

void BM_LiveHostPairThroughTaps(benchmark::State& state) {
  static const HostPair pair = MakeHostPair();
  if (!pair.unavailable.empty()) {
    state.SkipWithError(pair.unavailable.c_str());
    return;
  }
  halbdsim::LivePorts& live = HostPairSwitch().Live();
  const halbdsim::Bytes frame = Frame(kMacA, kMacB);
  pollfd tapA{live.InterfaceOf(kPortA)->Descriptor(), POLLIN, 0};
  int64_t delivered = 0;
  for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the loop variable is unused
    for (int i = 0; i < kBurst; ++i)
      pair.a->Send(frame);
    // The forwarding loop's work, without its wait for standard input.
    for (size_t forwarded = 0; forwarded < kBurst && poll(&tapA, 1, kWaitMs) > 0;)
      forwarded += live.ForwardWaiting();
    delivered += pair.b->ReceiveFrom(kMacA, kBurst);
  }
  state.SetItemsProcessed(delivered);
  state.counters["lost"] = static_cast<double>(state.iterations() * kBurst - delivered);
}
BENCHMARK(BM_LiveHostPairThroughTaps)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
