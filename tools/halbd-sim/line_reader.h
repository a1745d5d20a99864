// Reading scenario lines and reporting mistakes in them.
#ifndef HALBD_SIM_LINE_READER_H
#define HALBD_SIM_LINE_READER_H

#include <fstream>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace halbdsim {

// A mistake in one scenario line (unknown command or name, bad number, missing argument). It is
// raised while the line is checked, before any of it runs, and reported with the line's place.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The line without surrounding blanks.
std::string Trim(const std::string& line);

// The blank-separated words of a line, its comment ('#' to the end of the line) left out.
std::vector<std::string> SplitWords(const std::string& line);

// "a, b or c": the words as a message offers them.
std::string OrList(const std::vector<std::string>& words);

// Where the lines of a scenario or a shell session come from.
class LineSource {
 public:
  virtual ~LineSource() = default;
  // The next line; false at the end of the input.
  virtual bool Next(std::string& line) = 0;
  virtual int LineNumber() const = 0;
  virtual const std::string& SourceName() const = 0;
};

// Hands out the lines of a stream one by one and knows where each came from. With a prompt
// stream it asks for every line there (the shell on a terminal without line editing).
class LineReader : public LineSource {
 public:
  LineReader(std::istream& in, std::string sourceName, std::ostream* prompt);

  bool Next(std::string& line) override;
  int LineNumber() const override { return lineNumber_; }
  const std::string& SourceName() const override { return sourceName_; }

 private:
  std::istream& in_;
  std::string sourceName_;
  std::ostream* prompt_;
  int lineNumber_ = 0;
};

// Opens a scenario file; "cannot read PATH: why" when it cannot be read. A directory is refused
// here: a stream opens one without complaint and then reads nothing from it.
std::string OpenScenarioFile(std::ifstream& file, const std::string& path);

}  // namespace halbdsim

#endif  // HALBD_SIM_LINE_READER_H
