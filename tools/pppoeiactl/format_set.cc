#include "tools/pppoeiactl/format_set.h"

#include "tools/pppoeiactl/operation_command.h"

std::vector<format_setting> format_settings(const given_words& given)
{
  const auto circuit_id = given.value("--circuit-id");
  const auto remote_id = given.value("--remote-id");
  const auto mode = given.value("--mode");
  if (given.options.empty())
    throw command_error(exit_usage, "format set: needs one of --circuit-id, --remote-id, --mode");
  std::vector<format_setting> settings;
  const auto add = [&](const api::operation& operation, const std::string& value) {
    words line{"--"};
    line.insert(line.end(), given.arguments.begin(), given.arguments.end());
    line.push_back(value);
    settings.push_back({&operation, operation_inputs(operation, line)});
  };
  for (const auto& format : {circuit_id, remote_id})
    if (format)
      format_length_check("format", *format);
  const bool ends = mode == "unset";  // the entry does, with what it holds
  if ((mode || circuit_id) && !ends)
    add(row("pppoeia_circuit_id_mode_port_vlan_set"), mode.value_or("custom"));
  if (circuit_id)
    add(row("pppoeia_circuit_id_format_port_vlan_set"), *circuit_id);
  if (remote_id)
    add(row("pppoeia_remote_id_format_port_vlan_set"), *remote_id);
  if (ends)
    add(row("pppoeia_circuit_id_mode_port_vlan_set"), *mode);
  return settings;
}

void format_set_run(const context& context, const given_words& given)
{
  for (const format_setting& one : format_settings(given)) {
    words line = one.inputs;
    line.insert(line.begin(), "--");
    operation_run(context, *one.operation, line);
  }
}
