// "init": only once. An agent that is initialised again keeps its former workers running out of reach, and every frame
// is answered twice.
#ifndef TOOLS_PPPOEIACTL_CONFIG_INITIALISE_H
#define TOOLS_PPPOEIACTL_CONFIG_INITIALISE_H

#include "tools/pppoeiactl/words/given_words.h"

namespace config {

inline constexpr char init_usage[] = "init [--force]";
inline constexpr char init_options[] = "--force";

// Refuses on an agent that is initialised, unless "--force" stands behind it.
void init_run(const context& context, const given_words& given);

}  // namespace config

#endif
