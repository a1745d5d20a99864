// The command line of halbd-sim.
#ifndef HALBD_SIM_OPTIONS_H
#define HALBD_SIM_OPTIONS_H

#include <string>

namespace halbdsim {

struct Options {
  bool help = false;        // --help, or "help [COMMAND]" in place of the scenario
  std::string helpCommand;  // the COMMAND of "help COMMAND", its words blank-separated
  bool version = false;
  bool strict = false;       // non-zero exit when an operation failed or an expect did not hold
  bool json = false;         // JSON Lines: every record one object a line
  bool quiet = false;        // results, tables and help only: no echo, no effects
  bool interactive = false;  // -i: a shell even when standard input is not a terminal
  bool live = false;         // --live: forward between the ports' interfaces until stopped
  std::string path = "-";    // the scenario; "-" for standard input
};

// Reads the options with getopt_long. False with a message such as "unknown option '-x'" for a
// mistake; the caller exits with status 2 after it.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);

// What --help prints.
extern const char* const kUsage;

}  // namespace halbdsim

#endif  // HALBD_SIM_OPTIONS_H
