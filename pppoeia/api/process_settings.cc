// Settings of the process itself, not of a bridge.
#include "pppoeia/pppoeia.h"

#include "pppoeia/log.h"

#include <atomic>
#include <cerrno>

namespace {

// Kept only so that the management plane can read it back.
std::atomic<uint8_t> pppoeia_debug_admin_state{0};

}  // namespace

int pppoeia_log_level_set(int32_t level)
{
  constexpr int32_t use_default = -2;
  pppoeia_log_level = level == use_default ? static_cast<int32_t>(log_error) : level;
  return 0;
}

int pppoeia_log_level_get(int32_t* level)
{
  if (!level)
    return -EINVAL;
  *level = pppoeia_log_level;
  return 0;
}

int pppoeia_debug_admin_state_set(int32_t state)
{
  pppoeia_debug_admin_state = state != 0;
  return 0;
}

int pppoeia_debug_admin_state_get(int32_t* state)
{
  if (!state)
    return -EINVAL;
  *state = pppoeia_debug_admin_state;
  return 0;
}

int ppppoeia_conf_event(const void*)
{
  return 0;
}
