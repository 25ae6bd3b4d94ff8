#include "tools/pppoeiactl/commands.h"

#include "tools/pppoeiactl/agent/bridge_report.h"
#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/words/line.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

using api::kind;

// A call that was refused, taken apart by the names of its arguments.
class refused_call {
public:
  refused_call(const context& context, const api::operation& operation, const words& inputs)
      : context_(context), operation_(operation), inputs_(inputs)
  {}

  std::optional<std::string> input(std::string_view name) const
  {
    auto next = inputs_.begin();
    for (const api::argument& argument : operation_.arguments()) {
      if (api::is_output(argument.what) || next == inputs_.end())
        continue;
      if (argument.name == name)
        return *next;
      ++next;
    }
    return std::nullopt;
  }

  std::string bridge() const { return word_write(input("bridge").value_or("")); }
  std::string port() const { return input("port").value_or(""); }
  std::string vlan() const { return input("vlan").value_or(""); }

  // "port 4 VLAN 7 of br0"; the command where nothing is named.
  std::string object() const
  {
    if (!input("bridge"))
      return std::string(operation_.command);
    if (!input("port"))
      return (input("vlan") ? "VLAN " + vlan() + " of " : "bridge ") + bridge();
    return "port " + port() + (input("vlan") ? " VLAN " + vlan() : "") + " of " + bridge();
  }

  std::string text(int32_t result) const;

private:
  std::string not_found(const char* what) const;
  std::string no_bridge() const;
  std::string no_entry(const char* what) const;
  std::string no_vlan() const;
  std::string no_port() const;
  std::string no_slot() const;
  std::string no_room() const;
  std::string above_mtu() const;
  std::string not_made() const;
  std::string named(api::meaning meaning, int32_t result) const;

  const context& context_;
  const api::operation& operation_;
  const words& inputs_;
};

constexpr char no_state[] = "the agent is not initialised ('init' does it)";

std::string refused_call::no_bridge() const
{
  const std::string begin = "bridge " + bridge() + ": ";
  if (!is_initialised(context_))
    return begin + no_state;
  std::string names;
  for (const std::string& name : bridges_of(context_))
    names += (names.empty() ? "" : ", ") + name;
  return begin + "no such bridge (" +
         (names.empty() ? "there is none; 'bridge add' adds one)" : "bridges: " + names + "; 'show bridge')");
}

std::string refused_call::no_entry(const char* what) const
{
  if (!input("port"))
    return object() + ": no such entry";
  const auto id = static_cast<uint32_t>(number_word_parse(port(), UINT32_MAX, "port"));
  std::vector<uint32_t> vlans;
  for (const pppoeia_port_vlan_entry& entry : port_vlans_of(context_, *input("bridge"), id))
    vlans.push_back(static_cast<uint16_t>(entry.vlan_id));
  return object() + what + " (VLAN entries: " + ranges_text(vlans) + "; 'show port-vlan " + bridge() + " " + port() +
         "')";
}

// The agent answers alike for a bridge and for an entry that is not there, and for both when it has no state.
std::string refused_call::not_found(const char* what) const
{
  if (!input("bridge"))
    return object() + ": " + no_state;
  if (context_.ask(row("pppoeia_bridge_state_get"), {*input("bridge")}).result != 0)
    return no_bridge();
  return no_entry(what);
}

std::string refused_call::no_vlan() const
{
  std::vector<uint32_t> named;
  for (const auto& [id, name] : bridge_report_read(context_, *input("bridge")).vlans)
    named.push_back(id);
  return object() + ": not among the named VLANs (" + ranges_text(named) + "; 'vlan add " + bridge() + " " + vlan() +
         "' makes it one)";
}

std::string refused_call::no_port() const
{
  if (!input("port"))
    return object() + ": ended at a port that was removed";
  const std::vector<uint32_t> ports = ports_of(context_, *input("bridge"));
  const std::string begin = "port " + port() + ": " + bridge() + " has ";
  if (ports.empty())
    return begin + "no ports ('port add' adds one)";
  return begin + (ports.size() == 1 ? "only port " : "ports ") + ranges_text(ports) + " ('show port " + bridge() + "')";
}

