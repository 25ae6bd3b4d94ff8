#include "tools/pppoeiactl/config/card_read.h"

#include "tools/pppoeiactl/agent/bridge_report.h"
#include "tools/pppoeiactl/agent/context.h"
#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/config/port_probe.h"
#include "tools/pppoeiactl/format/format_trial.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace config {
namespace {

using agent_client::question;

class bridge_reader {
public:
  bridge_reader(const context& context, std::string name, const remembered_bridge* remembered, bool with_trial)
      : context_(context), name_(std::move(name)), remembered_(remembered), with_trial_(with_trial)
  {}

  bridge read()
  {
    find_ports();
    read_getters();
    read_vlans();
    read_entries();
    read_macros_and_report();
    bridge_.values[bridge_slots] = remembered_slots();
    bridge_.most_pdu = remembered_most_pdu();
    for (auto& [id, port] : bridge_.ports)
      recall(id, port);
    return std::move(bridge_);
  }

private:
  question ask(const api::operation& operation, words inputs) const
  {
    inputs.insert(inputs.begin(), name_);
    return {&operation, std::move(inputs), {}};
  }

  // Cards have up to some hundred lines. Where ids run higher, the search goes on to twice the highest one found.
  void find_ports()
  {
    constexpr uint32_t id_max = 65535;  // frames carry 16 bits
    uint32_t most = 1024;
    for (uint32_t begin = 1; begin <= most;) {
      std::vector<question> questions;
      for (uint32_t id = begin; id <= most; ++id)
        questions.push_back(ask(row("pppoeia_port_state_get"), {std::to_string(id)}));
      ask_all(context_, questions);
      const uint32_t first = begin;
      begin = most + 1;
      for (uint32_t id = first; id < begin; ++id) {
        const question& one = questions[id - first];
        if (one.told.result == 0)
          bridge_.ports[id];
        else if (one.told.result != -ENODEV)
          context_.refuse(*one.operation, one.inputs, one.told.result);
        if (one.told.result == 0)
          most = std::min(std::max(most, 2 * id), id_max);
      }
    }
  }

  // Every value that has a getter, of the bridge and of its ports.
  void read_getters()
  {
    std::vector<question> questions;
    std::vector<std::pair<const setting*, value*>> places;
    const auto want = [&](const setting& row, value& place, const words& object) {
      place.reset();
      if (row.getter.empty())
        return;
      questions.push_back(ask(*api::find_operation(row.getter), object));
      places.emplace_back(&row, &place);
    };
    for (size_t i = 0; i < bridge_values; ++i)
      want(bridge_settings()[i], bridge_.values[i], {});
    for (auto& [id, port] : bridge_.ports)
      for (size_t i = 0; i < port_values; ++i)
        want(port_settings()[i], port.values[i], {std::to_string(id)});
    ask_all(context_, questions);
    for (size_t i = 0; i < questions.size(); ++i) {
      const auto& [row, place] = places[i];
      if (questions[i].told.result == 1)  // not of this type of port
        *place = std::string(row->initial);
      else if (questions[i].told.result != 0)
        context_.refuse(*questions[i].operation, questions[i].inputs, questions[i].told.result);
      else
        *place = told_value(*row, questions[i].told, questions[i].inputs.size());
    }
  }

  void read_vlans()
  {
    std::vector<question> questions;
    for (size_t vlan = 0; vlan < bridge_.enabled.size(); ++vlan)
      questions.push_back(ask(row("pppoeia_bridge_vlan_get"), {std::to_string(vlan)}));
    ask_all(context_, questions);
    for (size_t vlan = 0; vlan < questions.size(); ++vlan) {
      const question& one = questions[vlan];
      if (one.told.result != 0)
        context_.refuse(*one.operation, one.inputs, one.told.result);
      bridge_.enabled.set(vlan,
                          agent_client::number_of(one.operation->arguments().back(), one.told.buffers.back()) != 0);
    }
  }

