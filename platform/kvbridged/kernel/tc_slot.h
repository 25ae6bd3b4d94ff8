// A program's places at tc of an interface: at a clsact qdisc, a filter of its own for each protocol, so that the
// frames of all other protocols meet no program. The kernel compares with the type of the tag that it took off a frame,
// or else with the frame's EtherType.
//
// Filters of one preference have one protocol, so each takes the first preference that is free. Ours are known by their
// handle and their name. What others have there stays as it is.
#ifndef PLATFORM_KVBRIDGED_KERNEL_TC_SLOT_H
#define PLATFORM_KVBRIDGED_KERNEL_TC_SLOT_H

#include <cstdint>
#include <vector>

struct bpf_program;

namespace kvbridged {

enum class tc_side { in, out };

// One of our filters.
struct tc_place {
  uint16_t preference = 0;
  uint16_t protocol = 0;
  uint32_t program = 0;  // its id
};

// Makes the qdisc. 0, EEXIST when there is one already, or another errno value.
int tc_qdisc_make(int interface);
// Removes the qdisc, unless somebody's filter is left at it.
void tc_qdisc_remove(int interface);

// Puts a program in its places, and takes off ours that are not among them. One that is there is replaced without a
// gap, and those to be taken off go when all are in place. 0 or an errno value.
int tc_attach(int interface, tc_side side, const bpf_program* program, const std::vector<uint16_t>& protocols);
// Takes ours off, if there are any.
void tc_detach(int interface, tc_side side);
// Takes both sides' off, and the qdisc if it may go.
void programs_take_off(int interface, bool with_qdisc);
// Those that are there, by preference.
std::vector<tc_place> tc_places(int interface, tc_side side);

}  // namespace kvbridged

#endif
