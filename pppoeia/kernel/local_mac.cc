#include "pppoeia/kernel/local_mac.h"

#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"

#include <cerrno>
#include <cstring>

int pppoeia_get_local_mac(unsigned char mac[6])
{
  const int fd = kernel->datagram_socket();
  if (fd < 0 || kernel->link_mac(fd, "mng0", mac) < 0) {
    pppoeia_log(log_error, "pppoeia_get_local_mac: error: %s\n", std::strerror(errno));
    if (fd >= 0)
      kernel->close(fd);
    return -1;
  }
  kernel->close(fd);
  return 0;
}
