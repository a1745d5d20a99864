// halbd-sim: runs the bridge library on the simulated platform, one command a line, and shows
// what it does to the chip.
#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "edit_line_reader.h"
#include "live_ports.h"
#include "options.h"
#include "polling_line_reader.h"
#include "runner.h"

#ifndef HALBD_VERSION
#define HALBD_VERSION "unknown"
#endif

namespace {

constexpr int kUsageError = 2;

size_t TerminalWidth() {
  winsize size{};
  if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
    return size.ws_col;
  return 80;
}

int Help(const halbdsim::Options& options) {
  if (options.helpCommand.empty())
    std::cout << halbdsim::kUsage << '\n';
  try {
    std::cout << halbdsim::HelpText(halbdsim::NameWords(options.helpCommand), TerminalWidth());
  } catch (const halbdsim::ScenarioError& error) {
    std::cerr << "halbd-sim: " << error.what() << '\n';
    return kUsageError;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  halbdsim::Options options;
  std::string error;
  if (!halbdsim::ParseOptions(argc, argv, options, error)) {
    std::cerr << "halbd-sim: " << error << "\nTry 'halbd-sim --help'.\n";
    return kUsageError;
  }
  if (options.version) {
    std::cout << "halbd-sim " << HALBD_VERSION << '\n';
    return 0;
  }
  if (options.help)
    return Help(options);

  // Without the rights to make interfaces a live run could only fail later, half set up.
  if (options.live) {
    const std::string unavailable = halbdsim::LivePortsUnavailable();
    if (!unavailable.empty()) {
      std::cerr << "halbd-sim: " << unavailable << '\n';
      return 1;
    }
  }
  std::ifstream file;
  if (options.path != "-") {
    const std::string problem = halbdsim::OpenScenarioFile(file, options.path);
    if (!problem.empty()) {
      std::cerr << "halbd-sim: " << problem << '\n';
      return kUsageError;
    }
  }
  const bool terminal = options.path == "-" && isatty(STDIN_FILENO) != 0;
  const bool interactive = options.interactive || terminal;

  std::optional<halbdsim::StopSignals> stopSignals;
  if (options.live)
    stopSignals.emplace();
  halbdsim::Session session(std::cout);
  session.SetQuiet(options.quiet);
  session.SetJson(options.json);
  session.SetTerminalWidth(TerminalWidth());
  std::unique_ptr<halbdsim::LineSource> reader;
  // A newcomer at the prompt learns where help is; JSON output stays objects only.
  if (terminal && !options.json) {
    std::cout << "halbd-sim " HALBD_VERSION
                 ": 'help' lists the commands, 'help COMMAND' explains one; Tab completes, "
                 "Ctrl-D ends.\n";
  }
  if (terminal)
    reader = halbdsim::TerminalReader(session);
  else if (options.path == "-")
    reader = std::make_unique<halbdsim::PollingLineReader>(STDIN_FILENO, "<stdin>", nullptr,
                                                           session.Live());
  else
    reader = std::make_unique<halbdsim::LineReader>(file, options.path, nullptr);
  int status = halbdsim::RunScenario(session, *reader, interactive, std::cerr);
  if (options.live && status == 0 && !session.QuitRequested())
    status = session.Live().ForwardUntilStopped(std::cerr);
  return halbdsim::FinishRun(session, status, options.strict, std::cerr, interactive);
}
