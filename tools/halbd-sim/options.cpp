#include "options.h"

#include <getopt.h>

namespace halbdsim {

const char* const kUsage =
    "usage: halbd-sim [OPTIONS] [SCENARIO | -]\n"
    "       halbd-sim help [COMMAND]  (e.g. help show ports)\n"
    "Runs a scenario file, or standard input. On a terminal, or with -i, it is an\n"
    "interactive shell: line editing, history, Tab completion; a mistake is reported,\n"
    "not fatal.\n"
    "  -s, --strict   exit status 1 when an operation failed or an expect did not hold\n"
    "  -j, --json     JSON Lines: everything said is one JSON object a line\n"
    "  -q, --quiet    results, tables and help only: no echo, no effects\n"
    "  -i             interactive even when standard input is not a terminal\n"
    "  -l, --live     after the scenario, forward frames between the interfaces of its\n"
    "                 ports (tap) until Ctrl-C or SIGTERM, then remove them\n"
    "  -h, --help     this text\n"
    "  -V, --version  the version\n";

namespace {

const option kLongOptions[] = {
    {"strict", no_argument, nullptr, 's'},
    {"json", no_argument, nullptr, 'j'},
    {"quiet", no_argument, nullptr, 'q'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {"live", no_argument, nullptr, 'l'},
    {nullptr, 0, nullptr, 0},
};

// The option getopt_long refused, as the user typed it: a long option whole (without a value),
// a short one as the letter that is unknown within its word.
std::string RefusedOption(char** argv) {
  const std::string word = argv[optind - 1];
  if (word.compare(0, 2, "--") == 0)
    return word.substr(0, word.find('='));
  return std::string("-") + static_cast<char>(optopt);
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
  optind = 0;  // a fresh scan, also when called more than once in a process
  opterr = 0;  // the messages are ours
  // The command line is read once, before the session starts: no other thread exists yet.
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  for (int option; (option = getopt_long(argc, argv, "+sjqilhV", kLongOptions, nullptr)) != -1;) {
    switch (option) {
      case 's':
        options.strict = true;
        break;
      case 'j':
        options.json = true;
        break;
      case 'q':
        options.quiet = true;
        break;
      case 'i':
        options.interactive = true;
        break;
      case 'l':
        options.live = true;
        break;
      case 'h':
        options.help = true;
        break;
      case 'V':
        options.version = true;
        break;
      default:
        error = "unknown option '" + RefusedOption(argv) + "'";
        return false;
    }
  }
  if (optind < argc)
    options.path = argv[optind++];
  if (options.path == "help") {
    options.help = true;
    // "help show ports" names a command of two words, as in the shell.
    for (; optind < argc; ++optind)
      options.helpCommand += (options.helpCommand.empty() ? "" : " ") + std::string(argv[optind]);
  }
  if (optind < argc) {
    error = "unexpected argument '" + std::string(argv[optind]) + "'";
    return false;
  }
  return true;
}

}  // namespace halbdsim
