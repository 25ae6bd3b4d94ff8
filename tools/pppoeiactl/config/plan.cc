#include "tools/pppoeiactl/config/plan.h"

#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace config {
namespace {

constexpr size_t group_vlans = 512;  // that "bridge vlan set-all" switches

bool differs(const value& from, const value& to)
{
  return from && to && *from != *to;
}

// The word of a value where it is a name of the language, else the value.
std::string mode_word(int32_t mode)
{
  return agent_client::number_word(mode_words, static_cast<uint32_t>(mode));
}

class planner {
public:
  planner(const card& from, const card& to, const plan_options& options) : from_(from), to_(to), options_(options) {}

  plan make()
  {
    if (!from_.initialised && to_.initialised)
      add(row("pppoeia_init"), {}, "the agent", "", all_removed_line());
    for (size_t i = 0; i < node_values; ++i)
      if (differs(from_.values[i], to_.values[i]))
        set(node_settings()[i], {}, *to_.values[i], "the agent");
    for (const auto& [name, bridge] : to_.bridges)
      bridge_make(name, bridge);
    for (const auto& [name, bridge] : to_.bridges)
      if (const auto at = from_.bridges.find(name); at != from_.bridges.end() && !again(at->second, bridge))
        leavings(name, at->second, bridge);
    for (const auto& [name, bridge] : from_.bridges)
      if (!to_.bridges.contains(name) && !options_.keep)
        add(row("pppoeia_bridge_del"), {name}, "bridge " + name, "", bridge_removed_line(name));
    return std::move(plan_);
  }

private:
  void add(const api::operation& operation, words inputs, const std::string& object, std::string before = {},
           std::string after = {})
  {
    plan_.commands.push_back({&operation, std::move(inputs), object, std::move(before), std::move(after)});
  }

  void set(const setting& setting, words inputs, const std::string& value, const std::string& object)
  {
    for (const std::string& word : value_words(setting, inputs.size(), value))
      inputs.push_back(word);
    add(*api::find_operation(setting.setter), std::move(inputs), object);
  }

  // Bridges
  // -------------------------------------------------------------------------------------------------------------------

  // Whether a bridge must be added again.
  static bool again(const bridge& is, const bridge& wanted)
  {
    return differs(is.values[bridge_slots], wanted.values[bridge_slots]);
  }

  void bridge_make(const std::string& name, const bridge& wanted)
  {
    const std::string object = "bridge " + name;
    const auto at = from_.bridges.find(name);
    const bool is_there = at != from_.bridges.end();
    const bool fresh = !is_there || again(at->second, wanted);
    if (is_there && fresh)
      add(row("pppoeia_bridge_del"), {name}, object, "", bridge_removed_line(name));
    const std::string slots = wanted.values[bridge_slots].value_or("1");
    if (fresh)
      add(row("pppoeia_bridge_add"), {name, slots}, object, bridge_added_line(name, slots));
    if (fresh && wanted.slot_trust)
      add(row("pppoeia_port_trust_set_all"), {name, *wanted.slot_trust}, object);
    const bridge none;
    const bridge& is = fresh ? none : at->second;
    if (!fresh && !is.values[bridge_slots])
      plan_.assumed.push_back("number of slots of " + object);
    bridge_settings_make(name, is, wanted, object);
    vlans_make(name, is, wanted, object);
    for (const uint32_t id : parents_first(wanted.ports))
      port_make(name, id, is, wanted, fresh);
  }

  void bridge_settings_make(const std::string& name, const bridge& is, const bridge& wanted, const std::string& object)
  {
    for (size_t i = bridge_max_pdu; i < bridge_values; ++i) {
      const value& has = is.values[i];
      const value& gets = i == bridge_max_pdu && !wanted.values[i] ? is.most_pdu : wanted.values[i];
      if (gets && has != gets)
        set(bridge_settings()[i], {name}, *gets, object);
      if (i == bridge_max_pdu && !gets && has)
        plan_.assumed.push_back("largest PDU that the device of " + object + " allows");
    }
  }

