#include "tools/pppoeiactl/show/commands.h"

#include "tools/pppoeiactl/show/status_client.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>

namespace {

using nlohmann::json;

// A value as a person reads it; "-" for one that the line has not.
std::string cell(const json& line, const char* key)
{
  const auto at = line.find(key);
  if (at == line.end())
    return "-";
  const std::string text = at->is_string() ? printable(at->get<std::string>()) : at->dump();
  return text.empty() ? "-" : text;
}

std::string setup_cell(const json& line)
{
  const auto at = line.find("setup_us");
  if (at == line.end())
    return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(at->get<uint64_t>()) / 1000);
  return text;
}

// Why it does not go on, as far as the line knows.
std::string trouble_cell(const json& line)
{
  if (line.contains("error"))
    return cell(line, "error") + (line.value("error_text", "").empty() ? "" : ": " + cell(line, "error_text"));
  return line.contains("last_drop") ? "dropped: " + cell(line, "last_drop") : "-";
}

using row = std::vector<std::string>;

row row_of(const json& line)
{
  return {cell(line, "bridge"), cell(line, "port"),       cell(line, "vlan"),    cell(line, "client"),
          cell(line, "state"),  cell(line, "session_id"), cell(line, "ac_name"), cell(line, "last_seen"),
          setup_cell(line),     cell(line, "retries"),    cell(line, "drops"),   trouble_cell(line)};
}

void table_print(const json& lines)
{
  std::vector<row> rows = {
      {"BRIDGE", "PORT", "VLAN", "CLIENT", "STATE", "SESSION", "AC", "SEEN", "SETUP", "RETRIES", "DROPS", "TROUBLE"}};
  for (const json& line : lines)
    rows.push_back(row_of(line));
  std::vector<size_t> widths(rows[0].size());
  for (const row& each : rows)
    for (size_t i = 0; i < each.size(); ++i)
      widths[i] = std::max(widths[i], each[i].size());
  for (const row& each : rows) {
    std::string text;
    for (size_t i = 0; i < each.size(); ++i)
      text += each[i] + (i + 1 < each.size() ? std::string(widths[i] + 2 - each[i].size(), ' ') : "\n");
    std::fputs(text.c_str(), stdout);
  }
}

// Each value on a line of its own.
void details_print(const json& lines)
{
  for (const json& line : lines) {
    for (const auto& [key, value] : line.items())
      std::printf("%-13s %s\n", key.c_str(), cell(line, key.c_str()).c_str());
    std::printf("\n");
  }
}

}  // namespace

void lines_run(const context& context, const given_words& given)
{
  status_page page("/lines");
  page.with_place(given.arguments);
  const auto client = given.value("--client");
  if (client)
    page.with("mac", *client);
  const json lines = status_get(page)["lines"];
  if (context.json)
    std::printf("%s\n", lines.dump(2).c_str());
  else if (!client)
    table_print(lines);
  else if (lines.empty())
    std::printf("No frame of %s has come by: look at the cable, the port's and VLAN's settings, and /drops.\n",
                printable(*client).c_str());
  else
    details_print(lines);
}
