#include "pppoeia/kernel/devices.h"

#include "platform/kvbridge/control.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"
#include "pppoeia/text.h"

#include <cerrno>
#include <cstring>

namespace {

// Control requests take their argument without const; the module only reads it.
void* request_name(const char* device)
{
  return const_cast<char*>(device);
}

int flags_set_up(const char* bridge, const char* device, int sock)
{
  short flags = 0;
  if (const int rc = kernel->link_flags_get(sock, device, &flags); rc < 0) {
    pppoeia_log(log_critical, "<%s> Unable to get flags.", bridge);
    return rc;
  }
  if (const int rc = kernel->link_flags_set(sock, device, static_cast<short>(flags | link_flag_up)); rc < 0) {
    pppoeia_log(log_critical, "<%s> Unable to set flags.", bridge);
    return rc;
  }
  pppoeia_log(log_debug, "<%s> Flags set.", bridge);
  return 0;
}

int bring_up(const char* bridge, const char* device)
{
  const kernel_descriptor sock(kernel->datagram_socket());
  if (!sock) {
    pppoeia_log(log_critical, "<%s> Unable to create socket.", bridge);
    return -1;
  }
  const int rc = flags_set_up(bridge, device, sock.get());
  if (rc < 0)
    pppoeia_pseudo_dev_del(bridge, device);
  return rc;
}

int create(const char* bridge, const char* device)
{
  const kernel_descriptor mng(kernel->open_control(kvmng_path));
  if (!mng) {
    pppoeia_log(log_critical, "<%s> Unable to open '%s'.", bridge, kvmng_path);
    return -1;
  }
  int rc = kernel->control(mng.get(), kvmng_device_create, request_name(device));
  if (rc == 0 || (rc < 0 && errno == EEXIST))
    rc = bring_up(bridge, device);
  else
    pppoeia_log(log_critical, "<%s> Unable to create pseudo device '%s'.", bridge, device);
  return rc;
}

}  // namespace

int pppoeia_pseudo_dev_add(const char* bridge, const char* device)
{
  const int rc = create(bridge, device);
  if (rc >= 0)
    return 0;
  pppoeia_log(log_critical, "<%s> Cannot create '%s'.", bridge, device);
  return rc;
}

void pppoeia_pseudo_dev_del(const char* bridge, const char* device)
{
  const kernel_descriptor mng(kernel->open_control(kvmng_path));
  if (!mng) {
    pppoeia_log(log_critical, "<%s> Unable to open '%s'.", bridge, kvmng_path);
    return;
  }
  const int rc = kernel->control(mng.get(), kvmng_device_delete, request_name(device));
  pppoeia_log(log_debug, "<%s> Pseudo device '%s' %sdeleted.", bridge, device, rc != 0 ? "not " : "");
}

int bridge_control_open(const char* bridge)
{
  if (std::strchr(bridge, '/'))
    return -1;
  return kernel->open_control(kvbridge_bridge_path(bridge).c_str());
}

int bridge_filter_attach(int control_file, const char* device)
{
  kvbridge_filter request{};
  text_copy(request.filter, pppoe_filter);
  text_copy(request.device, device);
  return kernel->control(control_file, kvbridge_filter_attach, &request);
}

int pppoeia_get_local_mac(unsigned char mac[6])
{
  const kernel_descriptor socket(kernel->datagram_socket());
  if (socket && kernel->link_mac(socket.get(), "mng0", mac) >= 0)
    return 0;
  pppoeia_log(log_error, "pppoeia_get_local_mac: error: %s\n", std::strerror(errno));
  return -1;
}
