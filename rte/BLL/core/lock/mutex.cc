#include "rte/BLL/core/lock/mutex.h"

#include <algorithm>
#include <atomic>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// Where the calling thread's rows are, for the two locks a process normally has: found without a look at the table.
struct hotRow_t {
  uint64_t lockSerial;  // 0: empty
  lockRules_t::row_t* row;
};
constexpr size_t hotRowCount = 2;  // the framework's two locks are the first two made and so never share a place
constinit thread_local hotRow_t hotRows[hotRowCount] = {};

hotRow_t& hotRow(uint64_t lockSerial)
{
  return hotRows[lockSerial % hotRowCount];
}

uint64_t nextSerial()
{
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

// All rows of the calling thread. Its destructor is the end of the thread.
class recursiveSharedMutex_t::threadRows_t {
  using row_t = lockRules_t::row_t;

public:
  static threadRows_t& ofCaller()
  {
    static thread_local threadRows_t rows;
    return rows;
  }
  // False once the thread's own objects are being destroyed; ofCaller() must not be called then.
  static bool usable() { return !ended_; }

  ~threadRows_t()
  {
    ended_ = true;
    std::fill(std::begin(hotRows), std::end(hotRows), hotRow_t{});
    for (const known_t& known : known_)
      if (const auto lock = known.lock.lock())
        lock->callerEnds();
  }

  row_t* find(uint64_t lockSerial) const
  {
    const auto same = [lockSerial](const known_t& known) { return known.lockSerial == lockSerial; };
    const auto found = std::find_if(known_.begin(), known_.end(), same);
    return found == known_.end() ? nullptr : found->row;
  }

  // Room first, entry later: what may fail comes before the table is changed.
  void makeRoom()
  {
    std::erase_if(known_, [](const known_t& known) { return known.lock.expired(); });
    known_.reserve(known_.size() + 1);
  }
  void add(uint64_t lockSerial, std::weak_ptr<impl_t> lock, row_t& row)
  {
    known_.push_back({lockSerial, std::move(lock), &row});
  }

private:
  struct known_t {
    uint64_t lockSerial;
    std::weak_ptr<impl_t> lock;  // the lock may be destroyed before the thread ends
    row_t* row;
  };
  std::vector<known_t> known_;
  static constinit thread_local bool ended_;
};

constinit thread_local bool recursiveSharedMutex_t::threadRows_t::ended_ = false;

recursiveSharedMutex_t::impl_t::impl_t() : serial_(nextSerial()) {}

bool recursiveSharedMutex_t::impl_t::take(access_t access, const boost::system_time& deadline)
{
  return takeBefore(access, [&] { return deadline; });
}

bool recursiveSharedMutex_t::impl_t::take(access_t access, const lockPeriod_t& period)
{
  return takeBefore(access, [&] { return lockDeadlineAfter(period); });
}

template <typename Deadline>
bool recursiveSharedMutex_t::impl_t::takeBefore(access_t access, Deadline&& deadline)
{
  const spinningGuard_t guard(mutex_);
  row_t& self = callerRow();
  if (self.second.kernelThreadId == 0) {
    self.second.kernelThreadId = gettid();
    self.second.pthreadHandle = pthread_self();
  }
  lockRules_t::wakes_t none;
  const auto answer = rules_.request(self, access, false, none);
  return answer == lockRules_t::answer_t::granted || wait(self, access, answer, deadline());
}

bool recursiveSharedMutex_t::impl_t::wait(row_t& self, access_t access, lockRules_t::answer_t answer,
                                          const boost::system_time& deadline)
{
  const cancellationOff_t uncancelled;  // a thread that died in here would leave its waiting flag behind
  const lockDeadline_t limit(deadline);
  lockRules_t::wakes_t wakes;
  while (answer != lockRules_t::answer_t::granted && answer != lockRules_t::answer_t::failed) {
    const bool passed = !queueOf(answer).wait(mutex_, limit);
    answer = rules_.request(self, access, passed, wakes);
  }
  if (answer == lockRules_t::answer_t::granted)
    return true;
  wake(wakes);
  throw lockError_t(rules_.states(), self.first, rules_.owner().value_or(boost::thread::id()),
                    access == access_t::exclusive, rules_.exclusiveHeldByOther(self));
}

void recursiveSharedMutex_t::impl_t::release(access_t access)
{
  const spinningGuard_t guard(mutex_);
  wake(rules_.release(callerRow(), access));
}

recursiveSharedMutex_t::stateMap_t recursiveSharedMutex_t::impl_t::states() const
{
  const spinningGuard_t guard(mutex_);
  return rules_.states();
}

recursiveSharedMutex_t::stateData recursiveSharedMutex_t::impl_t::callerState() const
{
  const spinningGuard_t guard(mutex_);
  if (const hotRow_t& hot = hotRow(serial_); hot.lockSerial == serial_)
    return hot.row->second;
  const row_t* known = threadRows_t::usable() ? threadRows_t::ofCaller().find(serial_) : nullptr;
  return known ? known->second : stateData{};
}

void recursiveSharedMutex_t::impl_t::callerEnds()
{
  const spinningGuard_t guard(mutex_);
  rules_.threadEnded(boost::this_thread::get_id());
}

lockRules_t::row_t& recursiveSharedMutex_t::impl_t::callerRow()
{
  hotRow_t& hot = hotRow(serial_);
  if (hot.lockSerial == serial_) [[likely]]
    return *hot.row;
  row_t& found = findCallerRow();
  if (threadRows_t::usable())
    hot = {serial_, &found};
  return found;
}

lockRules_t::row_t& recursiveSharedMutex_t::impl_t::findCallerRow()
{
  const auto id = boost::this_thread::get_id();
  if (!threadRows_t::usable()) {
    // A take from the destructor of another thread-local object. Nothing may be remembered for this thread any more, so
    // only the kernel thread id tells its row from one that a dead thread left.
    row_t& left = rules_.row(id);
    if (left.second.kernelThreadId != gettid())
      rules_.disown(left);
    return left;
  }
  threadRows_t& rows = threadRows_t::ofCaller();
  if (row_t* known = rows.find(serial_))
    return *known;
  rows.makeRoom();
  const bool left = rules_.hasRow(id);
  row_t& mine = rules_.row(id);
  if (left)
    rules_.disown(mine);  // this thread never asked before, so the row is a dead thread's
  rows.add(serial_, weak_from_this(), mine);
  return mine;
}

waitingQueue_t& recursiveSharedMutex_t::impl_t::queueOf(lockRules_t::answer_t answer)
{
  if (answer == lockRules_t::answer_t::waitForUpgrade)
    return upgraders_;
  return answer == lockRules_t::answer_t::waitForExclusive ? writers_ : readers_;
}

// The order is the preference: who upgrades, then one writer, then every reader.
void recursiveSharedMutex_t::impl_t::wake(const lockRules_t::wakes_t& wakes)
{
  if (wakes.oneUpgrade)
    upgraders_.wakeOne();
  if (wakes.oneExclusive)
    writers_.wakeOne();
  if (wakes.allShared)
    readers_.wakeAll();
}

// What plug-ins see of it.

recursiveSharedMutex_t::lockError_t::lockError_t(stateMap_t statesNow, boost::thread::id requesterId,
                                                 boost::thread::id ownerId, bool exclusive, bool heldExclusive)
    : states(std::move(statesNow)), requester(requesterId), owner(ownerId), exclusiveRequested(exclusive),
      exclusiveHeld(heldExclusive)
{}

recursiveSharedMutex_t::lockError_t::~lockError_t() = default;

const char* recursiveSharedMutex_t::lockError_t::what() const noexcept
{
  return exclusiveRequested ? "failed to get exclusive lock" : "failed to get shared lock";
}

recursiveSharedMutex_t::recursiveSharedMutex_t() : impl_(std::make_shared<impl_t>()) {}

recursiveSharedMutex_t::~recursiveSharedMutex_t() = default;

bool recursiveSharedMutex_t::timedLock(const boost::system_time& deadline)
{
  return impl_->take(lockRules_t::access_t::exclusive, deadline);
}

bool recursiveSharedMutex_t::timedLockShared(const boost::system_time& deadline)
{
  return impl_->take(lockRules_t::access_t::shared, deadline);
}

bool recursiveSharedMutex_t::timedLock(const lockPeriod_t& period)
{
  return impl_->take(lockRules_t::access_t::exclusive, period);
}

bool recursiveSharedMutex_t::timedLockShared(const lockPeriod_t& period)
{
  return impl_->take(lockRules_t::access_t::shared, period);
}

void recursiveSharedMutex_t::unlock()
{
  impl_->release(lockRules_t::access_t::exclusive);
}

void recursiveSharedMutex_t::unlockShared()
{
  impl_->release(lockRules_t::access_t::shared);
}

recursiveSharedMutex_t::stateMap_t recursiveSharedMutex_t::getStateMap() const
{
  return impl_->states();
}

recursiveSharedMutex_t::stateData recursiveSharedMutex_t::getCallerState() const
{
  return impl_->callerState();
}
