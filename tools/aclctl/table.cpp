// Text tables: see table.h.
#include "tools/aclctl/table.h"

#include <algorithm>

namespace aclctl {

std::string Table::Print() const {
  std::vector<size_t> widths;
  for (size_t i = 0; i < columns_.size(); ++i) {
    size_t width = columns_[i].title.size();
    for (const auto& row : rows_) width = std::max(width, row[i].size());
    widths.push_back(width);
  }
  std::string text;
  const auto print_row = [&](const auto& cell_of) {
    std::string line;
    for (size_t i = 0; i < columns_.size(); ++i) {
      const std::string& cell = cell_of(i);
      const std::string blanks(widths[i] - cell.size(), ' ');
      if (i > 0) line += "  ";
      line += columns_[i].align == Align::kRight ? blanks + cell : cell + blanks;
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  };
  print_row([&](size_t i) -> const std::string& { return columns_[i].title; });
  for (const auto& row : rows_) {
    print_row([&](size_t i) -> const std::string& { return row[i]; });
  }
  return text;
}

}  // namespace aclctl
