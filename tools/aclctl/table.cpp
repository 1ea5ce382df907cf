// Text tables, made by libsmartcols: see table.h.
#include "tools/aclctl/table.h"

#include <libsmartcols/libsmartcols.h>

#include <cstdlib>
#include <memory>

namespace aclctl {
namespace {

constexpr char kBetweenColumns[] = "  ";

// The library fills up the last column.
std::string WithoutTrailingBlanks(const char* text) {
  std::string result;
  for (const char* c = text; *c != 0; ++c) {
    if (*c == '\n') result.erase(result.find_last_not_of(' ') + 1);
    result += *c;
  }
  return result.erase(result.find_last_not_of(' ') + 1);
}

}  // namespace

std::string Table::Print() const {
  const size_t width = TerminalWidth();
  if (rows_.empty()) {  // of which the library prints nothing
    std::string titles;
    for (const Column& column : columns_) {
      titles += (titles.empty() ? "" : kBetweenColumns) + column.title;
    }
    return titles + "\n";
  }
  const std::unique_ptr<libscols_table, void (*)(libscols_table*)> table(scols_new_table(),
                                                                         scols_unref_table);
  scols_table_set_column_separator(table.get(), kBetweenColumns);
  scols_table_set_termforce(table.get(),
                            width == 0 ? SCOLS_TERMFORCE_NEVER : SCOLS_TERMFORCE_ALWAYS);
  if (width != 0) scols_table_set_termwidth(table.get(), width);
  for (const Column& column : columns_) {
    scols_table_new_column(
        table.get(), column.title.c_str(), column.wraps ? 0.5 : 1,
        (column.align == Align::kRight ? SCOLS_FL_RIGHT : 0) | (column.wraps ? SCOLS_FL_WRAP : 0));
  }
  if (TakesColour()) scols_table_enable_colors(table.get(), 1);
  for (const Row& row : rows_) {
    libscols_line* const line = scols_table_new_line(table.get(), nullptr);
    if (row.colour.has_value()) scols_line_set_color(line, NameOf(*row.colour));
    for (size_t i = 0; i < row.cells.size(); ++i)
      scols_line_set_data(line, i, row.cells[i].c_str());
  }
  char* printed = nullptr;
  scols_print_table_to_string(table.get(), &printed);
  const std::unique_ptr<char, void (*)(void*)> owner(printed, std::free);
  return printed == nullptr ? "" : WithoutTrailingBlanks(printed) + "\n";
}

}  // namespace aclctl
