// "check", "diff", "apply", "confirm": a card from a file.
#ifndef TOOLS_PPPOEIACTL_CONFIG_APPLY_H
#define TOOLS_PPPOEIACTL_CONFIG_APPLY_H

#include "tools/pppoeiactl/words/given_words.h"

namespace config {

inline constexpr char diff_usage[] = "diff [--keep] [--renew] [--no-trial] FILE";
inline constexpr char apply_usage[] = "apply [--dry-run] [--confirm SECONDS] [--keep] [--renew] [--no-trial] FILE";
inline constexpr char diff_options[] = "--keep --renew --no-trial";
inline constexpr char apply_options[] = "--dry-run --confirm= --keep --renew --no-trial";
inline constexpr char confirm_usage[] = "confirm";

// Prints the commands that would make the running agent the file's card. Ends with exit_findings when there are any.
void diff_run(const context& context, const given_words& given);

// Runs them. What was done by one that failed is undone.
void apply_run(const context& context, const given_words& given);

// Tells the tool that waits behind "apply --confirm" that what it did is to stay.
void confirm_run(const context& context, const given_words& given);

}  // namespace config

#endif
