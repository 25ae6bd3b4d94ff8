#include "base/caller.h"

namespace {

thread_local asker asker_now = asker::process;
thread_local const caller* caller_now = nullptr;

}  // namespace

caller_scope::caller_scope(const caller* who) : former_asker_(asker_now), former_caller_(caller_now)
{
  asker_now = who ? asker::known : asker::unknown;
  caller_now = who;
}

caller_scope::~caller_scope()
{
  asker_now = former_asker_;
  caller_now = former_caller_;
}

asker current_asker()
{
  return asker_now;
}

const caller* current_caller()
{
  return caller_now;
}
