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
  // A record only the text has (a blank line of the scenario).
  Record& TextOnly() {
    textOnly_ = true;
    return *this;
  }
  // A record that has no text (an empty list printed as no line at all).
  Record& JsonOnly() {
    jsonOnly_ = true;
    return *this;
  }
  // Rendered as its JSON object also in the text (show TABLE --json).
  Record& AsJsonInText() {
    jsonInText_ = true;
    return *this;
  }

  const std::string& Kind() const { return kind_; }
  Role GetRole() const { return role_; }
  const std::string& TextForm() const { return text_; }
  const Json& Fields() const { return fields_; }
  bool Indented() const { return indented_; }
  bool IsTextOnly() const { return textOnly_; }
  bool IsJsonOnly() const { return jsonOnly_; }
  bool JsonInText() const { return jsonInText_; }

 private:
  std::string kind_;
  Role role_;
  std::string text_;
  Json fields_ = Json::object();
  bool indented_ = true;
  bool textOnly_ = false;
  bool jsonOnly_ = false;
  bool jsonInText_ = false;
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
