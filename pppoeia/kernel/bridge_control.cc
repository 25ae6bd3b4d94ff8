#include "pppoeia/kernel/bridge_control.h"

#include "platform/kvbridge/control.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/text.h"

#include <cstring>

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
