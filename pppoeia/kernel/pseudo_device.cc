#include "pppoeia/kernel/pseudo_device.h"

#include "platform/kvbridge/control.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"

#include <cerrno>

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
  const int sock = kernel->datagram_socket();
  if (sock < 0) {
    pppoeia_log(log_critical, "<%s> Unable to create socket.", bridge);
    return sock;
  }
  const int rc = flags_set_up(bridge, device, sock);
  if (rc < 0)
    pppoeia_pseudo_dev_del(bridge, device);
  kernel->close(sock);
  return rc;
}

int create(const char* bridge, const char* device)
{
  const int mng = kernel->open_control(kvmng_path);
  if (mng < 0) {
    pppoeia_log(log_critical, "<%s> Unable to open '%s'.", bridge, kvmng_path);
    return mng;
  }
  int rc = kernel->control(mng, kvmng_device_create, request_name(device));
  if (rc == 0 || (rc < 0 && errno == EEXIST))
    rc = bring_up(bridge, device);
  else
    pppoeia_log(log_critical, "<%s> Unable to create pseudo device '%s'.", bridge, device);
  kernel->close(mng);
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
  const int mng = kernel->open_control(kvmng_path);
  if (mng < 0) {
    pppoeia_log(log_critical, "<%s> Unable to open '%s'.", bridge, kvmng_path);
    return;
  }
  const int rc = kernel->control(mng, kvmng_device_delete, request_name(device));
  pppoeia_log(log_debug, "<%s> Pseudo device '%s' %sdeleted.", bridge, device, rc != 0 ? "not " : "");
  kernel->close(mng);
}
