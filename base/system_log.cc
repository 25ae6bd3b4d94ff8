#include "base/system_log.h"

#include "base/ending_signals.h"
#include "base/line_ring.h"
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <string_view>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using steady = std::chrono::steady_clock;
constexpr size_t queue_bytes = 256 * 1024;
constexpr std::chrono::milliseconds stopped_after(100);
constexpr std::chrono::milliseconds room_check(1);
constexpr std::chrono::microseconds shortest_sleep(500);
constexpr std::chrono::seconds longest_end(1);

class log_queue {
public:
  explicit log_queue(const char* prefix) : prefix_(prefix) {}

  void put(int priority, std::string_view text);
  [[noreturn]] void write_for_ever();
  // How many lines could not be written.
  size_t end();
  // Stops the writer between two lines, and all else by the mutex, until release(). False if it hangs in syslog().
  bool hold();
  void release();
  const char* prefix() const { return prefix_; }

private:
  using guard = std::unique_lock<std::mutex>;

  bool stopped() const { return steady::now() - moved_at_ >= stopped_after; }
  void keep(guard& lock, int priority, std::string_view text);
  void keep_when_room(guard& lock, int priority, std::string_view text);
  void lose(guard& lock);
  void wake_writer(guard& lock);
  bool has_work() const { return holding_ == 0 && (!lines_.empty() || lost_ > 0); }
  void nap(guard& lock);
  void write_next(guard& lock);
  void tell_lost(uint32_t lost);
  bool all_written() const { return lines_.empty() && untold_ == 0 && !writing_; }

  const char* const prefix_;
  std::mutex entrance_;              // of those who wait for room; taken before mutex_, and never on the usual way
  std::mutex mutex_;                 // guards what follows
  std::condition_variable work_;     // for the writer
  std::condition_variable written_;  // for those who wait for the writer
  line_ring lines_{queue_bytes};
  steady::time_point moved_at_;  // when the daemon last took a line, or had one to take after it had none
  uint32_t lost_ = 0;            // lines since the last one kept
  size_t untold_ = 0;            // lines lost that no written line tells of yet
  int waiting_ = 0;              // for room
  int watching_ = 0;             // those who wait for written_
  int holding_ = 0;              // those who want the writer to stand still
  bool writing_ = false;         // the writer is in syslog(), without the mutex
  bool sleeping_ = false;        // the writer has nothing to do
  bool ending_ = false;
};

void log_queue::put(int priority, std::string_view text)
{
  guard lock(mutex_);
  if (lost_ > 0 && stopped())
    return lose(lock);
  if (waiting_ == 0 && lines_.fits(text.size()))
    return keep(lock, priority, text);
  keep_when_room(lock, priority, text);
}

void log_queue::keep(guard& lock, int priority, std::string_view text)
{
  if (lines_.empty() && !writing_)
    moved_at_ = steady::now();
  lines_.push(priority, std::exchange(lost_, 0), text);
  wake_writer(lock);
}

void log_queue::lose(guard& lock)
{
  ++lost_;
  ++untold_;
  wake_writer(lock);
}

void log_queue::wake_writer(guard& lock)
{
  if (!std::exchange(sleeping_, false))
    return;
  lock.unlock();
  work_.notify_one();
}

// One waits, the others behind it, so that small lines do not take the room from a long one for ever. It looks for room
// now and then: there is enough in the queue to keep the writer busy meanwhile, and waking somebody for every line
// that is written would cost more than the line.
void log_queue::keep_when_room(guard& lock, int priority, std::string_view text)
{
  ++waiting_;
  lock.unlock();
  const std::lock_guard first(entrance_);
  lock.lock();
  while (!lines_.fits(text.size()) && !ending_ && !stopped() && text.size() < queue_bytes) {
    lock.unlock();
    std::this_thread::sleep_for(room_check);
    lock.lock();
  }
  --waiting_;
  if (lines_.fits(text.size()))
    keep(lock, priority, text);
  else
    lose(lock);
}

