#include "record.h"

#include <cstdio>

namespace halbdsim {

Record& Record::Text(const std::string& text) {
  text_ += text;
  return *this;
}

Record& Record::Add(const std::string& key, Json value, const std::string& text) {
  fields_[key] = std::move(value);
  text_ += text;
  return *this;
}

Record& Record::Add(const std::string& key, const std::string& value) {
  return Add(key, Json(value), value);
}

Record& Record::Add(const std::string& key, long long value) {
  return Add(key, Json(value), std::to_string(value));
}

Record& Record::Add(const std::string& key, bool value) {
  return Add(key, Json(value), value ? "true" : "false");
}

Record& Record::AddHex(const std::string& key, unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return Add(key, Json(value), text);
}

Record& Record::Set(const std::string& key, Json value) {
  fields_[key] = std::move(value);
  return *this;
}

Json JsonOf(const Record& record, const std::optional<Place>& place,
            std::optional<unsigned> rangeVlan) {
  Json object = {{"kind", record.Kind()}};
  if (place) {
    object["file"] = place->file;
    object["line"] = place->line;
    if (!place->command.empty())  // comment lines have none
      object["command"] = place->command;
  }
  // A range line's records say which of its VLANs they are for; a record that names a VLAN of
  // its own names the same one.
  if (rangeVlan && !record.Fields().contains("vlan"))
    object["vlan"] = *rangeVlan;
  for (const auto& [key, value] : record.Fields().items())
    object[key] = value;
  return object;
}

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += (text.empty() ? "" : "\n") + line;
  return text;
}

std::string JsonLine(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string TextOf(const Record& record, std::optional<unsigned> rangeVlan) {
  std::string head = record.Indented() ? "  " : "";
  if (rangeVlan)
    head += "vlan" + std::to_string(*rangeVlan) + ": ";
  std::string text;
  const std::string& body = record.TextForm();
  // A record of several lines (a rule dump in a log line, a table) keeps each under its command.
  for (size_t start = 0;;) {
    const size_t end = body.find('\n', start);
    const std::string line = body.substr(start, end - start);
    text += head + line + '\n';
    if (end == std::string::npos || end + 1 == body.size())
      break;
    start = end + 1;
  }
  return text;
}

Outcome& Outcome::Append(Outcome other) {
  for (Record& record : other.records)
    records.push_back(std::move(record));
  if (!code || (other.code && *other.code < 0 && *code >= 0))
    code = other.code;
  return *this;
}

}  // namespace halbdsim
