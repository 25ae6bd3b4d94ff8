// What became of a frame, and why: the value that the frame path answers beside the bytes to send. Counters, the drop
// list, the line table and the monitor all speak of it.
#ifndef PPPOEIA_FRAME_FATE_H
#define PPPOEIA_FRAME_FATE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

enum class fate : uint8_t {
  // Accepted and sent on.
  tag_inserted,    // PADI, PADR: the line's vendor tag put in
  tag_replaced,    // PADI, PADR: put in the place of the one that was there
  tag_removed,     // PADO, PADS: the vendor tag taken out
  tag_kept,        // PADO, PADS: the bridge keeps vendor tags
  tag_absent,      // PADO, PADS: there was none
  unedited,        // PADT and unknown codes
  error_answered,  // PADI, PADR: too large with the tag, answered to the client
  // Sent on as they came, outside the agent's rules.
  bridge_off,
  vlan_not_enabled,
  port_disabled,
  // Dropped.
  record_length,     // not as long as the kernel's header says, or empty
  unknown_port,      // no such port was added
  not_discovery,     // another EtherType
  payload_past_end,  // the PPPoE length goes past the record
  role,              // a code that the port's side may not send
  tag_untrusted,     // a vendor tag from an untrusted port
  removal_misfit,    // the vendor tag is longer than the payload: it cannot be taken out
  insertion_misfit,  // the lengths would not bear the tag
  no_own_address,    // too large with the tag, and mng0's address could not be read for the answer
};

inline constexpr size_t fate_count = 19;

enum class fate_class : uint8_t { accepted, untouched, dropped };

constexpr fate_class class_of(fate what)
{
  if (what < fate::bridge_off)
    return fate_class::accepted;
  return what < fate::record_length ? fate_class::untouched : fate_class::dropped;
}

// Whether the frame was counted by its code before it met its fate.
constexpr bool counts_by_code(fate what)
{
  return class_of(what) == fate_class::accepted || what >= fate::removal_misfit;
}

// A word for counters and lists, and a sentence for people.
struct fate_words {
  std::string_view name;
  std::string_view text;
};

inline constexpr fate_words fate_texts[fate_count] = {
    {"tag_inserted", "vendor tag inserted"},
    {"tag_replaced", "vendor tag replaced"},
    {"tag_removed", "vendor tag removed"},
    {"tag_kept", "vendor tag kept"},
    {"tag_absent", "no vendor tag to remove"},
    {"unedited", "passed as it is"},
    {"error_answered", "too large with the vendor tag, answered with an error"},
    {"bridge_off", "bridge is off"},
    {"vlan_not_enabled", "VLAN is not enabled"},
    {"port_disabled", "PPPoE is disabled on the port"},
    {"record_length", "record length is not what its header says"},
    {"unknown_port", "no such port"},
    {"not_discovery", "not a PPPoE discovery frame"},
    {"payload_past_end", "PPPoE length goes past the frame"},
    {"role", "the port's side may not send this code"},
    {"tag_untrusted", "vendor tag on an untrusted port"},
    {"removal_misfit", "vendor tag goes past the payload"},
    {"insertion_misfit", "no room for the vendor tag"},
    {"no_own_address", "too large with the vendor tag, and the address of mng0 cannot be read"},
};

constexpr const fate_words& words_of(fate what)
{
  return fate_texts[static_cast<size_t>(what)];
}

#endif
