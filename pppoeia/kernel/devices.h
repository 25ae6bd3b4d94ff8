// The network devices that the agent deals with: the management interface; and the pseudo device of a bridge, made and
// deleted by the node's management module `kvmng`, with the bridge's own control file, by which its discovery frames
// are led there.
#ifndef PPPOEIA_KERNEL_DEVICES_H
#define PPPOEIA_KERNEL_DEVICES_H

// Creates `device` (a device of that name that is already there will do) and brings it up. 0, or the negative value
// of the step that failed, which is logged in the name of `bridge`.
int pppoeia_pseudo_dev_add(const char* bridge, const char* device);

// Deletes `device`. What goes wrong is logged, nothing more.
void pppoeia_pseudo_dev_del(const char* bridge, const char* device);

// The control file of the bridge itself, open. The descriptor, or -1; the caller closes it.
int bridge_control_open(const char* bridge);

// Has the bridge's discovery frames diverted to `device`, until the descriptor is closed. Negative with errno set on
// failure.
int bridge_filter_attach(int control_file, const char* device);

extern "C" {

// Writes the hardware address of the management interface "mng0", 6 bytes in transmission order. 0; or -1, logged at
// error level, and `mac` untouched. Any thread.
int pppoeia_get_local_mac(unsigned char mac[6]);

}  // extern "C"

#endif
