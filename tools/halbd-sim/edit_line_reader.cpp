#include "edit_line_reader.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "polling_line_reader.h"

#ifdef HALBD_HAVE_LIBEDIT
#include <histedit.h>

#include <cstdio>

#include "completion.h"
#endif

namespace halbdsim {

// The environment is read when the shell starts, and the tool changes none of it.
std::string HistoryFile() {
  if (const char* file = std::getenv("HALBD_HISTORY"))  // NOLINT(concurrency-mt-unsafe)
    return file;
  if (const char* home = std::getenv("HOME"))  // NOLINT(concurrency-mt-unsafe)
    return std::string(home) + "/.halbd_history";
  return "";
}

#ifdef HALBD_HAVE_LIBEDIT

namespace {

constexpr int kHistorySize = 1000;

const char* Prompt(EditLine*) {
  return "halbd-sim> ";
}

class EditLineReader : public LineSource {
 public:
  explicit EditLineReader(Session& session)
      : session_(session),
        editLine_(el_init("halbd-sim", stdin, stdout, stderr)),
        history_(history_init()),
        historyFile_(HistoryFile()) {
    history(history_, &event_, H_SETSIZE, kHistorySize);
    history(history_, &event_, H_SETUNIQUE, 1);
    if (!historyFile_.empty())
      history(history_, &event_, H_LOAD, historyFile_.c_str());
    el_set(editLine_, EL_CLIENTDATA, this);
    el_set(editLine_, EL_EDITOR, "emacs");
    el_set(editLine_, EL_PROMPT, &Prompt);
    el_set(editLine_, EL_HIST, history, history_);
    el_set(editLine_, EL_ADDFN, "halbd-complete", "complete a word", &Complete);
    el_set(editLine_, EL_BIND, "^I", "halbd-complete", nullptr);
    // Ctrl-C abandons the line being edited instead of ending the shell: while editing, the
    // terminal hands it over as a key rather than as a signal.
    el_set(editLine_, EL_SETTY, "-d", "-isig", nullptr);
    el_set(editLine_, EL_ADDFN, "halbd-abandon", "abandon the line", &Abandon);
    el_set(editLine_, EL_BIND, "^C", "halbd-abandon", nullptr);
    // Keys are waited for together with the frames of live ports, which are forwarded meanwhile.
    el_set(editLine_, EL_GETCFN, &ReadKeyForwarding);
    el_source(editLine_, nullptr);  // the user's ~/.editrc
  }
  ~EditLineReader() override {
    el_end(editLine_);
    history_end(history_);
  }
  EditLineReader(const EditLineReader&) = delete;
  EditLineReader& operator=(const EditLineReader&) = delete;

  bool Next(std::string& line) override {
    for (;;) {
      abandoned_ = false;
      int count = 0;
      const char* text = el_gets(editLine_, &count);
      if (text == nullptr || count <= 0) {
        std::cout << std::endl;  // Ctrl-D leaves the prompt's line unfinished
        return false;
      }
      // Set by Abandon, which el_gets calls for Ctrl-C.
      if (abandoned_)  // cppcheck-suppress knownConditionTrueFalse
        continue;
      line.assign(text, static_cast<size_t>(count));
      if (!line.empty() && line.back() == '\n')
        line.pop_back();
      ++lineNumber_;
      Remember(line);
      return true;
    }
  }
  int LineNumber() const override { return lineNumber_; }
  const std::string& SourceName() const override { return sourceName_; }

 private:
  static EditLineReader& Of(EditLine* editLine) {
    void* reader = nullptr;
    el_get(editLine, EL_CLIENTDATA, &reader);
    return *static_cast<EditLineReader*>(reader);
  }

  static int ReadKeyForwarding(EditLine* editLine, wchar_t* key) {
    return ReadKey(Of(editLine).session_.Live(), STDIN_FILENO, key);
  }

  static unsigned char Abandon(EditLine* editLine, int) {
    // The line stays on the screen, marked, and the next prompt starts below it.
    const LineInfo* info = el_line(editLine);
    el_cursor(editLine, static_cast<int>(info->lastchar - info->cursor));
    std::fputs("^C\n", stdout);
    std::fflush(stdout);
    Of(editLine).abandoned_ = true;
    return CC_NEWLINE;
  }

  static unsigned char Complete(EditLine* editLine, int) {
    const LineInfo* info = el_line(editLine);
    const std::string before(info->buffer, info->cursor);
    const std::vector<std::string> matches = Completions(Of(editLine).session_, before);
    if (matches.empty())
      return CC_ERROR;
    const size_t start =
        before.find_last_of(" \t") == std::string::npos ? 0 : before.find_last_of(" \t") + 1;
    const std::string typed = before.substr(start);
    // Matching ignores case, so the typed part is replaced by the candidates' own spelling.
    // A directory is completed into, not past.
    const bool whole = matches.size() == 1 && matches[0].back() != '/';
    std::string replacement = whole ? matches[0] + " " : CommonPrefix(matches);
    if (replacement.size() > typed.size() || (matches.size() == 1)) {
      el_deletestr(editLine, static_cast<int>(typed.size()));
      el_insertstr(editLine, replacement.c_str());
      return CC_REFRESH;
    }
    std::fputc('\n', stdout);
    for (const std::string& match : matches)
      std::fprintf(stdout, "%s  ", match.c_str());
    std::fputc('\n', stdout);
    return CC_REDISPLAY;
  }

  void Remember(const std::string& line) {
    if (line.find_first_not_of(" \t") == std::string::npos)
      return;
    history(history_, &event_, H_ENTER, line.c_str());
    // Saved at once, so that a session that is killed keeps its lines.
    if (!historyFile_.empty())
      history(history_, &event_, H_SAVE, historyFile_.c_str());
  }

  Session& session_;
  EditLine* editLine_;
  History* history_;
  HistEvent event_{};
  std::string historyFile_;
  std::string sourceName_ = "<stdin>";
  int lineNumber_ = 0;
  bool abandoned_ = false;
};

}  // namespace

std::unique_ptr<LineSource> TerminalReader(Session& session) {
  return std::make_unique<EditLineReader>(session);
}

#else

std::unique_ptr<LineSource> TerminalReader(Session& session) {
  std::cerr << "halbd-sim: built without libedit: no line editing, history or completion\n";
  return std::make_unique<PollingLineReader>(STDIN_FILENO, "<stdin>", &std::cerr, session.Live());
}

#endif

}  // namespace halbdsim
