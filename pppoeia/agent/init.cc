// The agent's state from pppoeia_init() to pppoeia_fini().
#include "pppoeia/pppoeia.h"

#include "platform/kvbridge/control.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <cerrno>
#include <new>
#include <vector>

namespace {

// Asks a kernel module for its version on its open control file. What is wrong is logged, nothing more.
void check_version(int fd, const char* module, unsigned long request, int expected)
{
  int version = 0;
  if (kernel->control(fd, request, &version) < 0)
    pppoeia_log(log_critical, "Kernel module '%s' too old.", module);
  else if (version != expected)
    pppoeia_log(log_critical, "Kernel module '%s' version mismatch (%d instead of %d).", module, version, expected);
}

// States that a second initialisation put out of reach, with bridges whose workers go on. Nothing uses them again;
// they are remembered so that it shows that this is no leak.
void abandon(pppoeia_state* state)
{
  static std::vector<pppoeia_state*>& abandoned = *new std::vector<pppoeia_state*>;
  abandoned.push_back(state);
}

}  // namespace

int pppoeia_init(void)
{
  if (pppoeia_globals.load())
    pppoeia_log(log_warning, "Already initialized.");

  if (const kernel_descriptor file(kernel->open_control(kvmng_path)); file) {
    check_version(file.get(), "kvmng", kvmng_version_get, kvmng_version_expected);
  } else {
    const int reason = errno;
    pppoeia_log(log_critical, "Unable to contact kernel module 'kvmng'.");
    return reason;
  }

  const kernel_descriptor file(kernel->open_control(kvbridge_path));
  if (!file) {
    pppoeia_log(log_critical, "Unable to contact kernel module 'kvbridge'.");
    return -1;
  }
  check_version(file.get(), "kvbridge", kvbridge_version_get, kvbridge_version_expected);

  pppoeia_state* former = pppoeia_globals.load();
  pppoeia_state* state = new (std::nothrow) pppoeia_state{};
  if (former)
    abandon(former);
  pppoeia_globals = state;
  if (!state)
    pppoeia_log(log_critical, "Cannot allocate memory.");
  return state ? 0 : -ENOMEM;
}

int pppoeia_fini(void)
{
  pppoeia_state* state = pppoeia_globals.load();
  if (!state) {
    pppoeia_log(log_warning, "PPPoE IA not initialized.");
    return -ENOENT;
  }
  // All workers begin to end together before any is waited for.
  for (pppoeia_bridge* bridge = state->bridges; bridge; bridge = bridge->next)
    bridge->stop = 1;
  while (state->bridges)
    pppoeia_bridge_del(state->bridges->name);
  pppoeia_globals = nullptr;
  delete state;
  return 0;
}
