// A program's place at tc of an interface: first in the row, under a handle of its own, at a clsact qdisc. What others
// have there stays as it is.
#ifndef PLATFORM_KVBRIDGED_KERNEL_TC_SLOT_H
#define PLATFORM_KVBRIDGED_KERNEL_TC_SLOT_H

#include <cstdint>

namespace kvbridged {

enum class tc_side { in, out };

// Makes the qdisc. 0, EEXIST when there is one already, or another errno value.
int tc_qdisc_make(int interface);
// Removes the qdisc, unless somebody's filter is left at it.
void tc_qdisc_remove(int interface);

// Puts a program in its place; one that is there is replaced without a gap. 0 or an errno value.
int tc_attach(int interface, tc_side side, int program);
// Takes it off, if it is there.
void tc_detach(int interface, tc_side side);
// Takes both sides' off, and the qdisc if it may go.
void programs_take_off(int interface, bool with_qdisc);
// The id of the program that is there, 0 for none.
uint32_t tc_program(int interface, tc_side side);

}  // namespace kvbridged

#endif
