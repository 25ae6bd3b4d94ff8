// What a user is told when the agent refuses an operation.
#ifndef TOOLS_PPPOEIACTL_REFUSAL_H
#define TOOLS_PPPOEIACTL_REFUSAL_H

#include "tools/pppoeiactl/agent/context.h"

// A refusal_teller: one line that names the object and the value, what is allowed and the command that shows it, for a
// result other than 0. `inputs` are those of the call. Asks the agent what there is; throws when it does not answer.
std::string refusal_text(const context& context, const api::operation& operation, const words& inputs, int32_t result);

#endif