// How many slots a bridge has, no operation tells; the tool remembers of those that it added.
std::string refused_call::no_slot() const
{
  const auto known = config::memory(context_.agent.socket()).read();
  const auto at = known.find(input("bridge").value_or(""));
  if (at != known.end() && at->second.slots)
    return "port " + port() + ": " + bridge() + " has room for ports 1 to " +
           std::to_string(std::strtoul(at->second.slots->c_str(), nullptr, 0) - 1) + " ('bridge add' gives it)";
  return "port " + port() + ": more than the port slots of " + bridge() +
         " (its ports: " + ranges_text(ports_of(context_, *input("bridge"))) +
         "; 'bridge add' says how many slots a bridge has)";
}

// Of the texts, which is longer than the agent takes.
std::string refused_call::no_room() const
{
  auto next = inputs_.begin();
  for (const api::argument& argument : operation_.arguments()) {
    if (api::is_output(argument.what) || next == inputs_.end())
      continue;
    if (argument.what == kind::text && next->size() > argument.size)
      return object() + ": " + std::string(argument.name) + " '" + printable(*next) + "' has " +
             std::to_string(next->size()) + " characters, at most " + std::to_string(argument.size);
    ++next;
  }
  return object() + ": no room";
}

std::string refused_call::above_mtu() const
{
  const api::operation& getter = *api::getter_of(operation_);
  const agent_client::answer now = context_.ask(getter, {*input("bridge")});
  const int64_t limit = agent_client::number_of(getter.arguments().back(), now.buffers.back());
  return object() + ": max-pdu '" + input("max-pdu").value_or("") + "' is above the MTU that " + bridge() +
         "_pppoe had at 'bridge add' (now " + std::to_string(limit) + "; 'bridge max-pdu get " + bridge() + "')";
}

// A bridge that could not be added for want of memory.
std::string refused_call::not_made() const
{
  constexpr uint64_t slots_max = 65536;
  const std::string ports = input("ports").value_or("");
  if (!ports.empty() && std::strtoull(ports.c_str(), nullptr, 0) > slots_max)
    return object() + ": '" + ports + "' port slots, at most " + std::to_string(slots_max);
  return object() + ": " + std::strerror(ENOMEM);
}

// Behind the object's name.
std::string refused_call::named(api::meaning meaning, int32_t result) const
{
  using enum api::meaning;
  const auto because = [&](const std::string& reason) { return object() + ": " + reason; };
  switch (meaning) {
  case not_initialised:
    return because(no_state);
  case bridge_exists:
    return because("exists already ('show bridge " + bridge() + "')");
  case name_too_long:
    return because("the name has " + std::to_string(input("bridge").value_or("").size()) + " characters, at most 10");
  case no_kernel_bridge:
    return because("the kernel has no bridge of that name ('ls /proc/net/kvbridge')");
  case no_atm_port:
    return because("a PVC is for ports of type atm ('port add ... --type atm')");
  case kvmng_out_of_reach:
    return because(std::string("the kernel module kvmng cannot be reached: ") + std::strerror(result));
  case kvbridge_out_of_reach:
    return because("the kernel module kvbridge cannot be reached");
  case kernel_refuses:
    return because("the kernel refuses; the agent's log says what");
  default:
    return because(std::strerror(std::abs(result)));
  }
}

std::string refused_call::text(int32_t result) const
{
  const api::meaning meaning = api::meaning_of(operation_, result);
  switch (meaning) {
  case api::meaning::no_bridge_or_entry:
    return not_found(": no such entry");
  case api::meaning::no_entry_behind:
    return not_found(": no entry behind it");
  case api::meaning::no_bridge:
    return no_bridge();
  case api::meaning::no_vlan:
    return no_vlan();
  case api::meaning::no_port:
    return no_port();
  case api::meaning::port_out_of_range:
    return no_slot();
  case api::meaning::port_zero:
    return "port " + port() + ": ports of " + bridge() + " begin at 1";
  case api::meaning::text_too_long:
    return no_room();
  case api::meaning::above_mtu:
    return above_mtu();
  case api::meaning::too_many_slots:
    return not_made();
  default:
    return named(meaning, result);
  }
}

}  // namespace

std::string refusal_text(const context& context, const api::operation& operation, const words& inputs, int32_t result)
{
  return refused_call(context, operation, inputs).text(result);
}
