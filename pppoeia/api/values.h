// Words for the numbers that operations take and return, for people: the agent itself only ever sees the numbers.
#ifndef PPPOEIA_API_VALUES_H
#define PPPOEIA_API_VALUES_H

#include <cstdint>
#include <span>
#include <string_view>

namespace api {

struct value_name {
  int64_t value;
  std::string_view word;
};

// Which words go with an argument.
enum class values : uint8_t { none, on_off, port_state, trust, vsa_mode, cid_mode, log_level, test_option, test_run };

inline constexpr value_name on_off_names[] = {{0, "off"}, {1, "on"}};
inline constexpr value_name port_state_names[] = {{0, "disabled"}, {1, "subscriber"}, {2, "network"}, {3, "any"}};
inline constexpr value_name trust_names[] = {{0, "trusted"}, {1, "untrusted"}};
inline constexpr value_name vsa_mode_names[] = {{0, "keep"}, {1, "remove"}};
inline constexpr value_name cid_mode_names[] = {{-1, "unset"}, {0, "ethernet"}, {1, "atm"}, {2, "custom"}};
inline constexpr value_name log_level_names[] = {{-2, "default"}, {-1, "none"}, {0, "emergency"}, {1, "alert"},
                                                 {2, "critical"}, {3, "error"}, {4, "warning"},   {5, "notice"},
                                                 {6, "info"},     {7, "debug"}};

// The words of a set, ascending by value. Empty for sets whose words are the argument itself (texts).
constexpr std::span<const value_name> names_of(values set)
{
  switch (set) {
  case values::on_off:
    return on_off_names;
  case values::port_state:
    return port_state_names;
  case values::trust:
    return trust_names;
  case values::vsa_mode:
    return vsa_mode_names;
  case values::cid_mode:
    return cid_mode_names;
  case values::log_level:
    return log_level_names;
  case values::none:
  case values::test_option:
  case values::test_run:
    break;
  }
  return {};
}

// Texts that test operations take: option names of pppoeia_test_set(), options and modes of pppoeia_test_run().
inline constexpr std::string_view test_set_options[] = {
    "pppoeiaTestSetVlan",    "pppoeiaTestSetCvid",         "pppoeiaTestSetIntfId",
    "pppoeiaTestSetOnu",     "pppoeiaTestSetVgem",         "pppoeiaTestSetTContType",
    "pppoeiaTestSetClntMac", "pppoeiaTestSetCustomCidStr", "pppoeiaTestSetCustomRidStr"};
inline constexpr std::string_view test_run_options[] = {"pppoeiaTestRunCid", "pppoeiaTestRunRid"};
inline constexpr std::string_view test_run_modes[] = {"test", "available"};

}  // namespace api

#endif
