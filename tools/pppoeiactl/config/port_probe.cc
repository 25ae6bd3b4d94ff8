#include "tools/pppoeiactl/config/port_probe.h"

#include "tools/pppoeiactl/agent/context.h"

#include <algorithm>

namespace config {
namespace {

constexpr char parts_them = 1;
constexpr size_t identifier_max = 63;  // where the agent cuts

uint16_t unused_vlan(const std::map<uint32_t, port>& ports)
{
  uint16_t vlan = 60000;
  const auto has_it = [&](const auto& one) { return one.second.vlans.contains(vlan); };
  while (std::ranges::any_of(ports, has_it))
    ++vlan;
  return vlan;
}

std::string format_of(const std::vector<probed_macro>& macros)
{
  std::string format;
  for (const probed_macro& one : macros)
    format += (format.empty() ? "" : std::string(1, parts_them)) + std::string(one.macro);
  return format;
}

words parted(const std::string& text)
{
  words parts(1);
  for (const char c : text) {
    if (c == parts_them)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

}  // namespace

std::vector<probed_macro> macros_of(std::span<const setting> rows)
{
  std::vector<probed_macro> macros;
  for (const setting& row : rows)
    if (!row.macro.empty())
      macros.push_back({row.macro, row.most});
  return macros;
}

void ask_all(const context& context, std::vector<agent_client::question>& questions)
{
  context.agent.call_all(questions);
  for (const agent_client::question& one : questions) {
    context.demand_arrival(one.told);
    if (one.told.status != 0)
      throw command_error(exit_refused, "the agent did not take the request");
  }
}

port_probe::port_probe(const context& context, std::string bridge, const std::map<uint32_t, port>& ports)
    : context_(context), bridge_(std::move(bridge)), vlan_(std::to_string(unused_vlan(ports)))
{}

port_probe::~port_probe()
{
  std::vector<agent_client::question> questions;
  for (const uint32_t id : touched_)
    questions.push_back({&row("pppoeia_port_vlan_del"), {bridge_, std::to_string(id), vlan_}, {}});
  context_.agent.call_all(questions);  // an agent that has gone has none of them
}

std::vector<words> port_probe::expand(const std::vector<uint32_t>& ports, const std::vector<probed_macro>& macros)
{
  std::vector<words> values(ports.size());
  std::vector<probed_macro> some;
  size_t length = 0;
  for (const probed_macro& one : macros) {
    if (!some.empty() && length + one.most >= identifier_max) {
      expand_some(ports, some, values);
      some.clear();
      length = 0;
    }
    some.push_back(one);
    length += one.most + 1;
  }
  expand_some(ports, some, values);
  for (words& of_port : values)
    if (of_port.size() != macros.size())
      of_port.clear();
  return values;
}

void port_probe::expand_some(const std::vector<uint32_t>& ports, const std::vector<probed_macro>& macros,
                             std::vector<words>& values)
{
  const std::string format = format_of(macros);
  std::vector<agent_client::question> questions;
  for (const uint32_t id : ports) {
    const words line{bridge_, std::to_string(id), vlan_};
    questions.push_back({&row("pppoeia_remote_id_format_port_vlan_set"), {line[0], line[1], line[2], format}, {}});
    questions.push_back({&row("gen_remote_id_by_intf_vlan"), line, {}});
    touched_.insert(id);
  }
  ask_all(context_, questions);
  for (size_t i = 0; i < ports.size(); ++i) {
    const agent_client::answer& told = questions[2 * i + 1].told;
    const std::string text = told.ok() ? agent_client::text_of(told.buffers.back()) : std::string();
    const words parts = parted(text);
    if (!told.ok() || text.size() >= identifier_max || parts.size() != macros.size())
      values[i].assign(1 + values[i].size() + macros.size(), "");  // one too many: not to be used
    else
      values[i].insert(values[i].end(), parts.begin(), parts.end());
  }
}

}  // namespace config
