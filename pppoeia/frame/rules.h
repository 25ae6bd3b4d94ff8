// What the rules make of a frame: its parsed record and its port give an action, a counter and a reason.
#ifndef PPPOEIA_FRAME_RULES_H
#define PPPOEIA_FRAME_RULES_H

#include "pppoeia/frame/fate.h"
#include "pppoeia/frame/parse.h"
#include "pppoeia/records.h"

enum class frame_action : uint8_t {
  drop,
  pass,        // outside the agent's rules: as it came
  forward,     // accepted as it is
  tag_remove,  // accepted: its vendor tag goes
  tag_insert,  // accepted: the line's vendor tag comes in
};

struct verdict {
  frame_action action;
  uint32_t pppoeia_stats::*counter;  // of bridge and port; null: not counted
  fate reason;                       // an edit that fails has one of its own
};

// Ports of kinds 1 and 5 take every VLAN.
bool takes_every_vlan(const pppoeia_port& port);

// `port` is where the frame came in, null when there is none. The bridge is not off.
verdict frame_judge(const pppoeia_bridge& bridge, const pppoeia_port* port, const parsed_frame& frame);

#endif
