// Starting, default settings, stopping.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/log_line.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

// Says on standard output how long an entity took, while operators have asked for it.
class durationReport_t {
public:
  explicit durationReport_t(bool wanted) : wanted_(wanted)
  {
    if (wanted_)
      begin_ = clock_t::now();
  }
  void print(const std::string& entity) const
  {
    if (!wanted_)
      return;
    const auto took_ms = std::chrono::duration_cast<std::chrono::milliseconds>(clock_t::now() - begin_).count();
    std::printf("\r(%ld ms) took BLE '%s'.\n", static_cast<long>(took_ms), entity.c_str());
    std::fflush(stdout);
  }

private:
  using clock_t = std::chrono::steady_clock;
  bool wanted_;
  clock_t::time_point begin_;
};

void logEntity(const std::string& name)
{
  logAt(LogImpl::debug) << "\n\tBLE <" << name << ">... ";
}

}  // namespace

// A procedure asks for the state before it waits for the lock, and again when it has it: another thread's procedure may
// have changed it meanwhile.
bool BLLManager::stateIs(std::initializer_list<state_t> wanted, const char* refusal) const
{
  if (std::ranges::find(wanted, bllState_.load()) != wanted.end())
    return true;
  logAt(LogImpl::warning) << refusal;
  return false;
}

bool BLLManager::start()
{
  logAt(LogImpl::debug) << ">>> Starting procedure has been started.\n";
  const char* const refusal = "<<< Error: BLL is not configured or is already running.\n";
  if (!stateIs({configured, stopped}, refusal))
    return false;
  const exclusiveLock_t guard;
  if (!guard.isLocked() || !stateIs({configured, stopped}, refusal))
    return false;
  logAt(LogImpl::notice) << "\nBLE init order:\n";
  const std::vector<orderedEntity_t> order = startOrder();
  for (const orderedEntity_t& row : order)
    logAt(LogImpl::notice) << "\n\tBLE <" << row.name << ">... \n";

  for (size_t i = 0; i < order.size(); ++i) {
    const auto& [name, entity] = order[i];
    logEntity(name);
    const bool started = answeredTrue(name, [e = entity] { return e->start(); });
    if (started && answeredTrue(name, [e = entity] { return e->applyDefaultSettings(); })) {
      logAt(LogImpl::debug) << "done.";
      continue;
    }
    logAt(LogImpl::debug) << "error.\n"
                          << "Start procedure has been interrupted by an error.\n";
    logAt(LogImpl::critical) << "Error " << (started ? "applying default settings for " : "starting ") << name
                             << " BLE.\n";
    if (i > 0)
      stopStarted(order, i);
    return false;
  }
  bllState_ = running;
  logAt(LogImpl::notice) << "\n<<< Starting procedure has been completed.\n";
  return true;
}

// Takes the first `count` entities of the order down again, last first.
void BLLManager::stopStarted(const std::vector<orderedEntity_t>& order, size_t count)
{
  logAt(LogImpl::warning) << "Will start stop procedure.\n";
  logAt(LogImpl::debug) << ">>> Stopping procedure has been started.\n";
  while (count-- > 0) {
    const auto& [name, entity] = order[count];
    logEntity(name);
    if (answeredTrue(name, [e = entity] { return e->stop(); })) {
      logAt(LogImpl::debug) << "done.";
    } else {
      logAt(LogImpl::debug) << "error.\n";
      logAt(LogImpl::critical) << "Error stopping " << name << " BLE.\n";
    }
  }
  logAt(LogImpl::debug) << "\n<<< Stopping procedure has been completed.\n";
}

bool BLLManager::applyDefaultSettings()
{
  logAt(LogImpl::debug) << ">>> Applying default settings procedure has been started.\n";
  const char* const refusal = "<<< Error: BLL is not running.\n";
  if (!stateIs({running}, refusal))
    return false;
  const exclusiveLock_t guard;
  if (!guard.isLocked() || !stateIs({running}, refusal))
    return false;
  for (const auto& [name, entity] : startOrder()) {
    logEntity(name);
    const durationReport_t duration(cpuUsageDebug_);
    if (!answeredTrue(name, [e = entity] { return e->applyDefaultSettings(); })) {
      logAt(LogImpl::debug) << "error.\n";
      logAt(LogImpl::critical) << "Applying default settings procedure for " << name
                               << " BLE has been interrupted by an error.\n";
      return false;
    }
    duration.print(name);
    logAt(LogImpl::debug) << "done.";
  }
  logAt(LogImpl::debug) << "\n<<< Applying default settings procedure has been completed.\n";
  return true;
}

void BLLManager::stop(bool save, const std::string& file)
{
  logAt(LogImpl::debug) << ">>> Stopping procedure has been started.\n";
  const char* const refusal = "<<< Error stopping BLL: BLL not in the started state.\n";
  if (!stateIs({running}, refusal))
    return;
  exclusiveLock_t guard;
  while (!guard.isLocked()) {
    logAt(LogImpl::warning) << "Warning: Could not obtain exclusive lock for stopping BLL. Will try again.\n";
    guard.lock();
  }
  if (!stateIs({running}, refusal))
    return;
  const std::vector<orderedEntity_t> order = startOrder();
  for (auto row = order.rbegin(); row != order.rend(); ++row) {
    logEntity(row->name);
    if (answeredTrue(row->name, [&] { return row->entity->stop(); })) {
      logAt(LogImpl::debug) << "done.";
    } else {
      logAt(LogImpl::debug) << "error.";
      logAt(LogImpl::warning) << "Error stopping " << row->name << " BLE.\n";
    }
  }
  if (save)
    saveConfiguration(file);
  bllState_ = stopped;
  logAt(LogImpl::debug) << "\n<<< Stopping procedure has been completed.\n";
}
