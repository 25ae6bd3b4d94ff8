// The agent's own MAC address.
#ifndef PPPOEIA_KERNEL_LOCAL_MAC_H
#define PPPOEIA_KERNEL_LOCAL_MAC_H

extern "C" {

// Writes the hardware address of the management interface "mng0", 6 bytes in transmission order. 0; or -1, logged at
// error level, and `mac` untouched. Any thread.
int pppoeia_get_local_mac(unsigned char mac[6]);

}  // extern "C"

#endif