  void vlans_make(const std::string& name, const bridge& is, const bridge& wanted, const std::string& object)
  {
    const auto missing = wanted.enabled & ~is.enabled;
    const bool whole_group = group_count(wanted) == group_vlans && group_count(is) < group_vlans;
    if (whole_group)
      add(row("pppoeia_bridge_vlan_set_all"), {name, "on"}, object);
    for (size_t vlan = whole_group ? group_vlans : 0; vlan < missing.size(); ++vlan)
      if (missing.test(vlan))
        add(row("pppoeia_bridge_vlan_set"), {name, std::to_string(vlan), "on"}, object);
    for (const auto& [vlan, text] : wanted.named) {
      const auto at = is.named.find(vlan);
      if (at == is.named.end())
        add(row("pppoeia_vlan_add"), {name, std::to_string(vlan)}, object);
      if (at == is.named.end() ? !text.empty() : at->second != text)
        add(row("pppoeia_vlan_name_set"), {name, std::to_string(vlan), text}, object);
    }
  }

  static size_t group_count(const bridge& bridge)
  {
    size_t count = 0;
    for (size_t vlan = 0; vlan < group_vlans; ++vlan)
      count += bridge.enabled.test(vlan);
    return count;
  }

  // Ports
  // -------------------------------------------------------------------------------------------------------------------

  bool reborn(const port& is, const port& wanted) const
  {
    bool other = is.doubtful;
    for (const port_value i : {port_device, port_type, port_kind})
      other = other || differs(is.values[i], wanted.values[i]) || (options_.renew && !is.values[i]);
    return other;
  }

  void port_make(const std::string& name, uint32_t id, const bridge& is, const bridge& wanted, bool fresh)
  {
    const words object{name, std::to_string(id)};
    const port& gets = wanted.ports.at(id);
    const auto at = is.ports.find(id);
    if (at != is.ports.end() && !reborn(at->second, gets))
      return port_change(object, id, at->second, gets);
    port slot;  // as far as a new bridge's is known
    if (wanted.slot_trust)
      slot.values[port_trust] = wanted.slot_trust;
    port_add(object, id, at != is.ports.end(), gets, fresh ? &slot : nullptr);
  }

  // What its slot had before stays in there, and no operation tells it: trust and mode are set in any case, unless the
  // bridge is new and the slot as given.
  void port_add(const words& object, uint32_t id, bool is_there, const port& wanted, const port* slot)
  {
    const std::string name = port_text(object[0], id);
    const std::string known = port_added_line(object[0], id, wanted);
    words inputs = object;
    inputs.push_back(wanted.values[port_device].value_or("port" + object[1]));
    inputs.push_back(wanted.values[port_name].value_or(""));
    inputs.push_back(birth_record(wanted));
    if (is_there)
      add(row("pppoeia_port_del"), object, name, port_in_doubt_line(object[0], id));
    add(row("pppoeia_port_add"), inputs, name, is_there ? "" : known, is_there ? known : "");
    const port none;
    const port& added = slot ? *slot : none;
    for (size_t i = port_trust; i < port_values; ++i) {
      const bool of_slot = !slot && (i == port_trust || i == port_circuit_id_mode);
      if (wanted.values[i] && (of_slot || wanted.values[i] != added.values[i]))
        set(port_settings()[i], object, *wanted.values[i], name);
    }
    entries_make(object, {}, wanted.vlans, name);
  }

  void port_change(const words& object, uint32_t id, const port& is, const port& wanted)
  {
    const std::string name = port_text(object[0], id);
    for (const port_value i : {port_device, port_type, port_kind})
      if (!is.values[i])
        plan_.assumed.push_back(std::string(port_settings()[i].key) + " of " + name);
    bool renamed = false;
    for (size_t i = 0; i < port_values; ++i)
      renamed = renamed ||
                (port_settings()[i].how == change::by_name && wanted.values[i] && is.values[i] != wanted.values[i]);
    if (renamed)
      add(row("pppoeia_port_name_update"),
          {object[0], object[1], wanted.values[port_name].value_or(""), location_text(wanted)}, name,
          place_in_doubt_line(object[0], id), place_line(object[0], id, wanted));
    for (size_t i = port_remote_id; i < port_values; ++i)
      if (i != port_description || !is.inherits || description_matters(object[0], is, wanted))
        value_change(object, i, is, wanted, name);
    value_change(object, port_parent, is, wanted, name);
    entries_make(object, is.vlans, wanted.vlans, name);
    value_change(object, port_trust, is, wanted, name);
    value_change(object, port_state, is, wanted, name);
  }

