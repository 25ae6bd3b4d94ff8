// The inside of recursiveSharedMutex_t: the rules, the mutex around them and the threads that wait. Not installed.
#pragma once

#include "rte/BLL/core/lock/rules.h"
#include <condition_variable>
#include <memory>
#include <mutex>

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
  // One of the three queues: a condition variable and how many threads are in a wait on it, which spares the releases
  // nobody waits for a call.
  struct queue_t {
    std::condition_variable condition;
    int sleeping = 0;
    void wakeOne();
    void wakeAll();
  };

  // `deadline()` is asked for only when the take must wait: reading a clock costs as much as the rest of a take.
  template <typename Deadline>
  bool takeBefore(access_t access, Deadline&& deadline);
  // The calling thread's row, made at its first request. The internal mutex is held.
  row_t& callerRow();
  row_t& findCallerRow();
  bool wait(std::unique_lock<std::mutex>& guard, row_t& self, access_t access, lockRules_t::answer_t answer,
            const boost::system_time& deadline);
  queue_t& queueOf(lockRules_t::answer_t answer);
  void wake(const lockRules_t::wakes_t& wakes);

  static constexpr size_t cacheLine = 64;
  const uint64_t serial_;  // never used again by another lock of the process, unlike the address
  alignas(cacheLine) mutable std::mutex mutex_;
  lockRules_t rules_;
  queue_t upgraders_;  // want it exclusive and hold it shared
  queue_t writers_;    // want it exclusive and hold nothing
  queue_t readers_;
};
