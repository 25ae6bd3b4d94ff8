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

void init_run(const context& context, const given_words& given)
{
  if (!given.has("--force") && is_initialised(context))
    throw command_error(exit_refused,
                        "init: the agent is initialised already: \"apply FILE\" changes what it has, \"fini\" "
                        "ends that first, --force leaves its bridges running out of reach");
  operation_run(context, row("pppoeia_init"), {});
}

words init_forced(words command)
{
  if (command == words{"init"} || command == words{"node", "init"})
    command.emplace_back("--force");
  return command;
}

}  // namespace config
