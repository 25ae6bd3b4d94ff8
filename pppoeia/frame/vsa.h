// What the agent does to the vendor tag of an accepted frame, and what has thereby become of the frame.
#ifndef PPPOEIA_FRAME_VSA_H
#define PPPOEIA_FRAME_VSA_H

#include "pppoeia/frame/passage.h"

// From the server to the client (PADO, PADS): a vendor tag is removed, or kept where the bridge says so.
fate vsa_of_server_frame(const passage& at);

// From the client to the server (PADI, PADR): the line's vendor tag is inserted, or put in place of the one there.
// Turns the frame into an error answer when it would pass the bridge's largest PDU.
fate vsa_of_client_frame(passage& at);

#endif
