// Values that the agent takes though they mean nothing.
#ifndef TOOLS_PPPOEIACTL_WARNING_H
#define TOOLS_PPPOEIACTL_WARNING_H

#include "tools/pppoeiactl/context.h"

// What is to be said of an operation's inputs before it is called: one line each.
words warnings_of(const api::operation& operation, const words& inputs);

#endif
