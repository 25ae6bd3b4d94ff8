// The operations that set and tell settings: those of the table's plain rows, which come from their kind, and those of
// the process. What a bridge's or a port's setting does beyond keeping a value is in bridge.cc and port.cc.
#include "pppoeia/api/settings.h"

#include "pppoeia/operations/operation.h"
#include "pppoeia/pppoeia.h"

#include <atomic>

// --- The plain rows ------------------------------------------------------------------------------------------------

#define SETTING_OWN(...)

#define BRIDGE_NUMBER(name, field, setter, getter)                                                                     \
  int setter(const char* bridge, uint32_t value)                                                                       \
  {                                                                                                                    \
    return number_set(operation{__func__}, bridge, &bridge_settings::field, value);                                    \
  }                                                                                                                    \
  int getter(const char* bridge, uint32_t* value)                                                                      \
  {                                                                                                                    \
    return number_get(operation{__func__}, bridge, &bridge_settings::field, value);                                    \
  }

#define BRIDGE_TEXT(name, field, setter, getter, longer)                                                               \
  int setter(const char* bridge, const char* text)                                                                     \
  {                                                                                                                    \
    return text_set(operation{__func__}, bridge, &bridge_settings::field, text, too_long::longer);                     \
  }                                                                                                                    \
  int getter(const char* bridge, char* text)                                                                           \
  {                                                                                                                    \
    return text_get(operation{__func__}, bridge, &bridge_settings::field, text);                                       \
  }

#define PORT_NUMBER(name, field, setter, getter, words)                                                                \
  int setter(const char* bridge, uint32_t port, uint32_t value)                                                        \
  {                                                                                                                    \
    return number_set(operation{__func__}, bridge, port, &port_settings::field, value, words);                         \
  }                                                                                                                    \
  int getter(const char* bridge, uint32_t port, uint32_t* value)                                                       \
  {                                                                                                                    \
    return number_get(operation{__func__}, bridge, port, &port_settings::field, value);                                \
  }

#define PORT_TEXT(name, field, setter, getter, longer)                                                                 \
  int setter(const char* bridge, uint32_t port, const char* text)                                                      \
  {                                                                                                                    \
    return text_set(operation{__func__}, bridge, port, &port_settings::field, text, too_long::longer);                 \
  }                                                                                                                    \
  int getter(const char* bridge, uint32_t port, char* text)                                                            \
  {                                                                                                                    \
    return text_get(operation{__func__}, bridge, port, &port_settings::field, text);                                   \
  }

PPPOEIA_BRIDGE_SETTINGS(BRIDGE_NUMBER, BRIDGE_TEXT, SETTING_OWN)
PPPOEIA_PORT_SETTINGS(PORT_NUMBER, PORT_TEXT, SETTING_OWN)

// --- The process ---------------------------------------------------------------------------------------------------

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
