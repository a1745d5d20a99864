// What halbd-sim says, one typed record at a time: a result, a client's notification, a log line,
// a table. Each record is built once, with every value under its JSON key and in its text form,
// and is rendered either as the text people read or as one JSON object a line, so that the two
// never drift apart.
#ifndef HALBD_SIM_RECORD_H
#define HALBD_SIM_RECORD_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halbdsim {

using Json = nlohmann::ordered_json;

// What a record is to the reader, which decides where it goes.
enum class Role {
  Echo,      // the scenario's own lines (commands, comments): not under --quiet
  Effect,    // what an operation did along the way: notifications, log lines, set-up answers
  Result,    // what a line answers: results, frame copies, expect failures; also under --quiet
  Document,  // tables and help: also under --quiet
};

// In which of the two renderings a record appears.
enum class Rendering {
  Both,
  TextOnly,    // a blank line of the scenario
  JsonOnly,    // a record that has no text (an empty trace prints no line at all)
  JsonAlways,  // its JSON object in the text too (show TABLE --json)
};

class Record {
 public:
  Record(std::string kind, Role role) : kind_(std::move(kind)), role_(role) {}

  // Text only: the words between values.
  Record& Text(const std::string& text);
  // A value under its key in JSON, and its text form in the text.
  Record& Add(const std::string& key, Json value, const std::string& text);
  Record& Add(const std::string& key, const std::string& value);
  Record& Add(const std::string& key, const char* value) { return Add(key, std::string(value)); }
  Record& Add(const std::string& key, long long value);
  Record& Add(const std::string& key, int value) { return Add(key, static_cast<long long>(value)); }
  Record& Add(const std::string& key, unsigned value) {
    return Add(key, static_cast<long long>(value));
  }
  Record& Add(const std::string& key, bool value);
  // A number the text shows as 0x hex.
  Record& AddHex(const std::string& key, unsigned value);
  // JSON only: structure that the text says in its own words.
  Record& Set(const std::string& key, Json value);
  // A record rendered at the left margin rather than indented under its command.
  Record& Unindented() {
    indented_ = false;
    return *this;
  }
  Record& RenderedIn(Rendering rendering) {
    rendering_ = rendering;
    return *this;
  }

  const std::string& Kind() const { return kind_; }
  Role GetRole() const { return role_; }
  const std::string& TextForm() const { return text_; }
  const Json& Fields() const { return fields_; }
  bool Indented() const { return indented_; }
  Rendering GetRendering() const { return rendering_; }

 private:
  std::string kind_;
  Role role_;
  std::string text_;
  Json fields_ = Json::object();
  bool indented_ = true;
  Rendering rendering_ = Rendering::Both;
};

// The scenario line a record answers.
struct Place {
  std::string file;
  int line = 0;
  std::string command;  // its words, without the comment
};

// The JSON object of a record: its kind, the line it answers, the VLAN of a range line it is
// for, then its own values.
Json JsonOf(const Record& record, const std::optional<Place>& place,
            std::optional<unsigned> rangeVlan);

// The lines as one text, newline-separated.
std::string JoinLines(const std::vector<std::string>& lines);

// A JSON object as one line: compact, newline-terminated, bytes that are not UTF-8 replaced.
std::string JsonLine(const Json& object);

// The text lines of a record, each indented under its command and, for a range line, marked
// with its VLAN.
std::string TextOf(const Record& record, std::optional<unsigned> rangeVlan);

// What an operation returns after its effects: its result records, and the code that expect
// and --strict read (none for an outcome that is a value, such as a TPID).
struct Outcome {
  std::vector<Record> records;
  std::optional<int> code;

  // The other's records after these; a failure of either is the failure of both.
  Outcome& Append(Outcome other);
};

}  // namespace halbdsim

#endif  // HALBD_SIM_RECORD_H
