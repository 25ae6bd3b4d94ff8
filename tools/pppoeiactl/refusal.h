// What a user is told when the agent refuses an operation.
#ifndef TOOLS_PPPOEIACTL_REFUSAL_H
#define TOOLS_PPPOEIACTL_REFUSAL_H

#include "tools/pppoeiactl/context.h"

// One line that names the object and the value, what is allowed and the command that shows it, for a result other
// than 0. `inputs` are those of the call. Asks the agent what there is; throws when it does not answer.
std::string refusal_text(const context& context, const api::operation& operation, const words& inputs, int32_t result);

// Numbers ascending as people write them: "1 to 4, 7"; "none" for none.
std::string ranges_text(const std::vector<uint32_t>& ids);

#endif
