#include "tools/pppoeiactl/config/commands.h"

#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/config/card_read.h"
#include "tools/pppoeiactl/config/plan.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>

namespace config {
namespace {

constexpr char head[] =
    R"(# Written by pppoeiactl save: pppoeiactl apply reads it, and -batch does on an agent that has just started.
# What it does not name has its default. Counters, the format test data and settings of port slots without a port are
# not kept.
)";

// What no operation told, by object.
words unknown_of(const card& found)
{
  words list;
  for (const auto& [name, bridge] : found.bridges) {
    std::string keys = bridge.values[bridge_slots] ? "" : "the number of port slots (the fewest stand here)";
    for (size_t i = bridge_max_pdu; i < bridge_values; ++i)
      if (!bridge.values[i])
        keys.append(keys.empty() ? "" : ", ").append(bridge_settings()[i].key);
    if (!keys.empty())
      list.push_back(std::string("bridge ").append(name).append(": ").append(keys));
    for (const auto& [id, port] : bridge.ports) {
      keys.clear();
      for (size_t i = 0; i < port_values; ++i)
        if (!port.values[i])
          keys.append(keys.empty() ? "" : ", ").append(port_settings()[i].key);
      if (!keys.empty())
        list.push_back(port_text(name, id) + ": " + keys);
    }
  }
  return list;
}

// The card as a file makes it: values that are as a new object has them say nothing.
void complete(card& found)
{
  for (auto& [name, bridge] : found.bridges) {
    if (!bridge.values[bridge_slots])
      bridge.values[bridge_slots] = std::to_string(bridge.ports.empty() ? 1 : bridge.ports.rbegin()->first + 1);
    if (bridge.values[bridge_max_pdu] == bridge.most_pdu)
      bridge.values[bridge_max_pdu].reset();
    for (auto& [id, port] : bridge.ports)
      if (port.inherits)
        port.values[port_description] = "";
  }
}

// The commands that make it of nothing, a line between two objects.
std::string lines_of(const card& found)
{
  std::string lines;
  std::string object;
  for (const command& one : plan_make(card{}, found, {}).commands) {
    if (one.object != object && one.object.starts_with("bridge "))
      lines += "\n";
    object = one.object;
    lines += one.text() + "\n";
  }
  return lines;
}

card card_of(const context& context, const words& bridges, bool with_trial)
{
  card found = card_read(context, {with_trial, {bridges.begin(), bridges.end()}});
  for (const std::string& name : bridges)
    if (!found.bridges.contains(name))
      context.demand(row("pppoeia_bridge_state_get"), {name});  // refused, as anywhere
  std::erase_if(found.bridges, [&](const auto& one) {
    return !bridges.empty() && std::ranges::find(bridges, one.first) == bridges.end();
  });
  return found;
}

}  // namespace

void save_run(const context& context, const given_words& given)
{
  card found = card_of(context, given.arguments, !given.has("--no-trial"));
  const words unknown = unknown_of(found);
  complete(found);
  std::string file = head;
  for (const std::string& what : unknown)
    file += "# Not known, " + printable(what) + "\n";
  file += lines_of(found);
  if (context.json) {
    report report;
    report.add_text("batch", file);
    report.add_list("unknown", unknown, "");
    report.print(context);
  } else {
    std::fwrite(file.data(), 1, file.size(), stdout);
  }
  std::fflush(stdout);
  std::string names;
  for (const std::string& what : unknown)
    names += (names.empty() ? "" : "; ") + what;
  if (!unknown.empty())
    throw command_error(exit_incomplete, "save: not known of the agent: " + names);
}

}  // namespace config
