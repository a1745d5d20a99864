#include "runner.h"

#include <fstream>
#include <memory>

#include "commands.h"

namespace halbdsim {

namespace {

// A file that sources itself, directly or not, would never end.
constexpr size_t kMaxSourceDepth = 16;

// A mistake of a line, or an expect that did not hold: "FILE:LINE: message" in a batch run, the
// plain message in the shell.
void Report(Session& session, std::ostream& err, const LineSource& reader, bool plain,
            const char* kind, const std::string& message) {
  Record record(kind, Role::Result);
  if (!plain)
    record.Text(reader.SourceName() + ":" + std::to_string(reader.LineNumber()) + ": ");
  session.EmitError(err, record.Add("message", message));
}

// A line of the scenario as it is read: "> command", or a comment or blank line as it is.
void Echo(Session& session, const std::string& line, bool command) {
  if (command)
    session.Emit(Record("command", Role::Echo).Unindented().Text("> " + Trim(line)));
  else if (Trim(line).empty())
    session.Emit(Record("blank", Role::Echo).Unindented().RenderedIn(Rendering::TextOnly));
  else
    session.Emit(Record("comment", Role::Echo).Unindented().Add("text", Trim(line)));
}

// A scenario file being read by "source", with the stream it owns.
class SourcedFile : public LineSource {
 public:
  explicit SourcedFile(const std::string& path)
      : problem_(OpenScenarioFile(file_, path)), reader_(file_, path, nullptr) {}
  // Why the file cannot be read; empty when it can.
  const std::string& Problem() const { return problem_; }
  bool Next(std::string& line) override { return reader_.Next(line); }
  int LineNumber() const override { return reader_.LineNumber(); }
  const std::string& SourceName() const override { return reader_.SourceName(); }

 private:
  std::ifstream file_;
  std::string problem_;
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
  if (!file->Problem().empty())
    throw ScenarioError(file->Problem());
  return file;
}

std::string Counted(int count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// The place of the line just read, its command without the comment; "<stdin>" lines of the
// shell count from its start.
Place PlaceOf(const LineSource& source, const std::string& line) {
  return Place{source.SourceName(), source.LineNumber(), JoinWords(SplitWords(line))};
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
    session.SetPlace(PlaceOf(current, line));
    if (words.empty()) {
      if (echo)
        Echo(session, line, false);
      continue;
    }
    // A mistake, or what only running a line can find wrong (a capture cut short or not written,
    // an interface the machine could not give), after what the line did: a batch run stops there,
    // the shell goes back to its prompt.
    const auto mistake = [&](const char* message) {
      session.Out().flush();
      Report(session, err, current, !batch, "error", message);
      status = 1;
      sourced.clear();
      return !interactive;
    };
    Action action;
    try {
      if (Lower(words[0]) == "source") {
        sourced.push_back(OpenSource(words, sourced.size()));
        if (echo)
          Echo(session, line, true);
        continue;
      }
      action = PrepareLine(session, words);
    } catch (const ScenarioError& error) {
      if (mistake(error.what()))
        break;
      continue;
    }
    if (echo)
      Echo(session, line, true);
    try {
      action(session);
    } catch (const ExpectationFailed& failure) {
      session.SetRangeVlan(std::nullopt);
      session.ExpectFailed(failure.what());
      Report(session, err, current, !batch, "expect-failed", failure.what());
    } catch (const ScenarioError& error) {
      if (mistake(error.what()))
        break;
    }
    session.Out().flush();
  }
  session.SetPlace(std::nullopt);
  return status;
}

int FinishRun(Session& session, int status, bool strict, std::ostream& err, bool interactive) {
  if (interactive && !strict)
    status = 0;  // the shell's mistakes were told as they happened; leaving it is no failure
  const int failures = session.UnexpectedFailures();
  const int expects = session.FailedExpects();
  if (!strict || (failures == 0 && expects == 0))
    return status;
  session.SetPlace(std::nullopt);
  Record summary("strict", Role::Result);
  summary.Text("halbd-sim: strict: ")
      .Add("operations-failed", failures, Counted(failures, "operation"));
  summary.Text(" failed, ").Add("expects-failed", expects, Counted(expects, "expect"));
  summary.Text(" did not hold:");
  Json lines = Json::array();
  for (const Session::Failure& failure : session.Failures()) {
    const Place& place = failure.place;
    summary.Text("\n  " + place.file + ":" + std::to_string(place.line) + ": " + place.command);
    if (!failure.expect)
      summary.Text(" (" + failure.what + ")");
    lines.push_back({{"file", place.file},
                     {"line", place.line},
                     {"command", place.command},
                     {"what", failure.what}});
  }
  session.EmitError(err, summary.Set("failures", lines));
  return 1;
}

}  // namespace halbdsim
