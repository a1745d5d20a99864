#include "runner.h"

#include "commands.h"

namespace halbdsim {

int RunScenario(Session& session, LineReader& reader, bool interactive, std::ostream& err) {
  int status = 0;
  std::string line;
  while (!session.QuitRequested() && reader.Next(line)) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
      if (!interactive)
        session.Out() << Trim(line) << '\n';
      continue;
    }
    Action action;
    try {
      action = PrepareLine(session, words);
    } catch (const ScenarioError& error) {
      session.Out().flush();
      ReportError(err, reader.SourceName(), reader.LineNumber(), error.what());
      status = 1;
      if (!interactive)
        break;
      continue;
    }
    if (!interactive)
      session.Out() << "> " << Trim(line) << '\n';
    action(session);
    session.Out().flush();
  }
  return status;
}

}  // namespace halbdsim