void log_queue::write_for_ever()
{
  for (guard lock(mutex_);; write_next(lock)) {
    if (!has_work())
      nap(lock);
    while (!has_work()) {
      sleeping_ = true;
      work_.wait(lock);
      sleeping_ = false;
    }
  }
}

// Lines come in swarms. Who logs one shortly after another does not have to wake anybody for it.
void log_queue::nap(guard& lock)
{
  lock.unlock();
  std::this_thread::sleep_for(shortest_sleep);
  lock.lock();
}

// The line stays in the queue while it is written, where nobody touches it.
void log_queue::write_next(guard& lock)
{
  writing_ = true;
  const bool any = !lines_.empty();
  const line_ring::entry line = any ? lines_.front() : line_ring::entry{0, std::exchange(lost_, 0), ""};
  lock.unlock();
  if (line.lost_before > 0)
    tell_lost(line.lost_before);
  if (any)
    syslog(line.priority, "%s", line.text);
  lock.lock();
  if (any)
    lines_.pop();
  untold_ -= line.lost_before;
  moved_at_ = steady::now();
  writing_ = false;
  if (watching_ > 0)
    written_.notify_all();
}

void log_queue::tell_lost(uint32_t lost)
{
  syslog(LOG_WARNING, "%s%u messages lost.", prefix_, lost);
}

size_t log_queue::end()
{
  guard lock(mutex_);
  if (std::exchange(ending_, true))
    return 0;
  ++watching_;
  written_.wait_for(lock, longest_end, [this] { return all_written(); });
  --watching_;
  return lines_.count() + untold_;
}

bool log_queue::hold()
{
  guard lock(mutex_);
  ++holding_;
  ++watching_;
  const bool still = written_.wait_for(lock, stopped_after, [this] { return !writing_; });
  --watching_;
  lock.release();
  return still;
}

void log_queue::release()
{
  --holding_;
  mutex_.unlock();
  work_.notify_one();
}

enum class way { straight, queue, none };

std::atomic<way> way_now{way::straight};
log_queue* queue = nullptr;  // stays until the process is gone; written once, before way_now
bool child_may_log = false;  // under the queue's mutex, while a fork is under way

void before_fork()
{
  if (way_now == way::queue)
    child_may_log = queue->hold();
}

void after_fork_in_parent()
{
  if (way_now == way::queue)
    queue->release();
}

// The queue stays as it is, locked: its other end is in the parent.
void after_fork_in_child()
{
  if (way_now == way::queue)
    way_now = child_may_log ? way::straight : way::none;
}

void* write_lines(void*)
{
  queue->write_for_ever();
}

// 0 or an error number.
int start_writer()
{
  const ending_signals_held held;
  pthread_t writer;
  const int error = pthread_create(&writer, nullptr, write_lines, nullptr);
  if (error == 0) {
    pthread_setname_np(writer, "log-writer");
    pthread_detach(writer);
  }
  return error;
}

// Standard error may be a terminal that is stopped, too.
void tell_unwritten(size_t lines)
{
  char text[120];
  const int length = snprintf(text, sizeof text, "%s%zu messages lost.\n", queue->prefix(), lines);
  pollfd error{STDERR_FILENO, POLLOUT, 0};
  if (poll(&error, 1, 0) == 1 && (error.revents & POLLOUT) != 0)
    (void)!write(STDERR_FILENO, text, std::min(static_cast<size_t>(length), sizeof text - 1));
}

}  // namespace

void system_log(int priority, const char* text)
{
  switch (way_now.load(std::memory_order_acquire)) {
  case way::straight:
    syslog(priority, "%s", text);
    break;
  case way::queue:
    queue->put(priority, text);
    break;
  case way::none:
    break;
  }
}

void system_log_begin(const char* prefix)
{
  if (queue)
    return;
  queue = new log_queue(prefix);
  if (const int error = start_writer(); error != 0) {
    syslog(LOG_WARNING, "%sNo thread for the log: %s", prefix, strerror(error));
    return;
  }
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
  atexit(system_log_end);
  way_now = way::queue;
}

void system_log_end()
{
  if (way_now.load() != way::queue)
    return;
  if (const size_t lines = queue->end(); lines > 0)
    tell_unwritten(lines);
}
