// "monitor" tells of each frame as it passes: what was done with it, and why.
#ifndef TOOLS_PPPOEIACTL_SHOW_MONITOR_H
#define TOOLS_PPPOEIACTL_SHOW_MONITOR_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char monitor_usage[] =
    "monitor [--code CODE] [--client MAC] [--dropped] [--count N] [--pcap FILE] [BRIDGE [PORT]]";
inline constexpr char monitor_options[] = "--code= --client= --dropped --count= --pcap=";

// A line a frame, or with --pcap (- is standard output) a capture file with each frame as it came and as it left.
void monitor_run(const context& context, const given_words& given);

#endif
