#include "tools/pppoeiactl/commands.h"

#include "tools/pppoeiactl/agent/bridge_report.h"
#include "tools/pppoeiactl/agent/discovery.h"
#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/words/line.h"

#include <cerrno>
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

  bool is(std::string_view name) const { return operation_.name == name; }

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
  std::string not_found() const;
  std::string no_bridge() const;
  std::string no_entry() const;
  std::string no_device() const;
  std::string no_slot() const;
  std::string no_space() const;
  std::string not_valid() const;
  std::string not_made() const;
  std::string other(int32_t result) const;

  const context& context_;
  const api::operation& operation_;
  const words& inputs_;
};

constexpr char not_initialised[] = "the agent is not initialised ('init' does it)";

std::string refused_call::no_bridge() const
{
  const std::string begin = "bridge " + bridge() + ": ";
  if (!is_initialised(context_))
    return begin + not_initialised;
  std::string names;
  for (const std::string& name : bridges_of(context_))
    names += (names.empty() ? "" : ", ") + name;
  return begin + "no such bridge (" +
         (names.empty() ? "there is none; 'bridge add' adds one)" : "bridges: " + names + "; 'show bridge')");
}

std::string refused_call::no_entry() const
{
  if (!input("port"))
    return object() + ": no such entry";
  const auto id = static_cast<uint32_t>(number_word_parse(port(), UINT32_MAX, "port"));
  std::vector<uint32_t> vlans;
  for (const pppoeia_port_vlan_entry& entry : port_vlans_of(context_, *input("bridge"), id))
    vlans.push_back(static_cast<uint16_t>(entry.vlan_id));
  const std::string what = is("pppoeia_port_vlan_get_next") ? ": no entry behind it" : ": no such entry";
  return object() + what + " (VLAN entries: " + ranges_text(vlans) + "; 'show port-vlan " + bridge() + " " + port() +
         "')";
}

// The agent answers alike for a bridge and for an entry that is not there, and for both when it has no state.
std::string refused_call::not_found() const
{
  if (!input("bridge"))
    return object() + ": " + not_initialised;
  if (context_.ask(row("pppoeia_bridge_state_get"), {*input("bridge")}).result != 0)
    return no_bridge();
  return no_entry();
}

std::string refused_call::no_device() const
{
  if (is("pppoeia_bridge_add"))
    return object() + ": exists already ('show bridge " + bridge() + "')";
  if (is("pppoeia_vlan_name_set")) {
    std::vector<uint32_t> named;
    for (const auto& [id, name] : bridge_report_read(context_, *input("bridge")).vlans)
      named.push_back(id);
    return object() + ": not among the named VLANs (" + ranges_text(named) + "; 'vlan add " + bridge() + " " + vlan() +
           "' makes it one)";
  }
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

std::string refused_call::no_space() const
{
  if (is("pppoeia_port_add"))
    return no_slot();
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

std::string refused_call::not_valid() const
{
  if (is("pppoeia_bridge_max_pdu_set")) {
    const agent_client::answer now = context_.ask(row("pppoeia_bridge_max_pdu_get"), {*input("bridge")});
    const int64_t limit =
        agent_client::number_of(row("pppoeia_bridge_max_pdu_get").arguments().back(), now.buffers.back());
    return object() + ": max-pdu '" + input("max-pdu").value_or("") + "' is above the MTU that " + bridge() +
           "_pppoe had at 'bridge add' (now " + std::to_string(limit) + "; 'bridge max-pdu get " + bridge() + "')";
  }
  if (is("pppoeia_port_add"))
    return "port " + port() + ": ports of " + bridge() + " begin at 1";
  if (is("pppoeia_bridge_add"))
    return object() + ": the name has " + std::to_string(input("bridge").value_or("").size()) +
           " characters, at most 10";
  return object() + ": " + std::strerror(EINVAL);
}

// A bridge that could not be added for want of memory, or whatever it is that kernels say.
std::string refused_call::not_made() const
{
  constexpr uint64_t slots_max = 65536;
  const std::string ports = input("ports").value_or("");
  if (is("pppoeia_bridge_add") && !ports.empty() && std::strtoull(ports.c_str(), nullptr, 0) > slots_max)
    return object() + ": '" + ports + "' port slots, at most " + std::to_string(slots_max);
  return is("pppoeia_bridge_vendor_set") ? no_space() : object() + ": " + std::strerror(ENOMEM);
}

std::string refused_call::other(int32_t result) const
{
  if (result > 0 && operation_.name.starts_with("pppoeia_test_"))
    return no_bridge();
  if (result > 0 && (is("pppoeia_port_pvc_set") || is("pppoeia_port_pvc_get")))
    return object() + ": a PVC is for ports of type atm ('port add ... --type atm')";
  if (result > 0 && is("pppoeia_init"))
    return object() + ": the kernel module kvmng cannot be reached: " + std::strerror(result);
  if (result == -EPERM && is("pppoeia_init"))
    return object() + ": the kernel module kvbridge cannot be reached";
  if (result == -EPERM && is("pppoeia_bridge_add"))
    return object() + ": the kernel refuses; the agent's log says what";
  return object() + ": " + std::strerror(result < 0 ? -result : result);
}

std::string refused_call::text(int32_t result) const
{
  switch (-result) {
  case ENOENT:
    return not_found();
  case ENXIO:
    return object() + ": " + not_initialised;
  case ENODEV:
    return no_device();
  case ENOSPC:
    return no_space();
  case EINVAL:
    return not_valid();
  case ENOMEM:
    return not_made();
  case EMFILE:
    return object() + ": the kernel has no bridge of that name ('ls /proc/net/kvbridge')";
  default:
    return other(result);
  }
}

}  // namespace

std::string refusal_text(const context& context, const api::operation& operation, const words& inputs, int32_t result)
{
  return refused_call(context, operation, inputs).text(result);
}
