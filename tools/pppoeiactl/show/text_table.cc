#include "tools/pppoeiactl/show/text_table.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr size_t gap = 2;
constexpr size_t text_least = 8;
constexpr char ellipsis[] = "\xe2\x80\xa6";

// Cells are printable ASCII: a byte is a column.
std::string cut(const std::string& text, size_t width)
{
  return text.size() <= width ? text : text.substr(0, width - 1) + ellipsis;
}

std::string padded(const std::string& cell, size_t width, bool right)
{
  const std::string shown = cut(cell, width);
  const std::string blanks(width - std::min(cell.size(), width), ' ');
  return right ? blanks + shown : shown + blanks;
}

}  // namespace

void text_table::add(std::vector<std::string> cells, bool marked)
{
  rows_.push_back({std::move(cells), marked});
}

std::vector<size_t> text_table::widths(size_t limit) const
{
  std::vector<size_t> widths;
  for (size_t i = 0; i < columns_.size(); ++i) {
    widths.push_back(columns_[i].head.size());
    for (const table_row& row : rows_)
      widths[i] = std::max(widths[i], row.cells[i].size());
  }
  const auto total = [&] { return std::accumulate(widths.begin(), widths.end(), gap * (widths.size() - 1)); };
  while (limit != 0 && total() > limit) {
    size_t* longest = nullptr;
    for (size_t i = 0; i < columns_.size(); ++i)
      if (columns_[i].text && widths[i] > text_least && (!longest || widths[i] > *longest))
        longest = &widths[i];
    if (!longest)
      break;
    --*longest;
  }
  return widths;
}

std::string text_table::text(size_t limit, bool colours) const
{
  const std::vector<size_t> width = widths(limit);
  std::string whole;
  const auto put = [&](const std::vector<std::string>& cells, const char* colour) {
    std::string line;
    size_t used = 0;
    for (size_t i = 0; i < cells.size(); ++i) {
      const size_t between = i > 0 ? gap : 0;
      if (limit != 0 && i > 0 && used + between + width[i] > limit) {
        line += used < limit ? ellipsis : "";
        break;
      }
      line += std::string(between, ' ') + padded(cells[i], width[i], columns_[i].number);
      used += between + width[i];
    }
    line.erase(line.find_last_not_of(' ') + 1);
    whole += colours && *colour ? colour + line + "\x1b[0m\n" : line + "\n";
  };
  std::vector<std::string> heads;
  for (const table_column& column : columns_)
    heads.push_back(column.head);
  put(heads, "\x1b[1m");
  for (const table_row& row : rows_)
    put(row.cells, row.marked ? "\x1b[31m" : "");
  return whole;
}

size_t terminal_width()
{
  winsize size{};
  return isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool terminal_has_colours()
{
  const char* refused = std::getenv("NO_COLOR");
  const char* kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) && !(refused && *refused) && !(kind && std::string(kind) == "dumb");
}