  // The entries of all ports, one of each port at a time.
  void read_entries()
  {
    std::vector<question> questions;
    for (const auto& [id, port] : bridge_.ports)
      questions.push_back(ask(row("pppoeia_port_vlan_get_first"), {std::to_string(id)}));
    while (!questions.empty()) {
      ask_all(context_, questions);
      std::vector<question> next;
      for (const question& one : questions) {
        if (one.told.result == -ENOENT)
          continue;
        if (one.told.result != 0)
          context_.refuse(*one.operation, one.inputs, one.told.result);
        const uint16_t vlan = entry_take(one);
        next.push_back(ask(row("pppoeia_port_vlan_get_next"), {one.inputs[1], std::to_string(vlan)}));
      }
      questions = std::move(next);
    }
  }

  uint16_t entry_take(const question& one)
  {
    const pppoeia_port_vlan_entry entry = told_entry(one.told);
    const auto text = [](const char(&field)[129]) { return std::string(field, strnlen(field, sizeof field)); };
    const auto vlan = static_cast<uint16_t>(entry.vlan_id);  // of the first entry, only these bits are written
    bridge_.ports[static_cast<uint32_t>(std::stoul(one.inputs[1]))].vlans[vlan] = {
        entry.cid_mode, text(entry.cid_format), text(entry.rid_format)};
    return vlan;
  }

  // What only a macro tells; while ports are probed, the report names all their devices.
  void read_macros_and_report()
  {
    std::vector<uint32_t> ids;
    for (const auto& [id, port] : bridge_.ports)
      ids.push_back(id);
    if (with_trial_) {
      port_probe probe(context_, name_, bridge_.ports);
      read_port_macros(probe, ids);
      read_bridge_macros(probe, ids);
      report_ = bridge_report_read(context_, name_);
    } else {
      report_ = bridge_report_read(context_, name_);
    }
    bridge_.named = report_.vlans;
    for (auto& [id, port] : bridge_.ports)
      if (const auto seen = report_.ports.find(id); seen != report_.ports.end())
        port.values[port_device] = seen->second.device;
  }

  // What the probe could not tell is tried: that takes a report for each port.
  std::vector<words> expand(port_probe& probe, const std::vector<uint32_t>& ids,
                            const std::vector<probed_macro>& macros)
  {
    std::vector<words> values = probe.expand(ids, macros);
    words parts;
    for (const probed_macro& one : macros)
      parts.emplace_back(one.macro);
    std::vector<uint32_t> left;
    for (size_t i = 0; i < ids.size(); ++i)
      if (values[i].empty())
        left.push_back(ids[i]);
    std::vector<words> tried = left.empty() ? std::vector<words>() : trial().expand_on(left, parts);
    auto next = tried.begin();
    for (words& of_port : values)
      if (of_port.empty())
        of_port = std::move(*next++);
    return values;
  }

  format_trial& trial()
  {
    if (!trial_)
      trial_.emplace(context_, name_);
    return *trial_;
  }

  void read_port_macros(port_probe& probe, const std::vector<uint32_t>& ids)
  {
    const std::vector<words> values = expand(probe, ids, macros_of(port_settings()));
    for (size_t i = 0; i < ids.size(); ++i)
      macros_take(bridge_.ports[ids[i]], values[i]);
    for (auto& [id, port] : bridge_.ports)
      description_take(port);
  }

  // The same on each port.
  void read_bridge_macros(port_probe& probe, const std::vector<uint32_t>& ids)
  {
    words values;
    words parts;
    const std::vector<probed_macro> macros = macros_of(bridge_settings());
    for (const probed_macro& one : macros)
      parts.emplace_back(one.macro);
    if (ids.empty())
      values = trial().expand(parts);
    else
      values = expand(probe, {ids[0]}, macros)[0];
    auto next = values.begin();
    for (size_t i = 0; i < bridge_values; ++i)
      if (!bridge_settings()[i].macro.empty())
        bridge_.values[i] = *next++;
  }

