// libFuzzer entry points of what users feed halbd-sim, one per build (HALBD_TOOL_FUZZER): scenario
// text on a fresh simulated platform (1), one frame as hex bytes (2), a capture file (3). A
// sanitizer finding, a crash or an exception that leaves the runner is the failure.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "commands.h"
#include "runner.h"
#include "universe.h"

namespace {

// Nothing is shown: output and reports go to a stream without a buffer.
std::ostream& Sink() {
  static std::ostream sink(nullptr);
  return sink;
}

void RunText(halbdsim::Session& session, const std::string& text) {
  std::istringstream in(text);
  halbdsim::LineReader reader(in, "fuzz", nullptr);
  halbdsim::RunScenario(session, reader, true, Sink());
}

// The provider edge set up once (Q-in-Q, a service TPID, rules at both stages): the frames walk
// through it, and a walk changes nothing.
[[maybe_unused]] halbdsim::Session& ProviderEdge() {
  static halbdsim::Session session(Sink(), reliability::Lags());
  static const bool ready = [] {
    std::ifstream file(HALBD_FUZZ_SWITCH);
    std::stringstream text;
    text << file.rdbuf();
    RunText(session, text.str() + "addMember vlan2000 eth1/2 tagged\n");
    return true;
  }();
  (void)ready;
  return session;
}

// The receiving port, chosen by an input's first byte.
[[maybe_unused]] std::string Port(uint8_t byte) {
  const char* const ports[] = {"eth1/1", "eth1/2", "eth1/49"};
  return ports[byte % 3];
}

}  // namespace

#if HALBD_TOOL_FUZZER == 1

// Lines that reach outside the process are left out: source reads any file, a capture writes its
// copies anywhere (the capture fuzzer covers captures).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    const std::string words = " " + halbdsim::Lower(line);
    if (words.find(" source") == std::string::npos && words.find("--pcap") == std::string::npos)
      text += line + '\n';
  }
  {
    halbdsim::Session session(Sink(), reliability::Lags());
    RunText(session, text);
  }
  reliability::ClearServiceBooks();  // the services outlive the session
  return 0;
}

#elif HALBD_TOOL_FUZZER == 2

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0)
    return 0;
  std::string line = "frame " + Port(data[0]) + " hex";
  for (size_t i = 1; i < size; ++i) {
    const char* const digits = "0123456789abcdef";
    line += (i % 6 == 1 ? " " : (data[0] & 0x80) != 0 ? ":" : "");
    line += {digits[data[i] >> 4], digits[data[i] & 0xf]};
  }
  RunText(ProviderEdge(), line + ((data[0] & 0x40) != 0 ? " --trace\n" : "\n"));
  return 0;
}

#elif HALBD_TOOL_FUZZER == 3

// The input as a capture file, its copies written beside it; the directory goes at exit.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const struct Scratch {
    std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                ("halbd-capture-fuzz-" + std::to_string(getpid()));
    Scratch() { std::filesystem::create_directories(dir); }
    ~Scratch() { std::filesystem::remove_all(dir); }
  } scratch;
  const std::string capture = (scratch.dir / "in.pcap").string();
  std::ofstream(capture, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  RunText(ProviderEdge(), "frame " + Port(static_cast<uint8_t>(size)) + " --pcap " + capture + " --out " +
                              (scratch.dir / "out").string() + "\n");
  return 0;
}

#endif
