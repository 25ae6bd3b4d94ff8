#include "tools/pppoeiactl/config/initialise.h"

#include "tools/pppoeiactl/operation_command.h"

#include <cerrno>

namespace config {

// Removing a bridge that cannot be there changes nothing, and the answer tells an agent that is not initialised.
bool is_initialised(const context& context)
{
  constexpr const char* no_name = "longer than a bridge's name";
  return context.ask(row("pppoeia_bridge_del"), {no_name}).result != -ENXIO;
}

void init_run(const context& context, const words& line)
{
  words rest = line;
  const bool forced = std::erase(rest, "--force") > 0;
  if (!forced && rest.empty() && is_initialised(context))
    throw command_error(exit_refused, "the agent is initialised already: \"apply FILE\" changes what it has, \"fini\" "
                                      "ends that first, --force leaves its bridges running out of reach");
  operation_run(context, row("pppoeia_init"), rest);
}

words init_forced(words command)
{
  if (command == words{"init"} || command == words{"node", "init"})
    command.emplace_back("--force");
  return command;
}

}  // namespace config
