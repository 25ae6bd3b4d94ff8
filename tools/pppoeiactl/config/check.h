// "check FILE": what is wrong or doubtful about a file, without an agent.
#ifndef TOOLS_PPPOEIACTL_CONFIG_CHECK_H
#define TOOLS_PPPOEIACTL_CONFIG_CHECK_H

#include "tools/pppoeiactl/config/card_file.h"
#include "tools/pppoeiactl/words/given_words.h"

namespace config {

inline constexpr char check_usage[] = "check FILE";

// Ends with exit_usage for a file that cannot be applied, exit_findings for one with warnings only.
void check_run(const context& context, const given_words& given);

// What contradicts itself or does nothing on a card: warnings, with the line where the object was added.
std::vector<finding> doubts_of(const card_file& file);

}  // namespace config

#endif
