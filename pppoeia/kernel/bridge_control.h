// The control file of one bridge of the kernel module `kvbridge`.
#ifndef PPPOEIA_KERNEL_BRIDGE_CONTROL_H
#define PPPOEIA_KERNEL_BRIDGE_CONTROL_H

// Opens it. The descriptor, or -1; the caller closes it.
int bridge_control_open(const char* bridge);

// Has the bridge's discovery frames diverted to `device`, until the descriptor is closed. Negative with errno set on
// failure.
int bridge_filter_attach(int control_file, const char* device);

#endif
