#include "tools/pppoeiactl/show/commands.h"

#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/format/line_view.h"
#include "tools/pppoeiactl/show/text_table.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

enum class looks { text, word, number };

struct line_column {
  std::string_view name;
  looks as;
  bool brief;
  bool wide;  // has a place where no columns are asked for
};
constexpr line_column line_columns[] = {
    {"bridge", looks::word, true, true},        {"port", looks::number, true, true},
    {"name", looks::text, true, true},          {"side", looks::word, true, true},
    {"trust", looks::word, true, true},         {"state", looks::word, true, true},
    {"vlans", looks::text, false, true},        {"circuit-id", looks::text, false, true},
    {"remote-id", looks::text, false, true},    {"padi", looks::number, false, true},
    {"padr", looks::number, false, true},       {"pado", looks::number, false, true},
    {"pads", looks::number, false, true},       {"padt", looks::number, false, true},
    {"dropped", looks::number, false, true},    {"unknown", looks::number, false, false},
    {"malformed", looks::number, false, false}, {"unchanged", looks::number, false, false},
};
constexpr size_t column_count = std::size(line_columns);
constexpr size_t first_counter = 9;
constexpr size_t dropped = 14;

// A line's texts, one a column.
using line_row = std::vector<std::string>;

size_t column_find(const std::string& name)
{
  words names;
  for (size_t i = 0; i < column_count; ++i) {
    if (line_columns[i].name == name)
      return i;
    names.emplace_back(line_columns[i].name);
  }
  std::string list;
  for (const std::string& known : names)
    list += (list.empty() ? "" : ", ") + known;
  const auto meant = suggestion(name, names);
  throw command_error(exit_usage, "show lines: '" + name + "' is no column" +
                                      (meant ? "; did you mean '" + *meant + "'?" : " (" + list + ")"));
}

struct filter {
  size_t column;
  std::string_view kind;
  std::string value;

  bool lets_pass(const line_row& row) const
  {
    const std::string& cell = row[column];
    if (kind == "~")
      return cell.find(value) != std::string::npos;
    return (cell == value) == (kind == "=");
  }
};

std::optional<filter> filter_parse(const std::string& word)
{
  for (const std::string_view kind : {"!=", "~", "="})
    if (const size_t at = word.find(kind); at != std::string::npos)
      return filter{column_find(word.substr(0, at)), kind, word.substr(at + kind.size())};
  return std::nullopt;
}

// What one command line asks for.
struct wanted_lines {
  words bridges;
  std::vector<filter> filters;
  std::vector<size_t> columns;
  std::optional<size_t> sort;
};

std::vector<size_t> columns_parse(const std::optional<std::string>& list, bool brief)
{
  std::vector<size_t> columns;
  if (!list) {
    for (size_t i = 0; i < column_count; ++i)
      if (brief ? line_columns[i].brief : line_columns[i].wide)
        columns.push_back(i);
    return columns;
  }
  for (size_t begin = 0; begin <= list->size();) {
    const size_t end = std::min(list->find(',', begin), list->size());
    columns.push_back(column_find(list->substr(begin, end - begin)));
    begin = end + 1;
  }
  return columns;
}

wanted_lines wanted_parse(const context& context, const given_words& given)
{
  wanted_lines wanted;
  for (const std::string& word : given.arguments) {
    if (const auto parsed = filter_parse(word))
      wanted.filters.push_back(*parsed);
    else
      wanted.bridges.push_back(word);
  }
  wanted.columns = columns_parse(given.value("--columns"), given.has("-b"));
  if (const auto sort = given.value("--sort"))
    wanted.sort = column_find(*sort);
  if (wanted.bridges.empty())
    wanted.bridges = bridges_of(context);
  return wanted;
}

// The lines of one bridge.
class line_reader {
public:
  line_reader(const context& context, const std::string& bridge)
      : context_(context), bridge_(bridge), bridge_on_(word_of("pppoeia_bridge_state_get", {bridge}) == "on"),
        inspector_(context, bridge)
  {}

