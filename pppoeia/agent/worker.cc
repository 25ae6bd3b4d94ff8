// The worker of a bridge: waits for records on the packet socket, and gives each back as the frame path leaves it.
//
// One wake-up serves as many records as are waiting. They are received together, processed in turn under one hold of
// the bridge's mutex and sent in order before it is released, so that a setting is in force for the very next frame.
// The wait itself is outside the lock. A mutex is not fair: a worker under full load would take it again before
// somebody who waits for it wakes up, so it looks whether anyone waits and steps back.
//
// How many records are asked for follows the wait: one when it really waited, so that a line that dials in alone costs
// no more than its own receive and send; a whole batch when there was nothing to wait for, as long as batches come
// full. Where the packet socket has a mapped ring, receiving is a copy without a system call.
//
// In a storm the worker is quicker than the frames come: it would sleep after every few and be woken for the next, at
// the cost of the core that delivers them. So it naps instead, and finds a batch when it looks again.
//
// What became of a frame is told (status/bridge_status.h) while its bytes are still at hand: after a send the processor
// would have to fetch them again.
#include "pppoeia/agent/worker.h"

#include "base/ending_signals.h"
#include "pppoeia/frame/path.h"
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/kernel/device_watch.h"
#include "pppoeia/kernel/devices.h"
#include "pppoeia/kernel/frame_buffers.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"
#include "pppoeia/status/bridge_status.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sched.h>

namespace {

constexpr int wait_ms = 10;

uint64_t now_ns()
{
  return static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1));
}

// Where the worker tells what it does, or null: in a build without this, always.
bridge_status* status_of(const pppoeia_bridge& bridge)
{
  return status_built ? bridge.status : nullptr;
}

void priority_raise(const pppoeia_bridge& bridge)
{
  constexpr int step = 1;
  int policy = 0;
  sched_param parameters{};
  pthread_getschedparam(pthread_self(), &policy, &parameters);
  parameters.sched_priority += step;
  if (pthread_setschedparam(pthread_self(), policy, &parameters) != 0) {
    pppoeia_log(log_warning, "<%s> Unable to set priority.", bridge.name);
    return;
  }
  pppoeia_log(log_debug, "<%s> Priority set to %d (%s%d).", bridge.name, parameters.sched_priority, "+", step);
}

// A worker's own state: the slots of the receive buffer and what of them is not zero any more.
class batch {
public:
  explicit batch(pppoeia_bridge& bridge)
      : bridge_(bridge), refusals_(bridge), slots_(frame_slot_count(bridge.buffer_size)),
        stride_(frame_slot_size(bridge.buffer_size))
  {}

  // Takes what is waiting, at most `most` records. Their number, 0 or less for none.
  int receive(unsigned most)
  {
    for (unsigned i = 0; i < most; ++i)
      received_[i] = {slot(i), bridge_.buffer_size};
    return kernel->receive({bridge_.sock, bridge_.ring}, received_, most);
  }

  // Processes the first `count` records in turn and sends those that go on. The bridge's mutex is held.
  void serve(unsigned count, frame_services& services, uint64_t at_ns)
  {
    bridge_status* const status = status_of(bridge_);
    unsigned out = 0;
    for (unsigned i = 0; i < count; ++i) {
      const frame_record view{slot(i), received_[i].length, static_cast<uint32_t>(stride_)};
      const uint32_t length =
          (status ? process(*status, view, services, at_ns) : frame_process(bridge_, view, services)).length;
      if (length > 0)
        send_[out++] = {slot(i), length};
    }
    if (out > 0)
      sent(kernel->send(bridge_.sock, send_, out));
    if (status) {
      status->batches.add();
      status->records.add(count);
    }
  }

  // Makes the first `count` slots zero again, as far as they were written.
  void clean(unsigned count)
  {
    for (unsigned i = 0; i < count; ++i)
      std::memset(slot(i), 0, std::min<size_t>(stride_, size_t{received_[i].length} + frame_growth_max));
  }

  unsigned slots() const { return slots_; }

private:
  unsigned char* slot(unsigned i) { return bridge_.frame_buffer + i * stride_; }

  frame_result process(bridge_status& status, const frame_record& record, frame_services& services, uint64_t at_ns)
  {
    const bool watched = status.monitor.watched();
    if (watched)
      status.monitor.came(record);
    const bool timed = status.samples();
    const uint64_t before = timed ? now_ns() : 0;
    const frame_result result = frame_process(bridge_, record, services);
    if (timed)
      status.path.add(now_ns() - before);
    status.frame_done(record, result, at_ns);
    if (watched)
      status.monitor.left(record, result, at_ns);
    return result;
  }

  void sent(const send_refusals& refusals)
  {
    refusals_.sent(refusals);
    if (bridge_status* status = status_of(bridge_); status && refusals.count > 0)
      status->send_failures.add(refusals.count);
  }

  pppoeia_bridge& bridge_;
  refusal_log refusals_;
  unsigned slots_;
  size_t stride_;
  kernel_record received_[kernel_batch_max];
  kernel_record send_[kernel_batch_max];
};

// What the worker tells of itself, however little comes: that it is there, and once a second how its queue stands.
class sign_of_life {
public:
  explicit sign_of_life(const pppoeia_bridge& bridge) : bridge_(bridge), status_(status_of(bridge)) {}

