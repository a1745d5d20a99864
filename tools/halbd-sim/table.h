// Aligned text tables for the show commands.
#ifndef HALBD_SIM_TABLE_H
#define HALBD_SIM_TABLE_H

#include <string>
#include <vector>

namespace halbdsim {

class Table {
 public:
  explicit Table(std::vector<std::string> header);
  // A row of as many cells as the header has columns.
  void AddRow(std::vector<std::string> cells);
  // The header and the rows, each column as wide as its widest cell, two blanks apart, without
  // trailing blanks; "(none)" under the header of an empty table.
  std::vector<std::string> Lines() const;

 private:
  std::vector<std::vector<std::string>> rows_;  // the header first
};

}  // namespace halbdsim

#endif  // HALBD_SIM_TABLE_H