  // A number that the type does not use, or a panel that is not shown, has no expansion: it stays unknown.
  static void macros_take(port& port, const words& expanded)
  {
    auto next = expanded.begin();
    for (size_t i = 0; i < port_values; ++i) {
      if (port_settings()[i].macro.empty())
        continue;
      const bool in_location = i >= port_panel && i <= port_pvc_intf;
      if (!next->empty() || !in_location)
        port.values[i] = *next;
      ++next;
    }
  }

  // An empty description shows the parent's.
  void description_take(port& port)
  {
    const auto parent = bridge_.ports.find(static_cast<uint32_t>(std::stoul(*port.values[port_parent])));
    port.inherits = *port.values[port_parent] != "0" && !port.values[port_description]->empty() &&
                    parent != bridge_.ports.end() &&
                    parent->second.values[port_description] == port.values[port_description];
  }

  // The highest port shows when what is remembered cannot be true.
  value remembered_slots() const
  {
    if (!remembered_ || !remembered_->slots)
      return std::nullopt;
    const bool fits = bridge_.ports.empty() || bridge_.ports.rbegin()->first < std::stoul(*remembered_->slots);
    return fits ? remembered_->slots : std::nullopt;
  }

  // A tool that was killed behind adding the bridge has not come to set it: it is as the bridge was added.
  value remembered_most_pdu() const
  {
    if (!remembered_ || !remembered_->slots)
      return std::nullopt;
    if (!remembered_->max_pdu)
      memory(context_.agent.socket()).append(bridge_max_pdu_line(name_, *bridge_.values[bridge_max_pdu]));
    return remembered_->max_pdu ? remembered_->max_pdu : bridge_.values[bridge_max_pdu];
  }

  void recall(uint32_t id, port& port)
  {
    if (!remembered_ || !remembered_->ports.contains(id))
      return;
    const remembered_port& kept = remembered_->ports.at(id);
    port.doubtful = kept.doubtful;
    if (kept.doubtful || !with_trial_)
      return;
    for (size_t i = port_device; i <= port_reserved; ++i) {
      const bool place = port_settings()[i].how == change::by_name;
      const value& known = kept.known.values[i];
      if (!(place && kept.place_in_doubt) && known && port.values[i] && port.values[i] != known)
        return;  // somebody else's
    }
    for (size_t i = port_device; i <= port_reserved; ++i)
      if (!port.values[i] && !(port_settings()[i].how == change::by_name && kept.place_in_doubt))
        port.values[i] = kept.known.values[i];
  }

  const context& context_;
  std::string name_;
  const remembered_bridge* remembered_;
  bool with_trial_;
  std::optional<format_trial> trial_;
  bridge_report report_;
  bridge bridge_;
};

}  // namespace

card card_read(const context& context, const read_options& options)
{
  card found;
  found.initialised = is_initialised(context);
  for (size_t i = 0; i < node_values; ++i) {
    const setting& row = node_settings()[i];
    const api::operation& getter = *api::find_operation(row.getter);
    found.values[i] = told_value(row, context.demand(getter, {}), 0);
  }
  if (!found.initialised)
    return found;
  const memory kept(context.agent.socket());
  const std::map<std::string, remembered_bridge> remembered = kept.read();
  std::set<std::string> names = options.names;
  for (const auto& [name, bridge] : remembered)
    names.insert(name);
  for (const std::string& name : bridges_of(context))
    names.insert(name);
  for (const std::string& name : names) {
    if (context.ask(row("pppoeia_bridge_state_get"), {name}).result != 0)
      continue;
    const auto at = remembered.find(name);
    bridge_reader reader(context, name, at == remembered.end() ? nullptr : &at->second, options.trial);
    found.bridges[name] = reader.read();
  }
  return found;
}

}  // namespace config
