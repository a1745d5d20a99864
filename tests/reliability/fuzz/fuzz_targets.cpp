// The libFuzzer entry points, one per build (HALBD_FUZZ_TARGET): the library's operations on the
// universe (0), a broken check aborting with the operations that led to it; and what users feed
// halbd-sim: scenario text on a fresh simulated platform (1), one frame as hex bytes (2), a capture
// file (3), where a sanitizer finding, a crash or an exception leaving the runner is the failure.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "commands.h"
#include "runner.h"
#include "universe.h"

namespace {

std::ostream sink(nullptr);  // nothing is shown

[[maybe_unused]] void RunText(halbdsim::Session& session, const std::string& text) {
  std::istringstream in(text);
  halbdsim::LineReader reader(in, "fuzz", nullptr);
  halbdsim::RunScenario(session, reader, true, sink);
}

// A frame command on the provider edge (Q-in-Q, a service TPID, rules at both stages), set up
// once: a walk changes nothing. A byte of the input picks the receiving port.
[[maybe_unused]] void WalkOnProviderEdge(uint8_t port, const std::string& frame) {
  static halbdsim::Session session(sink, reliability::Lags());
  static const bool ready = [] {
    std::ifstream file(HALBD_FUZZ_SWITCH);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    RunText(session, text + "addMember vlan2000 eth1/2 tagged\n");
    return true;
  }();
  const char* const ports[] = {"eth1/1", "eth1/2", "eth1/49"};
  RunText(session, std::string("frame ") + ports[port % 3] + frame + (ready ? "\n" : ""));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // libFuzzer counts nothing of its first, empty input: what that would set up (the services, the
  // provider edge) is left to the first real one.
  if (size == 0)
    return 0;
  const std::string input(reinterpret_cast<const char*>(data), size);
#if HALBD_FUZZ_TARGET == 0
  const std::vector<reliability::Op> ops = reliability::DecodeOps({data, data + size});
  const std::vector<std::string> violations = reliability::RunOps(ops).violations;
  for (const reliability::Op& op : violations.empty() ? decltype(ops){} : ops)
    std::fprintf(stderr, "  %s\n", reliability::Describe(op).c_str());
  for (const std::string& violation : violations)
    std::fprintf(stderr, "violation: %s\n", violation.c_str());
  if (!violations.empty())
    std::abort();
#elif HALBD_FUZZ_TARGET == 1
  // Nothing that reaches outside the process: source reads any file, a capture writes its copies
  // anywhere (the capture fuzzer covers captures).
  const std::string lower = halbdsim::Lower(input);
  if (lower.find("source") != std::string::npos || lower.find("--pcap") != std::string::npos)
    return 0;
  {
    halbdsim::Session session(sink, reliability::Lags());
    RunText(session, input);
  }
  reliability::ClearServiceBooks();  // the services outlive the session
#elif HALBD_FUZZ_TARGET == 2
  std::string hex = " hex ";
  for (size_t i = 1; i < size; ++i)
    hex += {"0123456789abcdef"[data[i] >> 4], "0123456789abcdef"[data[i] & 0xf]};
  WalkOnProviderEdge(size > 0 ? data[0] : 0, hex);
#else
  // The input as a capture file, its copies beside it in the build directory.
  const std::string capture = HALBD_FUZZ_SCRATCH "/capture-" + std::to_string(getpid());
  std::ofstream(capture + ".pcap", std::ios::binary) << input;
  WalkOnProviderEdge(static_cast<uint8_t>(size), " --pcap " + capture + ".pcap --out " + capture);
#endif
  return 0;
}
