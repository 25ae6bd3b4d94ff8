// The pseudo network device of a bridge, made and deleted by the node's management module `kvmng`, and the bridge's own
// control file, by which its discovery frames are led there.
#ifndef PPPOEIA_KERNEL_PSEUDO_DEVICE_H
#define PPPOEIA_KERNEL_PSEUDO_DEVICE_H

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

#endif
