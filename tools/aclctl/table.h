// Text tables with aligned columns.
#ifndef TOOLS_ACLCTL_TABLE_H_
#define TOOLS_ACLCTL_TABLE_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/aclctl/terminal.h"

namespace aclctl {

class Table {
 public:
  enum class Align { kLeft, kRight };
  struct Column {
    std::string title;
    Align align = Align::kLeft;
    bool wraps = false;  // long cells take several lines where the terminal is narrow
  };

  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  // As many cells as columns.
  void AddRow(std::vector<std::string> cells, std::optional<Colour> colour = std::nullopt) {
    rows_.push_back({std::move(cells), colour});
  }
  bool empty() const { return rows_.empty(); }
  // Title and rows, a line each, without blanks at the ends of lines. Control characters in cells
  // are escaped. Fits the terminal at standard output, if there is one.
  std::string Print() const;

 private:
  std::vector<Column> columns_;
  struct Row {
    std::vector<std::string> cells;
    std::optional<Colour> colour;
  };
  std::vector<Row> rows_;
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_TABLE_H_
