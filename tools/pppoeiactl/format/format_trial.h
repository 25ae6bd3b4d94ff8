// Formats expanded by the agent on a real port and VLAN, through its test operations: no other operation expands a
// format that is not in force. They work on test data that the agent keeps for everybody, so a trial reads these data
// first and puts back what it changed when it ends.
#ifndef TOOLS_PPPOEIACTL_FORMAT_FORMAT_TRIAL_H
#define TOOLS_PPPOEIACTL_FORMAT_FORMAT_TRIAL_H

#include "tools/pppoeiactl/agent/context.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class format_trial {
public:
  // Throws command_error when the bridge does not exist.
  format_trial(const context& context, std::string bridge);
  ~format_trial();
  format_trial(const format_trial&) = delete;
  format_trial& operator=(const format_trial&) = delete;

  // The line that later expansions are for.
  void line_set(uint32_t port, uint32_t vlan, uint32_t cvid);

  // What becomes of each part of a format, one that is cut to 63 characters nowhere. The parts are consecutive pieces
  // of one format, each macro whole in one of them: numbers and delimiters live on from part to part.
  words expand(const words& parts);

  // The same on each of these ports, for no particular VLAN.
  std::vector<words> expand_on(const std::vector<uint32_t>& ports, const words& parts);

private:
  enum item { port, vlan, cvid, format, item_count };

  void set(item which, const std::string& value);
  std::string run();

  const context& context_;
  std::string bridge_;
  std::array<std::string, item_count> found_;                 // at the start
  std::array<std::optional<std::string>, item_count> given_;  // by this trial
};

#endif
