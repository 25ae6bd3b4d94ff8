// The agent's own answer to a client whose frame would not fit any more with the tag in it.
#ifndef PPPOEIA_FRAME_ERROR_ANSWER_H
#define PPPOEIA_FRAME_ERROR_ANSWER_H

#include "pppoeia/frame/discovery.h"
#include "pppoeia/frame/frame.h"

// Turns a PADI into a PADO, a PADR into a PADS, from the agent's own MAC address back to the client, with nothing but
// a Generic-Error tag in it; the rest of the received record becomes 0xff. Record length and session id stay. The
// output device name is left empty: the kernel bridge sends it where the client is. False, logged, when the agent's
// address cannot be had.
bool error_answer_make(const pppoeia_bridge& bridge, const frame_record& record, const discovery& request,
                       frame_services& services);

#endif
