// Rows for people: columns side by side, no wider than the terminal.
#ifndef TOOLS_PPPOEIACTL_SHOW_TEXT_TABLE_H
#define TOOLS_PPPOEIACTL_SHOW_TEXT_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

struct table_column {
  std::string head;
  bool number = false;  // right-aligned
  bool text = false;    // may be cut where the terminal is too narrow, the longest first
};

class text_table {
public:
  explicit text_table(std::vector<table_column> columns) : columns_(std::move(columns)) {}

  // One text a column. `marked`: to be seen at once, where there are colours.
  void add(std::vector<std::string> cells, bool marked = false);

  // The whole table; `limit` of its width, 0: none. What is cut ends in an ellipsis.
  std::string text(size_t limit, bool colours) const;

private:
  std::vector<size_t> widths(size_t limit) const;

  struct table_row {
    std::vector<std::string> cells;
    bool marked;
  };
  std::vector<table_column> columns_;
  std::vector<table_row> rows_;
};

// Columns of the terminal that standard output is; 0 when it is none.
size_t terminal_width();

// Whether it is one, and its user did not set NO_COLOR.
bool terminal_has_colours();

#endif
