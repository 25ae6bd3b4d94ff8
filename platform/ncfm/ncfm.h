// The node configuration library as the agent sees it: the card's board position and the node's addresses.
// A node with the vendor's library links that instead (CMake option PPPOEIA_NCFM_LIBRARY).
#ifndef PLATFORM_NCFM_NCFM_H
#define PLATFORM_NCFM_NCFM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// The card's place in the chassis. Only the first byte is of interest to the agent.
typedef struct ncfmBoardPos {
  uint8_t position;
  uint8_t reserved[3];
} ncfmBoardPos;

// A layer-3 interface of the node.
typedef struct ncfmInterface {
  uint8_t ipv4[4];  // network byte order; 0.0.0.0 when the interface has none
} ncfmInterface;

// Writes this card's board position. 0, or non-zero when the node does not tell it; then *pos is untouched.
// Any thread.
int ncfmGetMyBoardPos(ncfmBoardPos* pos);

// Looks up the IPv4 address of the interface `device`, or of the management interface "mng0" where that has none.
// 0, or non-zero when there is neither; then *itf is untouched. Answers may be up to a second old. Any thread.
int ncfmGetInterface(const char* device, ncfmInterface* itf);

// Writes the node's IPv6 address (16 bytes, network byte order): a global one before a link-local one, of "mng0".
// 0, or non-zero when there is none; then `address` is untouched. Answers may be up to a second old. Any thread.
int ncfmGetIpv6(uint8_t address[16]);

#ifdef __cplusplus
}
#endif

#endif
