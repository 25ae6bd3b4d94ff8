#include "platform/kvbridged/kernel/tc_slot.h"

#include "platform/kvbridged/kernel/links.h"

#include <bpf/libbpf.h>

namespace kvbridged {
namespace {

// What fails is told by whoever asked, if it matters.
[[maybe_unused]] const auto library_is_silent = libbpf_set_print(nullptr);

constexpr uint32_t handle = 0x8863;
constexpr uint32_t priority = 1;

bpf_tc_hook hook_of(int interface, bpf_tc_attach_point point)
{
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = interface;
  hook.attach_point = point;
  return hook;
}

bpf_tc_hook hook_of(int interface, tc_side side)
{
  return hook_of(interface, side == tc_side::in ? BPF_TC_INGRESS : BPF_TC_EGRESS);
}

bpf_tc_opts place()
{
  bpf_tc_opts options{};
  options.sz = sizeof options;
  options.handle = handle;
  options.priority = priority;
  return options;
}

constexpr auto both = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);

}  // namespace

int tc_qdisc_make(int interface)
{
  bpf_tc_hook hook = hook_of(interface, both);
  return -bpf_tc_hook_create(&hook);
}

void tc_qdisc_remove(int interface)
{
  bpf_tc_hook hook = hook_of(interface, both);
  if (!has_filters(interface))
    bpf_tc_hook_destroy(&hook);
}

int tc_attach(int interface, tc_side side, int program)
{
  const bpf_tc_hook hook = hook_of(interface, side);
  bpf_tc_opts options = place();
  options.prog_fd = program;
  options.flags = BPF_TC_F_REPLACE;
  return -bpf_tc_attach(&hook, &options);
}

void tc_detach(int interface, tc_side side)
{
  const bpf_tc_hook hook = hook_of(interface, side);
  const bpf_tc_opts options = place();
  bpf_tc_detach(&hook, &options);
}

void programs_take_off(int interface, bool with_qdisc)
{
  tc_detach(interface, tc_side::in);
  tc_detach(interface, tc_side::out);
  if (with_qdisc)
    tc_qdisc_remove(interface);
}

uint32_t tc_program(int interface, tc_side side)
{
  const bpf_tc_hook hook = hook_of(interface, side);
  bpf_tc_opts options = place();
  return bpf_tc_query(&hook, &options) == 0 ? options.prog_id : 0;
}

}  // namespace kvbridged
