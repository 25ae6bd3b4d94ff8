// What a mutex guards, in words that clang checks while compiling (-Wthread-safety, scripts/check-thread-safety). Other
// compilers see nothing of it, and it costs nothing at run time.
//
//   class table {
//     int count() const { const mutex_guard guard(mutex_); return rows_; }
//   private:
//     void grow() TSA_REQUIRES(mutex_);       // the caller holds it
//     mutable checked_mutex mutex_;
//     int rows_ TSA_GUARDED_BY(mutex_) = 0;   // touched by nobody who does not
//   };
//
// The standard library's mutexes say nothing of themselves to clang, so checked<Mutex> says it for them. A lambda is a
// function of its own to the analysis: one that runs under a mutex says TSA_REQUIRES behind its parameters.
// Constructors and destructors are not looked at.
#ifndef BASE_THREAD_ANNOTATIONS_H
#define BASE_THREAD_ANNOTATIONS_H

#include <mutex>

#ifdef __clang__
#define TSA_ATTRIBUTE(x) __attribute__((x))
#else
#define TSA_ATTRIBUTE(x)
#endif

// Of a class: its objects can be held. The other: its objects hold one from their construction to their destruction.
#define TSA_CAPABILITY(name) TSA_ATTRIBUTE(capability(name))
#define TSA_SCOPED_CAPABILITY TSA_ATTRIBUTE(scoped_lockable)
// Of a variable: what must be held to touch it; to touch what it points to.
#define TSA_GUARDED_BY(mutex) TSA_ATTRIBUTE(guarded_by(mutex))
#define TSA_PT_GUARDED_BY(mutex) TSA_ATTRIBUTE(pt_guarded_by(mutex))
// Of a function: what its caller holds; does not hold, since the function takes it.
#define TSA_REQUIRES(...) TSA_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TSA_EXCLUDES(...) TSA_ATTRIBUTE(locks_excluded(__VA_ARGS__))
// Of a function: what it takes, gives back, or takes if it answers `result`.
#define TSA_ACQUIRE(...) TSA_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TSA_RELEASE(...) TSA_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TSA_TRY_ACQUIRE(...) TSA_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
// Of a function that answers with a mutex: it is this one.
#define TSA_RETURN_CAPABILITY(mutex) TSA_ATTRIBUTE(lock_returned(mutex))
// Of a function that the analysis cannot follow; say why.
#define TSA_UNCHECKED TSA_ATTRIBUTE(no_thread_safety_analysis)

// A mutex of any library, known to the analysis. Lock it by the guards below: those of the libraries hide what they do.
template <typename Mutex>
class TSA_CAPABILITY("mutex") checked : public Mutex {
public:
  void lock() TSA_ACQUIRE() { Mutex::lock(); }
  bool try_lock() TSA_TRY_ACQUIRE(true) { return Mutex::try_lock(); }
  void unlock() TSA_RELEASE() { Mutex::unlock(); }
};

using checked_mutex = checked<std::mutex>;

// Holds a checked mutex to the end of the scope.
template <typename Mutex>
class TSA_SCOPED_CAPABILITY checked_guard {
public:
  explicit checked_guard(Mutex& mutex) TSA_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  // Of one that the caller has taken already.
  checked_guard(Mutex& mutex, std::adopt_lock_t) TSA_REQUIRES(mutex) : mutex_(mutex) {}
  ~checked_guard() TSA_RELEASE() { mutex_.unlock(); }
  checked_guard(const checked_guard&) = delete;
  checked_guard& operator=(const checked_guard&) = delete;

private:
  Mutex& mutex_;
};

using mutex_guard = checked_guard<checked_mutex>;

// The same for a thread that waits on a condition variable, with waitable(), which lets go of the mutex meanwhile.
class TSA_SCOPED_CAPABILITY mutex_wait_guard {
public:
  explicit mutex_wait_guard(checked_mutex& mutex) TSA_ACQUIRE(mutex) : lock_(mutex) {}
  ~mutex_wait_guard() TSA_RELEASE() {}
  mutex_wait_guard(const mutex_wait_guard&) = delete;
  mutex_wait_guard& operator=(const mutex_wait_guard&) = delete;

  std::unique_lock<std::mutex>& waitable() { return lock_; }

private:
  std::unique_lock<std::mutex> lock_;
};

#endif
