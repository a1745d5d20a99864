// halbd-sim: runs the bridge library on the simulated platform, one command a line, and shows
// what it does to the chip.
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>

#include "commands.h"
#include "runner.h"

namespace {

constexpr int kUsageError = 2;

int Usage() {
  std::cerr << "usage: halbd-sim [-i] [SCENARIO | -]\n"
               "       halbd-sim help\n"
               "Runs a scenario file, or standard input. On a terminal, or with -i, it is an\n"
               "interactive shell: no echo of commands, and a mistake is reported, not fatal.\n";
  return kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
  bool forceInteractive = false;
  std::string path = "-";
  int next = 1;
  if (next < argc && std::string(argv[next]) == "-i") {
    forceInteractive = true;
    ++next;
  }
  if (next < argc)
    path = argv[next++];
  if (next < argc)
    return Usage();
  if (path == "help" || path == "--help" || path == "-h") {
    halbdsim::PrintHelp(std::cout);
    return 0;
  }
  if (!path.empty() && path[0] == '-' && path != "-")
    return Usage();

  std::ifstream file;
  if (path != "-") {
    file.open(path);
    if (!file) {
      std::cerr << "halbd-sim: cannot read " << path << '\n';
      return kUsageError;
    }
  }
  std::istream& in = path == "-" ? std::cin : file;
  const bool terminal = path == "-" && isatty(STDIN_FILENO);
  const bool interactive = forceInteractive || terminal;

  halbdsim::Session session(std::cout);
  halbdsim::LineReader reader(in, path == "-" ? "<stdin>" : path, terminal ? &std::cerr : nullptr);
  return halbdsim::RunScenario(session, reader, interactive, std::cerr);
}
