// The framework's reader/writer lock: recursive, never waiting past a deadline, and able to say why it was not
// obtained.
//
// A thread may take it shared or exclusive, again and again and in any mixture, and gives back each hold by itself. A
// thread that holds it exclusive is never made to wait. A thread that holds it shared may go on taking it shared even
// while writers wait, and may ask for exclusive (an upgrade): it then waits until it is the only holder. Two threads
// that upgrade at the same time wait for each other; both fail at their deadlines, which is how a plug-in's mistake
// becomes a report instead of a hang. A thread that holds nothing reads only after every thread that has asked for
// exclusive before it and still waits, upgraders included; those that ask later do not hold it back. Who asks for
// exclusive waits for holders only, never for its place.
//
// The state table has one row a thread, from its first request on. The row of a thread that ends while it holds nothing
// goes with the thread. The row of a thread that ends while it still holds stays, because the hold stays: the lock
// remains taken and the dump names who took it to the grave. Should the thread library hand the dead thread's id to a
// new thread, the dead one's holds move to the row of "{Not-any-thread}", so that the new thread inherits neither the
// holds nor the kernel thread id.
//
// Plug-ins take the lock through the scope classes of lock_guards.h, not through this interface.
#ifndef RTE_BLL_CORE_RECURSIVE_SHARED_MUTEX_H
#define RTE_BLL_CORE_RECURSIVE_SHARED_MUTEX_H

#include "rte/BLL/core/lock_period.h"
#include <boost/thread/thread.hpp>
#include <boost/thread/thread_time.hpp>
#include <cstdint>
#include <ctime>
#include <exception>
#include <map>
#include <memory>

class recursiveSharedMutex_t {
public:
  // What the lock knows of one thread. A hold is a count above zero: a release that was not preceded by a take makes a
  // count negative, which is shown in dumps and otherwise holds nothing.
  struct stateData {
    int32_t sharedCount = 0;     // shared holds of this thread
    int32_t exclusiveCount = 0;  // exclusive holds of this thread
    bool waiting = false;        // the thread waits for exclusive ownership
    int32_t kernelThreadId = 0;  // from the first request on; 0 again after a failed request of a thread without holds
    uint64_t pthreadHandle = 0;  // filled together with the kernel thread id
    time_t takenAt = 0;          // wall-clock second of the step from no hold to the first one; 0 without holds
    uint64_t turn = 0;           // while the thread waits, for either: its place in the line, lower came earlier
  };
  using stateMap_t = std::map<boost::thread::id, stateData>;

  // Why a take failed, as it was at that moment. The request's own waiting flag is already withdrawn in `states`.
  class lockError_t : public std::exception {
  public:
    lockError_t(stateMap_t statesNow, boost::thread::id requesterId, boost::thread::id ownerId, bool exclusive,
                bool heldExclusive);
    ~lockError_t() override;
    const char* what() const noexcept override;

    stateMap_t states;
    boost::thread::id requester;
    boost::thread::id owner;  // the exclusive holder; default-constructed when there is none
    bool exclusiveRequested;  // false: shared was requested
    bool exclusiveHeld;  // true: another thread holds it exclusive; false: readers or waiting writers are in the way
  };

  recursiveSharedMutex_t();
  // No thread may be inside a take. Rows of threads that still live are forgotten with the lock.
  ~recursiveSharedMutex_t();
  recursiveSharedMutex_t(const recursiveSharedMutex_t&) = delete;
  recursiveSharedMutex_t& operator=(const recursiveSharedMutex_t&) = delete;

  // Take one exclusive or one shared hold for the calling thread; true when taken. `deadline` is absolute UTC; the wait
  // itself is measured on the monotonic clock, so that setting the system's time neither shortens nor stretches it. A
  // deadline in the past, negative infinity and not-a-date-time fail at once if there is a conflict; positive infinity
  // waits without end. Throws lockError_t when the conflict outlasts the deadline, and std::bad_alloc; nothing is taken
  // then. Not an interruption point and not a cancellation point.
  bool timedLock(const boost::system_time& deadline);
  bool timedLockShared(const boost::system_time& deadline);
  // The same with the deadline `period` from now; cheaper, as a take that need not wait reads no clock.
  bool timedLock(const lockPeriod_t& period);
  bool timedLockShared(const lockPeriod_t& period);

  // Give back one hold of the calling thread. Whether it had one is not checked.
  void unlock();
  void unlockShared();

  // A copy of the whole table. Any thread; takes the internal mutex only.
  stateMap_t getStateMap() const;

  // The calling thread's row, without a copy of the table; all zero if it never asked for the lock.
  stateData getCallerState() const;

  // Clears the waiting flag of one row (of a copy: the lock's own rows are not reachable from outside).
  static void unlockWaitingThread(stateMap_t::value_type& entry) { entry.second.waiting = false; }

private:
  class impl_t;
  class threadRows_t;
  std::shared_ptr<impl_t> impl_;  // also known, weakly, to each thread with a row, for the end of that thread
};

#endif
