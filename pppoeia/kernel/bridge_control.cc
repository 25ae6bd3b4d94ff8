#include "pppoeia/kernel/bridge_control.h"

#include "pppoeia/kernel/kernel.h"
#include "pppoeia/kernel/kernel_control.h"
#include "pppoeia/text.h"

#include <cstdio>
#include <cstring>

int bridge_control_open(const char* bridge)
{
  if (std::strchr(bridge, '/'))
    return -1;
  char path[200];
  std::snprintf(path, sizeof path, kvbridge_bridge_path, bridge, "bridge");
  return kernel->open_control(path);
}

int bridge_filter_attach(int control_file, const char* device)
{
  kvbridge_filter request{};
  text_copy(request.filter, "pppoe");
  text_copy(request.device, device);
  return kernel->control(control_file, kvbridge_filter_attach, &request);
}
