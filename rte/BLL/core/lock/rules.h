// Who may have the lock: the rules of recursiveSharedMutex_t without any waiting.
//
// The lock is this record, one mutex around it and three condition variables. Every decision is a plain function here
// that answers at once: granted, wait (and on which condition), failed; and every change answers which conditions to
// wake. The thread that waits asks again after each wake-up. Because nothing in here blocks, reads a clock that matters
// or knows the calling thread, the model test walks through every interleaving of a few threads over the real code.
//
// A thread that must wait draws a turn, a number higher than every one before, and keeps it until it is served or gives
// up. Who wants it exclusive also keeps the waiting flag for as long. A reader stands back for every flagged thread of
// a lower turn and for nobody else: no reader that comes later passes a writer, and a stream of writers that come later
// does not make a reader stand back for ever.
//
// The conditions of the rules are sums over the table: does another thread hold it exclusive, shared, who waits. The
// table has a row for every thread of the process that ever asked, so the sums are kept beside it and no take or
// release walks the table.
#ifndef RTE_BLL_CORE_LOCK_RULES_H
#define RTE_BLL_CORE_LOCK_RULES_H

#include "rte/BLL/core/recursive_shared_mutex.h"
#include <cstdint>
#include <ctime>
#include <optional>
#include <vector>

class lockRules_t {
public:
  using stateData = recursiveSharedMutex_t::stateData;
  using stateMap_t = recursiveSharedMutex_t::stateMap_t;
  using row_t = stateMap_t::value_type;

  enum class access_t : bool { shared, exclusive };
  enum class answer_t { granted, waitForShared, waitForExclusive, waitForUpgrade, failed };
  // Which conditions the caller wakes: one waiter of the first two, every waiter of the third.
  struct wakes_t {
    bool oneUpgrade = false;
    bool oneExclusive = false;
    bool allShared = false;
  };

  // The row of `id`, made with zero counts if there is none. Rows keep their addresses until dropped.
  row_t& row(boost::thread::id id) { return *states_.try_emplace(id).first; }
  bool hasRow(boost::thread::id id) const { return states_.contains(id); }
  const stateMap_t& states() const { return states_; }
  std::optional<boost::thread::id> owner() const { return owner_; }

  // One attempt of `self` to take it: the first one, and again after each wake-up. With `deadlinePassed` the answer is
  // granted or failed. A wait for exclusive ownership is flagged in the row until the take is granted or fails. Wakes
  // are asked for only by a failure. std::bad_alloc only where a wait would begin, and then nothing has changed.
  answer_t request(row_t& self, access_t access, bool deadlinePassed, wakes_t& wakes)
  {
    if (!inTheWay(self, access)) {
      grant(self, access);
      return answer_t::granted;
    }
    if (deadlinePassed) {
      wakes = withdraw(self);
      return answer_t::failed;
    }
    if (self.second.turn == 0)
      enterLine(self.second, access);
    if (access == access_t::shared)
      return answer_t::waitForShared;
    return self.second.sharedCount > 0 ? answer_t::waitForUpgrade : answer_t::waitForExclusive;
  }

  // Gives back one hold, unchecked.
  wakes_t release(row_t& self, access_t access)
  {
    return access == access_t::exclusive ? releaseExclusive(self) : releaseShared(self);
  }

  // Another thread holds it exclusive.
  bool exclusiveHeldByOther(const row_t& self) const { return owner_ && *owner_ != self.first; }

  static bool holds(const stateData& state) { return state.sharedCount > 0 || state.exclusiveCount > 0; }

  // Drops the row of a thread that has ended, unless it holds.
  void threadEnded(boost::thread::id id);
  // Empties a row whose thread has ended and whose id now belongs to another: holds move to the row of no thread.
  void disown(row_t& dead);

private:
  bool inTheWay(const row_t& self, access_t access) const
  {
    if (owner_)
      return *owner_ != self.first;  // the owner enters again whatever it asks for
    const bool holdsShared = self.second.sharedCount > 0;
    if (access == access_t::exclusive)
      return sharedHolders_ > (holdsShared ? 1 : 0);
    return !writersInLine_.empty() && !holdsShared && isBehindWriter(self.second);
  }

  void grant(row_t& self, access_t access)
  {
    stateData& state = self.second;
    if (state.sharedCount == 0 && state.exclusiveCount == 0)
      state.takenAt = std::time(nullptr);
    if (state.turn != 0)
      leaveLine(state);
    if (access == access_t::exclusive) {
      if (++state.exclusiveCount == 1)
        owner_ = self.first;
    } else if (++state.sharedCount == 1) {
      ++sharedHolders_;
    }
  }

  wakes_t releaseExclusive(row_t& self)
  {
    stateData& state = self.second;
    --state.exclusiveCount;
    forgetTakenAt(state);
    if (state.exclusiveCount != 0)
      return {};
    owner_.reset();
    return released(true);
  }

  wakes_t releaseShared(row_t& self)
  {
    stateData& state = self.second;
    if (state.sharedCount-- == 1)
      --sharedHolders_;
    forgetTakenAt(state);
    if (state.sharedCount != 0 || owner_ == self.first)
      return {};
    return released(false);
  }

  static void forgetTakenAt(stateData& state)
  {
    if (state.sharedCount == 0 && state.exclusiveCount == 0)
      state.takenAt = 0;
  }

  // Whoever the release lets in. An upgrader holds it shared itself, so it is the last holder or none can go on. What
  // readers wait for, an owner or the writers before them, is as it was when another reader leaves.
  wakes_t released(bool wasExclusive) const { return {sharedHolders_ == 1, sharedHolders_ == 0, wasExclusive}; }

  bool isBehindWriter(const stateData& state) const { return state.turn == 0 || writersInLine_.front() < state.turn; }

  wakes_t withdraw(row_t& self);
  void enterLine(stateData& state, access_t access);
  void leaveLine(stateData& state);

  // The first two beside each other: with the mutex in front of them they share one cache line.
  std::optional<boost::thread::id> owner_;  // the row with an exclusive count above zero
  int32_t sharedHolders_ = 0;               // rows with a shared count above zero
  std::vector<uint64_t> writersInLine_;     // the turns of the rows with the waiting flag, ascending
  uint64_t lastTurn_ = 0;
  stateMap_t states_;
};

#endif
