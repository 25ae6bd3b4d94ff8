// Unlock-to-one and restore: a thread lets others run while it waits, and gets its nesting depth back afterwards.
#include "rte/BLL/core/lock/seam.h"
#include "rte/BLL/core/lock_guards.h"
#include <algorithm>

bool BLLManager::lock_t::unlockExclusiveToOne()
{
  return unlockToOne(access_t::exclusive);
}

bool BLLManager::lock_t::unlockSharedToOne()
{
  return unlockToOne(access_t::shared);
}

bool BLLManager::lock_t::unlockToOne(access_t kept)
{
  if (!locked_ || unlockedToOne_)
    return false;
  const auto mine = instance().getCallerState();
  if (mine.kernelThreadId == 0 || (kept == access_t::exclusive ? mine.exclusiveCount : mine.sharedCount) <= 0)
    return false;
  savedSharedCount_ = static_cast<uint32_t>(std::max(mine.sharedCount, 0));
  savedExclusiveCount_ = static_cast<uint32_t>(std::max(mine.exclusiveCount, 0));
  for (uint32_t i = kept == access_t::shared ? 1 : 0; i < savedSharedCount_; ++i)
    releaseOne(access_t::shared);
  for (uint32_t i = kept == access_t::exclusive ? 1 : 0; i < savedExclusiveCount_; ++i)
    releaseOne(access_t::exclusive);
  unlockedToOne_ = true;
  return true;
}

bool BLLManager::lock_t::restoreUnlockedToOne()
{
  if (!locked_ || !unlockedToOne_)
    return false;
  const auto mine = instance().getCallerState();
  const bool oneExclusive = mine.exclusiveCount == 1 && mine.sharedCount == 0;
  const bool oneShared = mine.exclusiveCount == 0 && mine.sharedCount == 1;
  if (!oneExclusive && !oneShared)
    return false;
  if (!takeSavedAgain(oneExclusive))
    return false;
  savedSharedCount_ = savedExclusiveCount_ = 0;
  unlockedToOne_ = false;
  return true;
}

// Takes exclusive holds first: from one shared hold that is the upgrade, the only take that may wait here.
bool BLLManager::lock_t::takeSavedAgain(bool oneExclusive)
{
  uint32_t exclusive = oneExclusive ? 1 : 0;
  uint32_t shared = oneExclusive ? 0 : 1;
  bool complete = false;
  lockQuietly([&] {
    try {
      for (; exclusive < savedExclusiveCount_; ++exclusive)
        takeOne(access_t::exclusive);
      for (; shared < savedSharedCount_; ++shared)
        takeOne(access_t::shared);
      complete = true;
    } catch (const recursiveSharedMutex_t::lockError_t& error) {
      report(error);
    }
  });
  // Complete: nothing but a single hold of the kind that was not saved can be too much. Failed: back to the one hold.
  const uint32_t exclusiveLeft = complete ? savedExclusiveCount_ : (oneExclusive ? 1 : 0);
  const uint32_t sharedLeft = complete ? savedSharedCount_ : (oneExclusive ? 0 : 1);
  for (; shared > sharedLeft; --shared)
    releaseOne(access_t::shared);
  for (; exclusive > exclusiveLeft; --exclusive)
    releaseOne(access_t::exclusive);
  return complete;
}
