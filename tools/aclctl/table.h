// Text tables with aligned columns.
#ifndef TOOLS_ACLCTL_TABLE_H_
#define TOOLS_ACLCTL_TABLE_H_

#include <string>
#include <vector>

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
  void AddRow(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  bool empty() const { return rows_.empty(); }
  // Title and rows, a line each, without blanks at the ends of lines. Control characters in cells
  // are escaped. `width` is that of the terminal in characters, 0 where any is right.
  std::string Print(size_t width = 0) const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_TABLE_H_
