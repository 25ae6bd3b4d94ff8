#include "tools/pppoeiactl/agent/discovery.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <net/if.h>
#include <set>

namespace {

namespace fs = std::filesystem;

constexpr size_t bridge_name_max = 10;

words names_in(const char* directory)
{
  words names;
  std::error_code error;
  for (auto at = fs::directory_iterator(directory, error); !error && at != fs::directory_iterator();
       at.increment(error))
    names.push_back(at->path().filename());
  return names;
}

// Of the network namespace that this program runs in.
words network_devices()
{
  words names;
  struct if_nameindex* list = if_nameindex();
  for (const struct if_nameindex* at = list; at && at->if_index != 0; ++at)
    names.emplace_back(at->if_name);
  if (list)
    if_freenameindex(list);
  return names;
}

std::set<std::string> bridge_candidates()
{
  std::set<std::string> names;
  for (int number = 0; number < 100; ++number)
    names.insert("br" + std::to_string(number));
  for (const std::string& name : names_in("/proc/net/kvbridge"))
    names.insert(name);
  const std::string_view suffix = "_pppoe";  // of the devices that the agent creates
  for (const std::string& name : network_devices())
    if (name.ends_with(suffix))
      names.insert(name.substr(0, name.size() - suffix.size()));
  std::erase_if(names, [](const std::string& name) { return name.empty() || name.size() > bridge_name_max; });
  return names;
}

bool port_exists(const context& context, const std::string& bridge, uint32_t id)
{
  const api::operation& operation = row("pppoeia_port_state_get");
  const words inputs{bridge, std::to_string(id)};
  const int32_t result = context.ask(operation, inputs).result;
  if (result != 0 && result != -ENODEV)
    context.refuse(operation, inputs, result);
  return result == 0;
}

}  // namespace

// Removing a bridge that cannot be there changes nothing, and the answer tells an agent that is not initialised.
bool is_initialised(const context& context)
{
  constexpr const char* no_name = "longer than a bridge's name";
  return context.ask(row("pppoeia_bridge_del"), {no_name}).result != -ENXIO;
}

words bridges_of(const context& context)
{
  words found;
  for (const std::string& name : bridge_candidates())
    if (context.ask(row("pppoeia_bridge_state_get"), {name}).result == 0)
      found.push_back(name);
  std::ranges::sort(found, [](const std::string& a, const std::string& b) {
    return std::pair(a.size(), a) < std::pair(b.size(), b);
  });
  return found;
}

// Cards have up to some hundred lines. Where ids run higher, the search goes on to twice the highest one found.
std::vector<uint32_t> ports_of(const context& context, const std::string& bridge)
{
  constexpr uint32_t id_max = 65535;  // frames carry 16 bits
  uint32_t most = 1024;
  std::vector<uint32_t> ids;
  for (uint32_t id = 1; id <= most; ++id) {
    if (!port_exists(context, bridge, id))
      continue;
    ids.push_back(id);
    most = std::min(std::max(most, 2 * id), id_max);
  }
  return ids;
}

std::vector<uint16_t> vlans_of(const context& context, const std::string& bridge)
{
  std::vector<uint16_t> enabled;
  const api::operation& operation = row("pppoeia_bridge_vlan_get");
  for (uint16_t vlan = 0; vlan < 4096; ++vlan) {
    const agent_client::answer answer = context.demand(operation, {bridge, std::to_string(vlan)});
    if (agent_client::number_of(operation.arguments().back(), answer.buffers.back()) != 0)
      enabled.push_back(vlan);
  }
  return enabled;
}

pppoeia_port_vlan_entry told_entry(const agent_client::answer& answer)
{
  pppoeia_port_vlan_entry entry{};
  const agent_client::buffer& bytes = answer.buffers.back();
  std::memcpy(&entry, bytes.data(), std::min(bytes.size(), sizeof entry));
  return entry;
}

std::vector<pppoeia_port_vlan_entry> port_vlans_of(const context& context, const std::string& bridge, uint32_t port)
{
  std::vector<pppoeia_port_vlan_entry> entries;
  const std::string id = std::to_string(port);
  const api::operation* operation = &row("pppoeia_port_vlan_get_first");
  agent_client::answer answer = context.ask(*operation, {bridge, id});
  while (answer.result == 0) {
    const pppoeia_port_vlan_entry entry = told_entry(answer);
    entries.push_back(entry);
    operation = &row("pppoeia_port_vlan_get_next");
    answer = context.ask(*operation, {bridge, id, std::to_string(entry.vlan_id & 0xffffu)});
  }
  if (answer.result != -ENOENT)
    context.refuse(*operation, {bridge, id}, answer.result);
  return entries;
}
