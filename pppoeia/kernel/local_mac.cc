#include "pppoeia/kernel/local_mac.h"

#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"

#include <cerrno>
#include <cstring>

int pppoeia_get_local_mac(unsigned char mac[6])
{
  const kernel_descriptor socket(kernel->datagram_socket());
  if (socket && kernel->link_mac(socket.get(), "mng0", mac) >= 0)
    return 0;
  pppoeia_log(log_error, "pppoeia_get_local_mac: error: %s\n", std::strerror(errno));
  return -1;
}
