#include "runner.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "commands.h"

namespace halbdsim {

namespace {

void Report(std::ostream& err, const LineSource& reader, bool interactive,
            const std::string& message) {
  if (interactive)
    err << message << std::endl;
  else
    ReportError(err, reader.SourceName(), reader.LineNumber(), message);
}

int RunSource(Session& session, const std::vector<std::string>& words, std::ostream& err) {
  if (words.size() != 2)
    throw ScenarioError(words.size() < 2 ? "missing file"
                                         : "unexpected argument '" + words[2] + "'");
  std::ifstream file(words[1]);
  if (!file)
    throw ScenarioError("cannot read " + words[1] + ": " + std::strerror(errno));
  LineReader reader(file, words[1], nullptr);
  return RunScenario(session, reader, false, err);
}

std::string Counted(int count, const char* what, const char* plural) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : plural);
}

}  // namespace

int RunScenario(Session& session, LineSource& reader, bool interactive, std::ostream& err) {
  const bool echo = !interactive && !session.Quiet();
  int status = 0;
  std::string line;
  while (!session.QuitRequested() && reader.Next(line)) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
      if (echo)
        session.Out() << Trim(line) << '\n';
      continue;
    }
    Action action;
    try {
      if (Lower(words[0]) == "source") {
        if (echo)
          session.Out() << "> " << Trim(line) << '\n';
        session.Out().flush();
        if (RunSource(session, words, err) != 0) {
          status = 1;
          if (!interactive)
            break;
        }
        continue;
      }
      action = PrepareLine(session, words);
    } catch (const ScenarioError& error) {
      session.Out().flush();
      Report(err, reader, interactive, error.what());
      status = 1;
      if (!interactive)
        break;
      continue;
    }
    if (echo)
      session.Out() << "> " << Trim(line) << '\n';
    try {
      action(session);
    } catch (const ExpectationFailed& failure) {
      session.ExpectFailed();
      session.Out().flush();
      Report(err, reader, interactive, failure.what());
    }
    session.Out().flush();
  }
  return status;
}

int FinishRun(const Session& session, int status, bool strict, std::ostream& err) {
  const int failures = session.UnexpectedFailures();
  const int expects = session.FailedExpects();
  if (!strict || (failures == 0 && expects == 0))
    return status;
  err << "halbd-sim: strict: " << Counted(failures, "operation", "s") << " failed, "
      << Counted(expects, "expect", "s") << " did not hold" << std::endl;
  return 1;
}

}  // namespace halbdsim
