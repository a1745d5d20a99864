// Tables of the show commands: aligned text for people, JSON for programs.
#ifndef HALBD_SIM_TABLE_H
#define HALBD_SIM_TABLE_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace halbdsim {

// How a column's cells read in JSON: text as strings, "-" as null; numbers (decimal or 0x hex) as
// numbers, "-" as null; lists (blank-separated words) as arrays, "-" as empty; flags ("yes" or "-")
// as booleans; rule lists ("; "-separated) as arrays of strings.
enum class ColumnKind { Text, Number, List, Flag, RuleList };

struct Column {
  // Implicit, so that a table's columns are written as a brace list of names.
  // cppcheck-suppress noExplicitConstructor
  Column(const char* columnName, ColumnKind columnKind = ColumnKind::Text)  // NOLINT
      : name(columnName), kind(columnKind) {}
  std::string name;
  ColumnKind kind;
};

class Table {
 public:
  explicit Table(std::vector<Column> columns);
  // A row of as many cells as there are columns.
  void AddRow(std::vector<std::string> cells);
  // The header and the rows, each column as wide as its widest cell, two blanks apart, without
  // trailing blanks; "(none)" under the header of an empty table.
  std::vector<std::string> Lines() const;
  // [{"<column>": value, ...}, ...], one object per row.
  nlohmann::ordered_json JsonRows() const;

  const std::vector<Column>& Columns() const { return columns_; }
  const std::vector<std::vector<std::string>>& Rows() const { return rows_; }
  // The index of a named column, or -1.
  int ColumnIndex(const std::string& name) const;
  // Keeps the rows for which keep(row) holds.
  template <typename Keep>
  void KeepRows(Keep keep) {
    std::vector<std::vector<std::string>> kept;
    for (auto& row : rows_) {
      if (keep(row))
        kept.push_back(std::move(row));
    }
    rows_ = std::move(kept);
  }

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace halbdsim

#endif  // HALBD_SIM_TABLE_H
