#include "runner.h"

#include <cerrno>
#include <fstream>
#include <memory>
#include <system_error>

#include "commands.h"

namespace halbdsim {

namespace {

// A file that sources itself, directly or not, would never end.
constexpr size_t kMaxSourceDepth = 16;

void Report(std::ostream& err, const LineSource& reader, bool plain, const std::string& message) {
  if (plain)
    err << message << std::endl;
  else
    ReportError(err, reader.SourceName(), reader.LineNumber(), message);
}

// A scenario file being read by "source", with the stream it owns.
class SourcedFile : public LineSource {
 public:
  explicit SourcedFile(const std::string& path) : file_(path), reader_(file_, path, nullptr) {}
  bool Opened() const { return file_.is_open(); }
  bool Next(std::string& line) override { return reader_.Next(line); }
  int LineNumber() const override { return reader_.LineNumber(); }
  const std::string& SourceName() const override { return reader_.SourceName(); }

 private:
  std::ifstream file_;
  LineReader reader_;
};

std::unique_ptr<SourcedFile> OpenSource(const std::vector<std::string>& words, size_t depth) {
  if (words.size() != 2) {
    throw ScenarioError(words.size() < 2 ? "missing file"
                                         : "unexpected argument '" + words[2] + "'");
  }
  if (depth >= kMaxSourceDepth)
    throw ScenarioError("source nested deeper than " + std::to_string(kMaxSourceDepth));
  auto file = std::make_unique<SourcedFile>(words[1]);
  if (!file->Opened()) {
    throw ScenarioError("cannot read " + words[1] + ": " +
                        std::error_code(errno, std::generic_category()).message());
  }
  return file;
}

std::string Counted(int count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

int RunScenario(Session& session, LineSource& reader, bool interactive, std::ostream& err) {
  // The shell itself, and under it the files that "source" is reading, innermost last. A file's
  // lines run as a batch: echoed, and its first mistake ends it.
  std::vector<std::unique_ptr<SourcedFile>> sourced;
  int status = 0;
  std::string line;
  while (!session.QuitRequested()) {
    LineSource* source = &reader;
    if (!sourced.empty())
      source = sourced.back().get();
    LineSource& current = *source;
    const bool batch = !interactive || !sourced.empty();
    const bool echo = batch && !session.Quiet();
    if (!current.Next(line)) {
      if (sourced.empty())
        break;
      sourced.pop_back();
      continue;
    }
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
      if (echo)
        session.Out() << Trim(line) << '\n';
      continue;
    }
    // A refused line: one that is wrong, or that needs what the machine could not give (an
    // interface) when it runs. A batch run ends there; the shell goes back to its prompt.
    const auto refuse = [&](const ScenarioError& error) {
      session.Out().flush();
      Report(err, current, !batch, error.what());
      status = 1;
      sourced.clear();
      return interactive;
    };
    Action action;
    try {
      if (Lower(words[0]) == "source") {
        sourced.push_back(OpenSource(words, sourced.size()));
        if (echo)
          session.Out() << "> " << Trim(line) << '\n';
        continue;
      }
      action = PrepareLine(session, words);
    } catch (const ScenarioError& error) {
      if (!refuse(error))
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
      Report(err, current, !batch, failure.what());
    } catch (const ScenarioError& error) {
      if (!refuse(error))
        break;
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
  err << "halbd-sim: strict: " << Counted(failures, "operation") << " failed, "
      << Counted(expects, "expect") << " did not hold" << std::endl;
  return 1;
}

}  // namespace halbdsim
