#include "table.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace halbdsim {

namespace {

nlohmann::ordered_json NumberValue(const std::string& cell) {
  char* end = nullptr;
  const long long value = std::strtoll(cell.c_str(), &end, 0);
  if (cell.empty() || *end != '\0')
    return cell == "-" ? nlohmann::ordered_json() : nlohmann::ordered_json(cell);
  return value;
}

nlohmann::ordered_json CellValue(const std::string& cell, ColumnKind kind) {
  switch (kind) {
    case ColumnKind::Number:
      return NumberValue(cell);
    case ColumnKind::List: {
      nlohmann::ordered_json list = nlohmann::ordered_json::array();
      std::istringstream words(cell == "-" ? "" : cell);
      for (std::string word; words >> word;)
        list.push_back(word);
      return list;
    }
    case ColumnKind::Flag:
      return cell == "yes";
    case ColumnKind::RuleList: {
      nlohmann::ordered_json list = nlohmann::ordered_json::array();
      for (size_t start = 0; cell != "-" && start < cell.size();) {
        const size_t end = std::min(cell.find("; ", start), cell.size());
        list.push_back(cell.substr(start, end - start));
        start = end + 2;
      }
      return list;
    }
    case ColumnKind::Text:
      break;
  }
  // "-" is the table's way of saying "none": a program reads it as null.
  return cell == "-" ? nlohmann::ordered_json() : nlohmann::ordered_json(cell);
}

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::AddRow(std::vector<Cell> cells) {
  if (cells.size() != columns_.size())
    throw std::logic_error("table row of wrong width");
  std::vector<std::string>& texts = rows_.emplace_back();
  std::vector<std::optional<nlohmann::ordered_json>>& values = values_.emplace_back();
  for (Cell& cell : cells) {
    texts.push_back(std::move(cell.text));
    values.push_back(std::move(cell.value));
  }
}

void Table::AppendColumn(Column column,
                         const std::function<Cell(const std::vector<std::string>& row)>& cellOf) {
  columns_.push_back(std::move(column));
  for (size_t row = 0; row < rows_.size(); ++row) {
    Cell cell = cellOf(rows_[row]);
    rows_[row].push_back(std::move(cell.text));
    values_[row].push_back(std::move(cell.value));
  }
}

int Table::ColumnIndex(const std::string& name) const {
  for (size_t column = 0; column < columns_.size(); ++column) {
    if (columns_[column].name == name)
      return static_cast<int>(column);
  }
  return -1;
}

std::vector<std::string> Table::Lines() const {
  std::vector<std::string> header;
  for (const Column& column : columns_)
    header.push_back(column.name);
  std::vector<size_t> widths(columns_.size(), 0);
  for (size_t column = 0; column < columns_.size(); ++column) {
    widths[column] = header[column].size();
    for (const auto& row : rows_)
      widths[column] = std::max(widths[column], row[column].size());
  }
  std::vector<std::string> lines;
  auto addLine = [&](const std::vector<std::string>& cells) {
    std::string line;
    for (size_t column = 0; column < cells.size(); ++column) {
      line += cells[column];
      if (column + 1 < cells.size())
        line += std::string(widths[column] - cells[column].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(line);
  };
  addLine(header);
  for (const auto& row : rows_)
    addLine(row);
  if (rows_.empty())
    lines.push_back("(none)");
  return lines;
}

nlohmann::ordered_json Table::JsonRows() const {
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  for (size_t row = 0; row < rows_.size(); ++row) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (size_t column = 0; column < columns_.size(); ++column) {
      const std::optional<nlohmann::ordered_json>& value = values_[row][column];
      object[columns_[column].name] =
          value ? *value : CellValue(rows_[row][column], columns_[column].kind);
    }
    rows.push_back(std::move(object));
  }
  return rows;
}

}  // namespace halbdsim
