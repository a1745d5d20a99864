#include "table.h"

#include <algorithm>
#include <stdexcept>

namespace halbdsim {

Table::Table(std::vector<std::string> header) {
  rows_.push_back(std::move(header));
}

void Table::AddRow(std::vector<std::string> cells) {
  if (cells.size() != rows_.front().size())
    throw std::logic_error("table row of wrong width");
  rows_.push_back(std::move(cells));
}

std::vector<std::string> Table::Lines() const {
  std::vector<size_t> widths(rows_.front().size(), 0);
  for (const auto& row : rows_) {
    for (size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], row[column].size());
    }
  }
  std::vector<std::string> lines;
  for (const auto& row : rows_) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
      line += row[column];
      if (column + 1 < row.size())
        line += std::string(widths[column] - row[column].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(line);
  }
  if (rows_.size() == 1)
    lines.push_back("(none)");
  return lines;
}

}  // namespace halbdsim
