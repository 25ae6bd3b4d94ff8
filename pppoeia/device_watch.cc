#include "pppoeia/device_watch.h"

#include "pppoeia/kernel.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <cerrno>

device_watch::device_watch(const pppoeia_bridge& bridge) : bridge_(bridge)
{
  if (kernel->link_index(bridge.sock, bridge.dev_name, &index_) < 0)
    index_ = -1;
}

void device_watch::failed(int error)
{
  if (lost_ || (error != ENETDOWN && error != ENODEV && error != ENXIO))
    return;
  lost_ = true;
  pppoeia_log(log_warning, "<%s> Pseudo device '%s' is gone.", bridge_.name, bridge_.dev_name);
}

// The kernel takes a packet socket off a device that is deleted, and forgets which one it was.
void device_watch::waited() const
{
  int index = -1;
  if (lost_ && kernel->link_index(bridge_.sock, bridge_.dev_name, &index) == 0 && index == index_)
    kernel->bind_packet(bridge_.sock, index);
}
