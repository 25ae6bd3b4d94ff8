// What only macros and reports tell of a bridge's ports, read from all of them at once.
//
// For a moment each port gets an entry for a VLAN that no frame can have, since tags have 12 bits. Its Remote ID format
// lists macros, and the query for that VLAN's Remote ID tells their values; and the agent's report names the devices of
// ports with entries. Frames are not touched by it. An entry that a killed tool leaves behind does nothing.
#ifndef TOOLS_PPPOEIACTL_CONFIG_PORT_PROBE_H
#define TOOLS_PPPOEIACTL_CONFIG_PORT_PROBE_H

#include "tools/pppoeiactl/config/card.h"

#include <set>

namespace config {

// A macro and the most characters that it can become.
struct probed_macro {
  std::string_view macro;
  size_t most;
};

class port_probe {
public:
  // `ports` must exist; what they hold is looked at for a VLAN that none has an entry for.
  port_probe(const context& context, std::string bridge, const std::map<uint32_t, port>& ports);
  // Takes the entries away.
  ~port_probe();
  port_probe(const port_probe&) = delete;
  port_probe& operator=(const port_probe&) = delete;

  // Of each of these ports, in order, the values of the macros; nothing for a port one of whose values may have been
  // cut, or holds what parts them.
  std::vector<words> expand(const std::vector<uint32_t>& ports, const std::vector<probed_macro>& macros);

private:
  void expand_some(const std::vector<uint32_t>& ports, const std::vector<probed_macro>& macros,
                   std::vector<words>& values);

  const context& context_;
  std::string bridge_;
  std::string vlan_;
  std::set<uint32_t> touched_;
};

// The macros of those rows that have one.
std::vector<probed_macro> macros_of(std::span<const setting> rows);

// Asks all and demands that each was answered, whatever the result.
void ask_all(const context& context, std::vector<agent_client::question>& questions);

}  // namespace config

#endif
