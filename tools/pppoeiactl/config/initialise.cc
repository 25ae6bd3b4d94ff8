#include "tools/pppoeiactl/config/initialise.h"

#include "tools/pppoeiactl/discovery.h"
#include "tools/pppoeiactl/operation_command.h"

namespace config {

void init_run(const context& context, const given_words& given)
{
  if (!given.has("--force") && is_initialised(context))
    throw command_error(exit_refused, "init: the agent is initialised already ('apply' changes what it has, 'fini' "
                                      "ends that first, --force leaves its bridges running out of reach)");
  operation_run(context, row("pppoeia_init"), {});
}

}  // namespace config