  // Where a port shows its parent's description, its own may be the same or empty. Which, matters once they part.
  bool description_matters(const std::string& bridge, const port& is, const port& wanted) const
  {
    const value& own = wanted.values[port_description];
    if (!own || (!own->empty() && own != is.values[port_description]) ||
        is.values[port_parent] != wanted.values[port_parent])
      return true;
    const auto& ports = to_.bridges.at(bridge).ports;
    const auto parent = ports.find(static_cast<uint32_t>(std::stoul(*wanted.values[port_parent])));
    return parent == ports.end() || parent->second.values[port_description] != is.values[port_description];
  }

  void value_change(const words& object, size_t which, const port& is, const port& wanted, const std::string& name)
  {
    if (wanted.values[which] && is.values[which] != wanted.values[which])
      set(port_settings()[which], object, *wanted.values[which], name);
  }

  void entries_make(const words& object, const std::map<uint16_t, port_vlan>& is,
                    const std::map<uint16_t, port_vlan>& wanted, const std::string& name)
  {
    for (const auto& [vlan, entry] : wanted) {
      const auto at = is.find(vlan);
      if (at == is.end() || at->second != entry)
        entry_make({object[0], object[1], std::to_string(vlan)}, at == is.end() ? nullptr : &at->second, entry, name);
    }
  }

  // A mode that was set cannot be taken back while there are formats: then the entry is made anew.
  void entry_make(const words& object, const port_vlan* is, const port_vlan& wanted, const std::string& name)
  {
    if (is && is->mode != -1 && wanted.mode == -1) {
      add(row("pppoeia_port_vlan_del"), object, name);
      is = nullptr;
    }
    const port_vlan none;
    const port_vlan& has = is ? *is : none;
    if (wanted == none) {
      if (!is)
        add(row("pppoeia_port_vlan_add"), object, name);
      else
        entry_empty(object, has, name);
      return;
    }
    const auto give = [&](const api::operation& operation, const std::string& text) {
      words inputs = object;
      inputs.push_back(text);
      add(operation, std::move(inputs), name);
    };
    if (has.mode != wanted.mode)
      give(row("pppoeia_circuit_id_mode_port_vlan_set"), mode_word(wanted.mode));
    if (has.circuit_id_format != wanted.circuit_id_format)
      give(row("pppoeia_circuit_id_format_port_vlan_set"), wanted.circuit_id_format);
    if (has.remote_id_format != wanted.remote_id_format)
      give(row("pppoeia_remote_id_format_port_vlan_set"), wanted.remote_id_format);
  }

  // An entry with nothing in it: one that loses its last setting goes, so it is made anew.
  void entry_empty(const words& object, const port_vlan& is, const std::string& name)
  {
    if (is == port_vlan{})
      return;
    add(row("pppoeia_port_vlan_del"), object, name);
    add(row("pppoeia_port_vlan_add"), object, name);
  }

  // What goes
  // -------------------------------------------------------------------------------------------------------------------

  void leavings(const std::string& name, const bridge& is, const bridge& wanted)
  {
    if (options_.keep)
      return;
    const std::string object = "bridge " + name;
    for (const auto& [id, port] : is.ports) {
      const auto at = wanted.ports.find(id);
      const words words{name, std::to_string(id)};
      if (at == wanted.ports.end())
        add(row("pppoeia_port_del"), words, port_text(name, id), "", port_removed_line(name, id));
      else if (!reborn(port, at->second))
        for (const auto& [vlan, entry] : port.vlans)
          if (!at->second.vlans.contains(vlan))
            add(row("pppoeia_port_vlan_del"), {words[0], words[1], std::to_string(vlan)}, port_text(name, id));
    }
    for (const auto& [vlan, text] : is.named)
      if (!wanted.named.contains(vlan))
        add(row("pppoeia_vlan_del"), {name, std::to_string(vlan)}, object);
    const auto surplus = is.enabled & ~wanted.enabled;
    const bool whole_group = group_count(wanted) == 0 && group_count(is) == group_vlans;
    if (whole_group)
      add(row("pppoeia_bridge_vlan_set_all"), {name, "off"}, object);
    for (size_t vlan = whole_group ? group_vlans : 0; vlan < surplus.size(); ++vlan)
      if (surplus.test(vlan))
        add(row("pppoeia_bridge_vlan_set"), {name, std::to_string(vlan), "off"}, object);
  }

  const card& from_;
  const card& to_;
  const plan_options& options_;
  plan plan_;
};

}  // namespace

std::string command::text() const
{
  return command_text(*operation, inputs);
}

plan plan_make(const card& from, const card& to, const plan_options& options)
{
  return planner(from, to, options).make();
}

}  // namespace config
