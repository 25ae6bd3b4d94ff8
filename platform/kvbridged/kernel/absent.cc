#include "platform/kvbridged/kernel_bridges.h"

namespace kvbridged {
namespace {

[[noreturn]] void give_up()
{
  throw fatal("built without eBPF, so there are no kernel bridges; --bridge serves one without");
}

}  // namespace

std::unique_ptr<agent_bridge> kernel_bridge_make(const bridge_settings&, loop&)
{
  give_up();
}

std::string kernel_status(bool)
{
  give_up();
}

std::string kernel_release(const std::string&)
{
  give_up();
}

}  // namespace kvbridged
