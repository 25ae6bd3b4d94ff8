#include "tests/customid/node_stub.h"

#include "platform/ncfm/ncfm.h"
#include "pppoeia/kernel/kernel.h"

#include <algorithm>
#include <cerrno>

namespace {

node_stub& instance()
{
  static node_stub the_node;
  return the_node;
}

int link_mac(int, const char*, unsigned char mac[6])
{
  if (!instance().mac) {
    errno = ENODEV;
    return -1;
  }
  std::copy(instance().mac->begin(), instance().mac->end(), mac);
  return 0;
}

kernel_ops stub_kernel()
{
  kernel_ops ops = kernel_linux;
  ops.datagram_socket = [] { return 1000; };
  ops.close = [](int) { return 0; };
  ops.link_mac = link_mac;
  return ops;
}

}  // namespace

node_stub& node()
{
  static const kernel_ops ops = stub_kernel();
  kernel = &ops;
  return instance();
}

extern "C" {

int ncfmGetMyBoardPos(ncfmBoardPos* pos)
{
  if (!instance().board)
    return -1;
  *pos = {*instance().board, {}};
  return 0;
}

int ncfmGetInterface(const char* device, ncfmInterface* itf)
{
  const auto at = instance().ipv4.find(device);
  if (at == instance().ipv4.end())
    return -1;
  std::copy(at->second.begin(), at->second.end(), itf->ipv4);
  return 0;
}

int ncfmGetIpv6(uint8_t address[16])
{
  if (!instance().ipv6)
    return -1;
  std::copy(instance().ipv6->begin(), instance().ipv6->end(), address);
  return 0;
}

}  // extern "C"
