// Tables of the show commands: aligned text for people, JSON for programs.
#ifndef HALBD_SIM_TABLE_H
#define HALBD_SIM_TABLE_H

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace halbdsim {

// How a column's cells given as text alone read in JSON: text as strings, "-" as null; numbers
// (decimal or 0x hex) as numbers, "-" as null; lists (blank-separated words) as arrays, "-" as
// empty; flags ("yes" or "-") as booleans; rule lists ("; "-separated) as arrays of strings.
enum class ColumnKind { Text, Number, List, Flag, RuleList };

struct Column {
  // Implicit, so that a table's columns are written as a brace list of names.
  // cppcheck-suppress noExplicitConstructor
  Column(const char* columnName, ColumnKind columnKind = ColumnKind::Text)  // NOLINT
      : name(columnName), kind(columnKind) {}
  std::string name;
  ColumnKind kind;
};

// A cell: the text the aligned table shows and the value JSON gives it. A cell of text alone
// reads in JSON by its column's kind.
struct Cell {
  // Implicit, so that a row is written as a brace list of texts and {text, value} pairs.
  // cppcheck-suppress noExplicitConstructor
  Cell(std::string cellText) : text(std::move(cellText)) {}  // NOLINT(google-explicit-constructor)
  // cppcheck-suppress noExplicitConstructor
  Cell(const char* cellText) : text(cellText) {}  // NOLINT(google-explicit-constructor)
  Cell(std::string cellText, nlohmann::ordered_json cellValue)
      : text(std::move(cellText)), value(std::move(cellValue)) {}
  std::string text;
  std::optional<nlohmann::ordered_json> value;
};

class Table {
 public:
  explicit Table(std::vector<Column> columns);
  // A row of as many cells as there are columns.
  void AddRow(std::vector<Cell> cells);
  // A row built as texts alone; a brace list goes to the overload above.
  template <typename Text, typename = std::enable_if_t<std::is_convertible_v<Text, std::string>>>
  void AddRow(const std::vector<Text>& cells) {
    AddRow(std::vector<Cell>(cells.begin(), cells.end()));
  }
  // The header and the rows, each column as wide as its widest cell, two blanks apart, without
  // trailing blanks; "(none)" under the header of an empty table.
  std::vector<std::string> Lines() const;
  // [{"<column>": value, ...}, ...], one object per row.
  nlohmann::ordered_json JsonRows() const;

  // A column after the others, its cell in each row made from that row's texts.
  void AppendColumn(Column column,
                    const std::function<Cell(const std::vector<std::string>& row)>& cellOf);

  const std::vector<Column>& Columns() const { return columns_; }
  const std::vector<std::vector<std::string>>& Rows() const { return rows_; }
  // The index of a named column, or -1.
  int ColumnIndex(const std::string& name) const;
  // Keeps the rows for which keep(row) holds.
  template <typename Keep>
  void KeepRows(Keep keep) {
    size_t kept = 0;
    for (size_t row = 0; row < rows_.size(); ++row) {
      if (!keep(rows_[row]))
        continue;
      // A row kept in its place stays: moving a vector onto itself would empty it.
      if (kept != row) {
        rows_[kept] = std::move(rows_[row]);
        values_[kept] = std::move(values_[row]);
      }
      ++kept;
    }
    rows_.resize(kept);
    values_.resize(kept);
  }

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
  // Per row, the values of the cells that came typed.
  std::vector<std::vector<std::optional<nlohmann::ordered_json>>> values_;
};

}  // namespace halbdsim

#endif  // HALBD_SIM_TABLE_H
