#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/kernel/kernel_bridge.h"
#include "platform/kvbridged/kernel/tc_slot.h"
#include "platform/kvbridged/kernel_bridges.h"

#include <algorithm>
#include <net/if.h>
#include <nlohmann/json.hpp>

namespace kvbridged {
namespace {

using json = nlohmann::ordered_json;

const std::pair<const char*, __u64 kvb_counts::*> counters[] = {
    {"captured", &kvb_counts::captured},
    {"given_back", &kvb_counts::given_back},
    {"refused_by_rate", &kvb_counts::refused_by_rate},
    {"stopped", &kvb_counts::stopped},
    {"passed", &kvb_counts::passed},
    {"hidden", &kvb_counts::hidden},
    {"untreated", &kvb_counts::untreated},
};

json member_json(const found_programs& found, const link_info& link, uint32_t role)
{
  const uint32_t port = role >> KVB_PORT_SHIFT;
  json member{{"interface", link.name}, {"side", role & kvb_uplink ? "network" : "subscriber"}};
  member["port"] = port == 0 ? json() : json(port);
  const kvb_counts counts = found.counts(link.index);
  for (const auto& [name, counter] : counters)
    member[name] = counts.*counter;
  return member;
}

bool is_served(const std::string& bridge)
{
  return if_nametoindex(helper_name_of(bridge).c_str()) != 0;
}

json bridges_json()
{
  json bridges = json::object();
  for (const link_info& link : links_all()) {
    const auto found = found_programs::at(link.index);
    const auto role = found ? found->role(link.index) : std::nullopt;
    if (!role)
      continue;
    json& bridge = bridges[found->bridge()];
    bridge["served"] = is_served(found->bridge());
    bridge["road"] = found->road_open() ? "open" : "down";
    bridge["members"].push_back(member_json(*found, link, *role));
  }
  return bridges;
}

std::string member_text(const json& member)
{
  const std::string interface = "  " + member["interface"].get<std::string>() + ": ";
  std::string line = member["side"].get<std::string>();
  line += member["port"].is_null() ? ", no port" : ", port " + member["port"].dump();
  for (const auto& [name, counter] : counters)
    line += std::string(", ") + name + " " + member[name].dump();
  std::ranges::replace(line, '_', ' ');
  return interface + line + "\n";
}

}  // namespace

std::unique_ptr<agent_bridge> kernel_bridge_make(const bridge_settings& settings, loop& events)
{
  return std::make_unique<kernel_bridge>(settings, events);
}

std::string kernel_status(bool as_json)
{
  const json bridges = bridges_json();
  if (as_json)
    return bridges.dump(2) + "\n";
  std::string text;
  for (const auto& [name, bridge] : bridges.items()) {
    text += name + ": " + (bridge["served"] ? "served" : "no kvbridged") + ", road " +
            bridge["road"].get<std::string>() + "\n";
    for (const json& member : bridge["members"])
      text += member_text(member);
  }
  return text;
}

std::string kernel_release(const std::string& bridge)
{
  if (is_served(bridge))
    throw fatal("a kvbridged serves " + bridge);
  std::string done;
  for (const link_info& link : links_all()) {
    const auto found = found_programs::at(link.index);
    if (!found || found->bridge() != bridge)
      continue;
    programs_take_off(link.index, (found->role(link.index).value_or(kvb_qdisc_found) & kvb_qdisc_found) == 0);
    done += link.name + ": left as it was found\n";
  }
  return done;
}

}  // namespace kvbridged