  line_row read(uint32_t port)
  {
    const words object{bridge_, std::to_string(port)};
    const std::string side = word_of("pppoeia_port_state_get", object);
    std::vector<uint32_t> vlans;
    for (const pppoeia_port_vlan_entry& entry : port_vlans_of(context_, bridge_, port))
      vlans.push_back(static_cast<uint16_t>(entry.vlan_id));
    const line_view view = inspector_.view(port, no_vlan);
    line_row row{bridge_,
                 object[1],
                 inspector_.name(port),
                 side,
                 word_of("pppoeia_port_trust_get", object),
                 bridge_on_ && side != "disabled" ? "on" : "off",
                 vlans.empty() ? "" : ranges_text(vlans),
                 view.circuit_id.text,
                 view.remote_id.text};
    report counters;
    const api::operation& stats = ::row("pppoeia_port_stats_get");
    counters.add(stats, context_.demand(stats, object));
    for (const auto& [name, value] : counters.lines())
      row.push_back(value);
    return row;
  }

private:
  std::string word_of(std::string_view getter, const words& object) const
  {
    const api::operation& operation = *api::find_operation(getter);
    const api::argument& told = operation.arguments().back();
    return agent_client::number_word(told,
                                     agent_client::number_of(told, context_.demand(operation, object).buffers.back()));
  }

  const context& context_;
  std::string bridge_;
  bool bridge_on_;
  line_inspector inspector_;
};

bool before(const line_row& a, const line_row& b, size_t column)
{
  if (line_columns[column].as == looks::number)
    return std::stoull(a[column]) < std::stoull(b[column]);
  return a[column] < b[column];
}

std::vector<line_row> rows_read(const context& context, const wanted_lines& wanted)
{
  std::vector<line_row> rows;
  for (const std::string& bridge : wanted.bridges) {
    line_reader reader(context, bridge);
    for (const uint32_t port : ports_of(context, bridge)) {
      line_row row = reader.read(port);
      if (std::ranges::all_of(wanted.filters, [&](const filter& one) { return one.lets_pass(row); }))
        rows.push_back(std::move(row));
    }
  }
  if (wanted.sort)
    std::ranges::stable_sort(rows, [&](const line_row& a, const line_row& b) { return before(a, b, *wanted.sort); });
  return rows;
}

nlohmann::ordered_json row_json(const line_row& row)
{
  nlohmann::ordered_json line;
  for (size_t i = 0; i < column_count; ++i) {
    const std::string name(line_columns[i].name);
    if (line_columns[i].as == looks::number)
      line[name] = std::stoull(row[i]);
    else if (line_columns[i].as == looks::text)
      json_put_text(line, name, row[i]);
    else
      line[name] = row[i];
  }
  return line;
}

void print_json(const std::vector<line_row>& rows)
{
  nlohmann::ordered_json json{{"version", json_version}, {"lines", nlohmann::ordered_json::array()}};
  for (const line_row& row : rows)
    json["lines"].push_back(row_json(row));
  std::printf("%s\n", json.dump().c_str());
}

std::string cell_text(const context& context, const line_row& row, size_t column)
{
  if (column < first_counter || !context.watch)
    return printable(row[column]);
  const std::string key = row[0] + "/" + row[1] + "/" + std::string(line_columns[column].name);
  return row[column] + context.watch->rate(key, std::stoull(row[column]));
}

void print_table(const context& context, const std::vector<line_row>& rows, const std::vector<size_t>& columns)
{
  std::vector<table_column> heads;
  for (const size_t i : columns)
    heads.push_back(
        {std::string(line_columns[i].name), line_columns[i].as == looks::number, line_columns[i].as == looks::text});
  text_table table(heads);
  for (const line_row& row : rows) {
    std::vector<std::string> cells;
    for (const size_t i : columns)
      cells.push_back(cell_text(context, row, i));
    table.add(std::move(cells), row[dropped] != "0");
  }
  std::fputs(table.text(terminal_width(), terminal_has_colours()).c_str(), stdout);
}

void show(const context& context, const wanted_lines& wanted)
{
  const std::vector<line_row> rows = rows_read(context, wanted);
  context.json ? print_json(rows) : print_table(context, rows, wanted.columns);
}

}  // namespace

void show_lines_run(const context& context, const given_words& given)
{
  show(context, wanted_parse(context, given));
}

void show_lines_of(const context& context, const std::string& bridge)
{
  show(context, {{bridge}, {}, columns_parse({}, true), {}});
}
