#include "tools/pppoeiactl/format/format_set.h"

#include "tools/pppoeiactl/operation_command.h"

std::vector<std::pair<const api::operation*, words>> format_set_calls(const given_words& given)
{
  std::vector<std::pair<const api::operation*, words>> calls;
  const auto set = [&](const api::operation& operation, const std::string& value) {
    words inputs = given.arguments;
    inputs.push_back(value);
    inputs.insert(inputs.begin(), "--");
    calls.emplace_back(&operation, std::move(inputs));
  };
  const auto circuit_id = given.value("--circuit-id");
  const auto remote_id = given.value("--remote-id");
  const auto mode = given.value("--mode");
  if (given.options.empty())
    throw command_error(exit_usage, std::string("format set: needs one of --circuit-id, --remote-id, --mode"));
  for (const auto& format : {circuit_id, remote_id})
    if (format)
      format_length_check("format", *format);
  const bool ends = mode == "unset";  // the entry does, with what it holds
  if ((mode || circuit_id) && !ends)
    set(row("pppoeia_circuit_id_mode_port_vlan_set"), mode.value_or("custom"));
  if (circuit_id)
    set(row("pppoeia_circuit_id_format_port_vlan_set"), *circuit_id);
  if (remote_id)
    set(row("pppoeia_remote_id_format_port_vlan_set"), *remote_id);
  if (ends)
    set(row("pppoeia_circuit_id_mode_port_vlan_set"), *mode);
  return calls;
}

void format_set_run(const context& context, const given_words& given)
{
  for (const auto& [operation, inputs] : format_set_calls(given))
    operation_run(context, *operation, inputs);
}
