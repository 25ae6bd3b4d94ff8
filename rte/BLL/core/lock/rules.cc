#include "rte/BLL/core/lock/rules.h"

#include <algorithm>
#include <utility>

lockRules_t::wakes_t lockRules_t::withdraw(row_t& self)
{
  stateData& state = self.second;
  const bool wasFlagged = state.waiting;
  leaveLine(state);
  if (state.sharedCount == 0 && state.exclusiveCount == 0)
    state.kernelThreadId = 0;
  // A signal may have been spent on this request, so it is passed on. And readers that stood back for this writer may
  // have nobody left to wait for: nothing else would wake them before the next release or their own deadlines.
  return {true, true, wasFlagged};
}

void lockRules_t::enterLine(stateData& state, access_t access)
{
  if (access == access_t::exclusive) {
    writersInLine_.push_back(lastTurn_ + 1);
    state.waiting = true;
  }
  state.turn = ++lastTurn_;
}

void lockRules_t::leaveLine(stateData& state)
{
  if (state.waiting)
    std::erase(writersInLine_, state.turn);
  state.waiting = false;
  state.turn = 0;
}

void lockRules_t::threadEnded(boost::thread::id id)
{
  const auto found = states_.find(id);
  if (found == states_.end() || holds(found->second))
    return;
  leaveLine(found->second);
  states_.erase(found);
}

void lockRules_t::disown(row_t& dead)
{
  leaveLine(dead.second);
  const stateData left = std::exchange(dead.second, stateData{});
  if (!holds(left))
    return;
  row_t& nobody = row(boost::thread::id());
  // Several dead readers share that row; an exclusive hold is the one worth naming.
  if (!holds(nobody.second) || left.exclusiveCount > 0) {
    nobody.second.kernelThreadId = left.kernelThreadId;
    nobody.second.pthreadHandle = left.pthreadHandle;
    nobody.second.takenAt = left.takenAt;
  }
  if (left.sharedCount > 0) {
    if (nobody.second.sharedCount > 0)
      --sharedHolders_;  // two rows become one
    nobody.second.sharedCount += left.sharedCount;
  }
  if (left.exclusiveCount > 0) {
    nobody.second.exclusiveCount = left.exclusiveCount;
    owner_ = nobody.first;
  }
}
