// Commands about VLANs, ports and their VLAN entries.
#include "tools/pppoeiactl/config/card_builder.h"

#include "tools/pppoeiactl/words/line.h"

#include <tuple>

namespace config {

void card_builder::vlan_enable(const words& inputs, words& notes)
{
  const uint16_t vlan = static_cast<uint16_t>(number(inputs[1]));
  if (vlan > 4095)
    notes.push_back("VLAN " + inputs[1] + " is above 4095: it switches VLAN " + std::to_string(vlan & 0xfff));
  bridge_of(inputs).enabled.set(vlan & 0xfff, is_on(inputs[2]));
}

void card_builder::vlan_enable_all(const words& inputs, words&)
{
  bridge& owner = bridge_of(inputs);
  for (size_t vlan = 0; vlan < 512; ++vlan)
    owner.enabled.set(vlan, is_on(inputs[1]));
}

void card_builder::vlan_add(const words& inputs, words& notes)
{
  bridge_of(inputs).named.try_emplace(vlan_of(inputs, 1, notes));
}

void card_builder::vlan_del(const words& inputs, words& notes)
{
  bridge_of(inputs).named.erase(vlan_of(inputs, 1, notes));
}

void card_builder::vlan_name(const words& inputs, words& notes)
{
  bridge& owner = bridge_of(inputs);
  const auto at = owner.named.find(vlan_of(inputs, 1, notes));
  constexpr size_t name_max = 31;
  if (inputs[2].size() > name_max)
    refuse("vlan " + inputs[1] + " of " + inputs[0] + ": its name '" + printable(inputs[2]) + "' has " +
           std::to_string(inputs[2].size()) + " characters, at most 31 are taken");
  if (at == owner.named.end())
    refuse("vlan " + inputs[1] + ": not added to " + inputs[0] + " before this line (vlan add)");
  at->second = inputs[2];
}

void card_builder::vlan_clear(const words& inputs, words&)
{
  bridge_of(inputs).named.clear();
}

void card_builder::port_add(const words& inputs, words& notes)
{
  bridge& owner = bridge_of(inputs);
  const uint32_t id = named_.port = number(inputs[1]);
  const uint32_t slots = number(*owner.values[bridge_slots]);
  if (id == 0 || id >= slots)
    refuse("port " + inputs[1] + ": " + inputs[0] + " has ports 1 to " + std::to_string(slots - 1));
  if (inputs[2].empty())
    refuse(port_text(inputs[0], id) + ": without a device name it does not come to exist");
  if (owner.ports.contains(id)) {
    notes.push_back(port_text(inputs[0], id) + " was added before: this line changes nothing");
    return;
  }
  named_.port_is_new = true;
  port added = port_born(inputs, notes);
  if (owner.slot_trust)
    added.values[port_trust] = owner.slot_trust;
  if (const auto left = left_[inputs[0]].find(id); left != left_[inputs[0]].end())
    std::tie(*added.values[port_trust], *added.values[port_circuit_id_mode]) = left->second;
  owner.ports.emplace(id, std::move(added));
}

void card_builder::port_del(const words& inputs, words&)
{
  const port& removed = port_of(inputs);
  left_[inputs[0]][named_.port] = {*removed.values[port_trust], *removed.values[port_circuit_id_mode]};
  card_.bridges[inputs[0]].ports.erase(named_.port);
}

void card_builder::port_rename(const words& inputs, words& notes)
{
  port_renamed(port_of(inputs), inputs, notes);
}

void card_builder::state_all(const words& inputs, words&)
{
  for (auto& [id, port] : bridge_of(inputs).ports)
    port.values[port_state] =
        canonical(*api::find_operation("pppoeia_port_state_set"), 2, words{inputs[0], "0", inputs[1]});
}

void card_builder::trust_all(const words& inputs, words&)
{
  const std::string trust =
      canonical(*api::find_operation("pppoeia_port_trust_set"), 2, words{inputs[0], "0", inputs[1]});
  for (auto& [id, port] : bridge_of(inputs).ports)
    port.values[port_trust] = trust;
  card_.bridges[inputs[0]].slot_trust = trust;
  for (auto& [id, left] : left_[inputs[0]])
    left.first = trust;
}

void card_builder::entry_add(const words& inputs, words& notes)
{
  port_of(inputs).vlans.try_emplace(vlan_of(inputs, 2, notes));
}

void card_builder::entry_del(const words& inputs, words& notes)
{
  port_of(inputs).vlans.erase(vlan_of(inputs, 2, notes));
}

void card_builder::entry_mode(const words& inputs, words& notes)
{
  port& owner = port_of(inputs);
  const uint16_t vlan = vlan_of(inputs, 2, notes);
  const auto number = static_cast<int32_t>(agent_client::number_parse(mode_words, inputs[3]).value_or(0));
  if (number != -1) {
    owner.vlans[vlan].mode = number;
    return;
  }
  const auto at = owner.vlans.find(vlan);
  if (at == owner.vlans.end())
    return;
  if (at->second.circuit_id_format.empty() && at->second.remote_id_format.empty())
    owner.vlans.erase(at);
  else
    at->second.mode = 0;
}

void card_builder::entry_format(const words& inputs, std::string port_vlan::*format, words& notes)
{
  port& owner = port_of(inputs);
  const uint16_t vlan = vlan_of(inputs, 2, notes);
  constexpr size_t format_max = 127;
  if (inputs[3].size() > format_max)
    refuse(port_text(inputs[0], named_.port) + ", VLAN " + inputs[2] + ": a format of " +
           std::to_string(inputs[3].size()) + " characters, at most 127 are taken");
  if (!inputs[3].empty()) {
    owner.vlans[vlan].*format = inputs[3];
    return;
  }
  const auto at = owner.vlans.find(vlan);
  if (at == owner.vlans.end())
    return;
  port_vlan without = at->second;
  without.*format = "";
  if (without == port_vlan{})
    owner.vlans.erase(at);
  else
    at->second = without;
}

void card_builder::entry_circuit_id(const words& inputs, words& notes)
{
  entry_format(inputs, &port_vlan::circuit_id_format, notes);
}

void card_builder::entry_remote_id(const words& inputs, words& notes)
{
  entry_format(inputs, &port_vlan::remote_id_format, notes);
}

void card_builder::entries_clear(const words& inputs, words&)
{
  port_of(inputs).vlans.clear();
}

void card_builder::entries_clear_all(const words& inputs, words&)
{
  for (auto& [id, port] : bridge_of(inputs).ports)
    port.vlans.clear();
}

}  // namespace config