  void given(uint64_t at_ns)
  {
    constexpr uint64_t second_ns = 1'000'000'000;
    if (!status_)
      return;
    status_->alive_ns.set(at_ns);
    if (at_ns - asked_ns_ < second_ns)
      return;
    asked_ns_ = at_ns;
    packet_queue queue{};
    if (kernel->queue_read({bridge_.sock, bridge_.ring}, &queue) < 0)
      return;
    status_->lost.add(queue.lost);
    status_->queue_depth.set(queue.waiting);
  }

private:
  const pppoeia_bridge& bridge_;
  bridge_status* status_;
  uint64_t asked_ns_ = 0;
};

// Lets everybody who waits for the bridge's mutex have it.
void step_back(pppoeia_bridge& bridge)
{
  while (bridge.waiters.load(std::memory_order_relaxed) != 0 && !bridge.stop)
    sched_yield();
}

// The worker's hold of its bridge's mutex. Unlike bridge_lock it is not counted among those who wait: the worker steps
// back for them.
class worker_lock {
public:
  explicit worker_lock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  ~worker_lock() { pthread_mutex_unlock(&mutex_); }
  worker_lock(const worker_lock&) = delete;
  worker_lock& operator=(const worker_lock&) = delete;

private:
  pthread_mutex_t& mutex_;
};

// One batch of at most `most` records: the number of records in it.
unsigned serve_batch(pppoeia_bridge& bridge, batch& records, unsigned most, frame_services& services,
                     device_watch& device, uint64_t at_ns)
{
  int count = 0;
  int error = 0;
  {
    const worker_lock held(bridge.mutex);
    count = records.receive(most);
    error = errno;
    if (count > 0)
      records.serve(static_cast<unsigned>(count), services, at_ns);
  }
  if (count <= 0) {
    device.failed(count < 0 ? error : 0);
    return 0;
  }
  device.received();
  records.clean(static_cast<unsigned>(count));
  step_back(bridge);
  return static_cast<unsigned>(count);
}

// A descriptor that reports ready and gives nothing (its device went down) must not make the worker spin. At first a
// moment will do: another core may be at writing the record that was announced.
class empty_wake_brake {
public:
  void woken_for(unsigned count)
  {
    constexpr unsigned moments = 16;
    empty_in_a_row_ = count > 0 ? 0 : empty_in_a_row_ + 1;
    if (empty_in_a_row_ > moments)
      rest();
    else if (empty_in_a_row_ > 0)
      sched_yield();
  }

private:
  static void rest()
  {
    const timespec pause{0, wait_ms * 1000000L};
    nanosleep(&pause, nullptr);
  }
  unsigned empty_in_a_row_ = 0;
};

// How a wait for records ended.
enum class wake { timed_out, after_sleep, at_once };

struct wait_result {
  wake what;
  uint64_t until_ns;
};

wait_result wait_for_records(const pppoeia_bridge& bridge)
{
  // A wait that finds something takes below a microsecond, one that sleeps and is woken several.
  constexpr uint64_t at_once_most_ns = 2'000;
  const uint64_t before = now_ns();
  const bool readable = kernel->wait_readable({bridge.sock, bridge.ring}, wait_ms) == 1;
  const uint64_t after = now_ns();
  if (!readable)
    return {wake::timed_out, after};
  return {after - before > at_once_most_ns ? wake::after_sleep : wake::at_once, after};
}

// Not waiting for anything, so that nobody has to wake it: some 70 us with the slack that timers have.
void nap()
{
  const timespec moment{0, 20'000};
  nanosleep(&moment, nullptr);
}

void frame_loop(pppoeia_bridge& bridge)
{
  constexpr unsigned storm_least = 8;  // records found together
  batch records(bridge);
  builder_identifiers identifiers;
  frame_services services{identifiers, pppoeia_get_local_mac};
  device_watch device(bridge);
  empty_wake_brake brake;
  sign_of_life sign(bridge);
  while (!bridge.stop) {
    const wait_result wait = wait_for_records(bridge);
    sign.given(wait.until_ns);
    if (wait.what == wake::timed_out) {
      device.waited();
      continue;
    }
    const unsigned most = wait.what == wake::after_sleep ? 1 : records.slots();
    unsigned count = serve_batch(bridge, records, most, services, device, wait.until_ns);
    brake.woken_for(count);
    const bool storm = count >= storm_least;
    // A full batch says that more is waiting: no need to ask.
    while (count == records.slots() && !bridge.stop) {
      const uint64_t at_ns = now_ns();
      sign.given(at_ns);
      count = serve_batch(bridge, records, records.slots(), services, device, at_ns);
    }
    if (storm)
      nap();
  }
}

}  // namespace

void* pppoeia_bridge_worker(void* bridge)
{
  auto& self = *static_cast<pppoeia_bridge*>(bridge);
  pppoeia_log(log_debug, "<%s> Worker started.", self.name);
  priority_raise(self);
  frame_loop(self);
  pppoeia_log(log_debug, "<%s> Finished.", self.name);
  return nullptr;
}

int worker_thread_start(pppoeia_bridge& bridge)
{
  const ending_signals_held held;
  return pthread_create(&bridge.thread, nullptr, pppoeia_bridge_worker, &bridge);
}

int worker_thread_join(pppoeia_bridge& bridge)
{
  return pthread_join(bridge.thread, nullptr);
}
