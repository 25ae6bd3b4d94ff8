// Does commands to a card in memory, as an agent would that has just started.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CARD_BUILDER_H
#define TOOLS_PPPOEIACTL_CONFIG_CARD_BUILDER_H

#include "tools/pppoeiactl/config/card.h"

namespace config {

// Which objects a command names. Those that it does not are empty.
struct named_objects {
  std::string bridge;
  uint32_t port = 0;
  bool port_is_new = false;
};

class card_builder {
public:
  // Does one command, its inputs arranged and checked for their kinds. Throws command_error for what the agent would
  // refuse; `notes` get what it takes otherwise than it is written. False for a command that sets nothing.
  bool run(const api::operation& operation, const words& inputs, words& notes);

  // What the command named.
  const named_objects& named() const { return named_; }

  const card& made() const { return card_; }

private:
  struct special;
  static const special specials[];
  using slot_values = std::map<uint32_t, std::pair<std::string, std::string>>;

  [[noreturn]] static void refuse(const std::string& text);
  static uint32_t number(const std::string& text);
  static bool is_on(const std::string& text);
  static uint16_t vlan_of(const words& inputs, size_t at, words& notes);
  bridge& bridge_of(const words& inputs);
  port& port_of(const words& inputs);
  void must_be_initialised() const;
  bool set_by_row(const api::operation& operation, const words& inputs, words& notes);
  template <size_t Count>
  void value_set(std::array<value, Count>& values, size_t index, const setting& row, const words& inputs, size_t skip,
                 words& notes);

  void init(const words& inputs, words& notes);
  void fini(const words& inputs, words& notes);
  void bridge_debug(const words& inputs, words& notes);
  void bridge_add(const words& inputs, words& notes);
  void bridge_del(const words& inputs, words& notes);
  void bridge_defaults(const words& inputs, words& notes);
  void vlan_enable(const words& inputs, words& notes);
  void vlan_enable_all(const words& inputs, words& notes);
  void vlan_add(const words& inputs, words& notes);
  void vlan_del(const words& inputs, words& notes);
  void vlan_name(const words& inputs, words& notes);
  void vlan_clear(const words& inputs, words& notes);
  void port_add(const words& inputs, words& notes);
  void port_del(const words& inputs, words& notes);
  void port_rename(const words& inputs, words& notes);
  void state_all(const words& inputs, words& notes);
  void trust_all(const words& inputs, words& notes);
  void entry_add(const words& inputs, words& notes);
  void entry_del(const words& inputs, words& notes);
  void entry_mode(const words& inputs, words& notes);
  void entry_circuit_id(const words& inputs, words& notes);
  void entry_remote_id(const words& inputs, words& notes);
  void entries_clear(const words& inputs, words& notes);
  void entries_clear_all(const words& inputs, words& notes);
  void entry_format(const words& inputs, std::string port_vlan::*format, words& notes);

  card card_;
  named_objects named_;
  std::map<std::string, slot_values> left_;  // trust and mode that removed ports leave to their slots
};

}  // namespace config

#endif
