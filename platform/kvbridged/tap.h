// A pseudo device: a TAP of a given name.
#ifndef PLATFORM_KVBRIDGED_TAP_H
#define PLATFORM_KVBRIDGED_TAP_H

#include "base/descriptor.h"

#include <string>

namespace kvbridged {

// Creates the device, not yet up, with that MTU and without IPv6. It lives as long as the descriptor, which reads and
// writes whole frames and does not block. -1 with errno set on failure (EEXIST: the name is taken).
descriptor tap_open(const std::string& name, int mtu);

// Sets the MTU of a device. False with errno set on failure.
bool tap_mtu_set(const std::string& name, int mtu);

}  // namespace kvbridged

#endif
