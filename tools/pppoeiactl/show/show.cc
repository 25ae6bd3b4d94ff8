#include "tools/pppoeiactl/show/commands.h"

#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/config/settings.h"
#include "tools/pppoeiactl/words/operation_words.h"

#include <algorithm>
#include <cstdio>

namespace {

using names = std::vector<std::string_view>;

// The getters of a table of settings in its order, behind those that people look for first.
template <typename Rows>
names with_settings(names first, const Rows& rows)
{
  for (const config::setting& row : rows)
    if (!row.getter.empty() && std::ranges::find(first, row.getter) == first.end())
      first.push_back(row.getter);
  return first;
}

const names& bridge_getters()
{
  static const names getters = [] {
    names list = with_settings({"pppoeia_bridge_state_get"}, config::bridge_settings());
    list.push_back("pppoeia_bridge_stats_get");
    return list;
  }();
  return getters;
}

const names& port_getters()
{
  static const names getters = [] {
    names list = with_settings({"pppoeia_port_state_get", "pppoeia_port_trust_get", "pppoeia_port_remote_id_get",
                                "pppoeia_port_vsa_circuit_id_mode_get"},
                               config::port_settings());
    list.push_back("pppoeia_port_circuit_id_get");
    list.push_back("pppoeia_port_stats_get");
    return list;
  }();
  return getters;
}

const names& node_getters()
{
  static const names getters = with_settings({"pppoeia_log_level_get"}, config::node_settings());
  return getters;
}

using json_list = nlohmann::ordered_json;

void print_json(const nlohmann::ordered_json& json)
{
  std::printf("%s\n", json.dump().c_str());
}

json_list list_of(const std::vector<report>& reports)
{
  json_list list = json_list::array();
  for (const report& report : reports)
    list.push_back(report.json());
  return list;
}

// A report for each, under each other or as a JSON array of that name.
void print_all(const context& context, const char* name, const std::vector<report>& reports)
{
  if (context.json)
    return print_json({{"version", json_version}, {name, list_of(reports)}});
  for (size_t i = 0; i < reports.size(); ++i) {
    if (i > 0)
      std::printf("\n");
    reports[i].print(context);
  }
}

void gather(const context& context, report& into, const names& getters, const words& inputs)
{
  for (const std::string_view name : getters) {
    const api::operation& operation = *api::find_operation(name);
    const agent_client::answer answer = context.ask(operation, inputs);
    // 1 says "not of this kind of port": nothing to show.
    if (answer.result == 1) {
      into.add_absent(operation);
      continue;
    }
    if (answer.result != 0)
      context.refuse(operation, inputs, answer.result);
    into.add(operation, answer);
  }
}

report show_bridge(const context& context, const std::string& bridge)
{
  report gathered;
  gathered.add_text("bridge", bridge);
  gather(context, gathered, bridge_getters(), {bridge});
  return gathered;
}

report show_port(const context& context, const std::string& bridge, uint32_t port)
{
  report gathered;
  gathered.add_number("port", port);
  gather(context, gathered, port_getters(), {bridge, std::to_string(port)});
  return gathered;
}

report show_node(const context& context)
{
  report gathered;
  for (const std::string_view name : node_getters()) {
    const api::operation& operation = *api::find_operation(name);
    gathered.add(operation, context.demand(operation, {}));
  }
  return gathered;
}

std::vector<report> show_port_vlans(const context& context, const std::string& bridge, uint32_t port)
{
  std::vector<report> entries;
  for (const pppoeia_port_vlan_entry& entry : port_vlans_of(context, bridge, port))
    entries.emplace_back().add_entry(entry);
  return entries;
}

// "1-4,7"
std::string vlans_text(const std::vector<uint16_t>& ids)
{
  std::string text;
  for (size_t i = 0; i < ids.size();) {
    size_t last = i;
    while (last + 1 < ids.size() && ids[last + 1] == ids[last] + 1)
      ++last;
    text += (text.empty() ? "" : ",") + std::to_string(ids[i]);
    if (last > i)
      text += "-" + std::to_string(ids[last]);
    i = last + 1;
  }
  return text.empty() ? "none" : text;
}

void add_vlans(const context& context, report& to, const std::string& bridge)
{
  const std::vector<uint16_t> ids = vlans_of(context, bridge);
  to.add_list("vlans", ids, vlans_text(ids));
}

std::vector<report> show_bridges(const context& context)
{
  std::vector<report> reports;
  for (const std::string& bridge : bridges_of(context))
    reports.push_back(show_bridge(context, bridge));
  return reports;
}

std::vector<report> show_ports(const context& context, const std::string& bridge)
{
  show_bridge(context, bridge);  // refuses a bridge that does not exist, where no port would say nothing
  std::vector<report> reports;
  for (const uint32_t id : ports_of(context, bridge))
    reports.push_back(show_port(context, bridge, id));
  return reports;
}

// A bridge with everything on it.
struct bridge_view {
  report own;
  std::vector<report> ports;
  std::vector<std::vector<report>> entries;  // of each port

  bridge_view(const context& context, const std::string& bridge) : own(show_bridge(context, bridge))
  {
    add_vlans(context, own, bridge);
    for (const uint32_t id : ports_of(context, bridge)) {
      ports.push_back(show_port(context, bridge, id));
      entries.push_back(show_port_vlans(context, bridge, id));
    }
  }

  json_list json() const
  {
    json_list bridge = own.json();
    bridge["ports"] = list_of(ports);
    for (size_t i = 0; i < ports.size(); ++i)
      bridge["ports"][i]["port-vlans"] = list_of(entries[i]);
    return bridge;
  }

  void print(const context& context) const
  {
    own.print(context);
    for (size_t i = 0; i < ports.size(); ++i) {
      std::printf("\n");
      ports[i].print(context);
      for (const report& entry : entries[i]) {
        std::printf("\n");
        entry.print(context);
      }
    }
  }
};

void show_all(const context& context, const words& bridges)
{
  const report node = show_node(context);
  json_list json{{"version", json_version}};
  json.update(node.json());
  json["bridges"] = json_list::array();
  if (!context.json)
    node.print(context);
  for (const std::string& name : bridges) {
    const bridge_view bridge(context, name);
    if (context.json) {
      json["bridges"].push_back(bridge.json());
      continue;
    }
    std::printf("\n");
    bridge.print(context);
  }
  if (context.json)
    print_json(json);
}

}  // namespace

void show_all_run(const context& context, const given_words& given)
{
  show_all(context, given.arguments.empty() ? bridges_of(context) : given.arguments);
}

void show_bridge_run(const context& context, const given_words& given)
{
  if (given.arguments.empty())
    return print_all(context, "bridges", show_bridges(context));
  show_bridge(context, given.arguments[0]).print(context);
}

void show_vlan_run(const context& context, const given_words& given)
{
  report report;
  add_vlans(context, report, given.arguments[0]);
  report.print(context);
}

void show_port_run(const context& context, const given_words& given)
{
  const words& line = given.arguments;
  if (line.size() == 1)
    return context.json ? print_all(context, "ports", show_ports(context, line[0])) : show_lines_of(context, line[0]);
  show_port(context, line[0], port_word_parse(line[1])).print(context);
}

void show_port_vlan_run(const context& context, const given_words& given)
{
  print_all(context, "port-vlans", show_port_vlans(context, given.arguments[0], port_word_parse(given.arguments[1])));
}
