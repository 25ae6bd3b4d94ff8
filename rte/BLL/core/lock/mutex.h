// The inside of recursiveSharedMutex_t: the rules, the mutex around them and the threads that wait.
#ifndef RTE_BLL_CORE_LOCK_MUTEX_H
#define RTE_BLL_CORE_LOCK_MUTEX_H

#include "rte/BLL/core/lock/rules.h"
#include "rte/BLL/core/lock/waiting.h"
#include <memory>

class recursiveSharedMutex_t::impl_t : public std::enable_shared_from_this<impl_t> {
public:
  using access_t = lockRules_t::access_t;
  using row_t = lockRules_t::row_t;

  impl_t();

  // True when taken; otherwise throws, see recursiveSharedMutex_t::timedLock.
  bool take(access_t access, const boost::system_time& deadline);
  bool take(access_t access, const lockPeriod_t& period);
  void release(access_t access);
  stateMap_t states() const;
  stateData callerState() const;
  // The calling thread ends; its row goes unless it holds.
  void callerEnds();

private:
  // `deadline()` is asked for only when the take must wait: reading a clock costs as much as the rest of a take.
  template <typename Deadline>
  bool takeBefore(access_t access, Deadline&& deadline);
  // The calling thread's row, made at its first request.
  row_t& callerRow() TSA_REQUIRES(mutex_);
  row_t& findCallerRow() TSA_REQUIRES(mutex_);
  bool wait(row_t& self, access_t access, lockRules_t::answer_t answer, const boost::system_time& deadline)
      TSA_REQUIRES(mutex_);
  waitingQueue_t& queueOf(lockRules_t::answer_t answer) TSA_REQUIRES(mutex_);
  void wake(const lockRules_t::wakes_t& wakes) TSA_REQUIRES(mutex_);

  static constexpr size_t cacheLine = 64;
  const uint64_t serial_;  // never used again by another lock of the process, unlike the address
  alignas(cacheLine) mutable spinningMutex_t mutex_;
  lockRules_t rules_ TSA_GUARDED_BY(mutex_);         // and what the rows hold, wherever a reference to one is kept
  waitingQueue_t upgraders_ TSA_GUARDED_BY(mutex_);  // want it exclusive and hold it shared
  waitingQueue_t writers_ TSA_GUARDED_BY(mutex_);    // want it exclusive and hold nothing
  waitingQueue_t readers_ TSA_GUARDED_BY(mutex_);
};

#endif
