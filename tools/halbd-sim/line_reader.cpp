#include "line_reader.h"

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace halbdsim {

namespace {

constexpr const char* kBlanks = " \t\r";
constexpr const char* kPrompt = "halbd-sim> ";

}  // namespace

std::string Trim(const std::string& line) {
  const size_t first = line.find_first_not_of(kBlanks);
  if (first == std::string::npos)
    return "";
  return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

std::string OrList(const std::vector<std::string>& words) {
  std::string list;
  for (size_t i = 0; i < words.size(); ++i) {
    if (i > 0)
      list += i + 1 == words.size() ? " or " : ", ";
    list += words[i];
  }
  return list;
}

std::vector<std::string> SplitWords(const std::string& line) {
  std::istringstream stream(line.substr(0, line.find('#')));
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

LineReader::LineReader(std::istream& in, std::string sourceName, std::ostream* prompt)
    : in_(in), sourceName_(std::move(sourceName)), prompt_(prompt) {}

bool LineReader::Next(std::string& line) {
  if (prompt_ != nullptr)
    *prompt_ << kPrompt << std::flush;
  if (!std::getline(in_, line)) {
    if (prompt_ != nullptr)
      *prompt_ << '\n';
    return false;
  }
  ++lineNumber_;
  return true;
}

std::string OpenScenarioFile(std::ifstream& file, const std::string& path) {
  std::error_code ignored;
  int error = std::filesystem::is_directory(path, ignored) ? EISDIR : 0;
  if (error == 0) {
    file.open(path);
    error = file.is_open() ? 0 : errno;
  }
  if (error == 0)
    return "";
  return "cannot read " + path + ": " + std::error_code(error, std::generic_category()).message();
}

}  // namespace halbdsim
