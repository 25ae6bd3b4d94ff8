// The manager's life, in the order in which its header tells it.
#include "rte/BLL/core/bll_manager.h"

#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/manager/parts.h"
#include "rte/BLL/core/rpc_bll_service.h"
#include "rte/BLL/core/storage_mng.h"
#include "rte/BLL/core/sys_log.h"
#include "rte/BLL/core/thread_registry.h"
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <syslog.h>

namespace {

constexpr char identity[] = "BLLManager_mng";

void installFrameworkLog()
{
  static SysLog* const backEnd = new SysLog;  // logged through until the process is gone
  Log& log = singleton<Log>::instance();
  log.setLogLevel(LogImpl::debug);
  openlog(identity, std::getenv("BLL_LOG_STDERR") ? LOG_PERROR : 0, LOG_USER);
  log.reset(backEnd);
}

using order_t = std::vector<entityTable_t::row_t>;
using steadyClock_t = std::chrono::steady_clock;

void logEntity(const std::string& name)
{
  logAt(LogImpl::debug) << "\n\tBLE <" << name << ">... ";
}

// Brings one entity up, with its default settings.
bool startEntity(const std::string& name, BLEntity& entity)
{
  logEntity(name);
  const bool started = answeredTrue(name, [&] { return entity.start(); });
  if (started && answeredTrue(name, [&] { return entity.applyDefaultSettings(); })) {
    logAt(LogImpl::debug) << "done.";
    return true;
  }
  logAt(LogImpl::debug) << "error.\n"
                        << "Start procedure has been interrupted by an error.\n";
  logAt(LogImpl::critical) << "Error " << (started ? "applying default settings for " : "starting ") << name
                           << " BLE.\n";
  return false;
}

// Takes the first `count` entities of the order down again, last first.
void stopStarted(const order_t& order, size_t count)
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

// Says on standard output how long an entity took.
void printDuration(const std::string& name, steadyClock_t::duration took)
{
  const auto took_ms = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
  std::printf("\r(%ld ms) took BLE '%s'.\n", static_cast<long>(took_ms), name.c_str());
  std::fflush(stdout);
}

}  // namespace

// ---- Made ----

BLLManager::parts_t::parts_t(const BLLManager& manager)
    : subscribers(manager), rpcProxy(rpcBllmanagerStart, identity, RPCProxy::then_t::serve)
{}

BLLManager::BLLManager() : parts_(std::make_unique<parts_t>(*this))
{
  installFrameworkLog();
  parts_->board.readConfiguration();
  parts_->board.readFeatures();
}

BLLManager::~BLLManager() = default;

bool BLLManager::registerEntity(BLEntity& entity)
{
  logAt(LogImpl::debug) << "Registering BLE <" << entity.name << ">... ";
  if (!parts_->state.takesEntities()) {
    logAt(LogImpl::debug) << "error.\n";
    return false;
  }
  if (parts_->board.starts(entity.name)) {
    parts_->entities.enter(entity);
    logAt(LogImpl::debug) << "done.\n";
  } else {
    logAt(LogImpl::debug) << "not registered.\n";
  }
  return true;
}

void BLLManager::init()
{
  externalMessageSubscribers.emplace_back([this](const std::string& message, const std::string& value,
                                                 std::ostringstream& reply,
                                                 const std::string&) { onExternalMessage(message, value, reply); });
  if (!parts_->rpcProxy.start())
    logAt(LogImpl::warning) << "Error: RPC Proxy has not been started.\n";
}

// ---- Configured, started, stopped ----

void BLLManager::applyConfiguration(const std::string& file)
{
  logAt(LogImpl::debug) << ">>> Applying configuration has been started (" << file << ").\n";
  if (!parts_->state.allows(procedure_t::applyConfiguration))
    return;
  // The file is not read: a fresh store has no element for anybody, and an empty handle tells an entity to apply its
  // built-in configuration.
  Storage::StorageMng store;
  const exclusiveLock_t guard;
  if (!guard.isLocked() || !parts_->state.allows(procedure_t::applyConfiguration))
    return;
  for (const auto& [name, entity] : parts_->entities.startOrder()) {
    logAt(LogImpl::debug) << "\n\tBLE: <" << name << ">... ";
    callEntity(name, [&, e = entity, n = name] { e->applyConfiguration(store.getRoot(n)); });
    logAt(LogImpl::debug) << "done.";
  }
  parts_->state.completed(procedure_t::applyConfiguration);
  logAt(LogImpl::debug) << "\n<<< Applying configuration has been completed.\n";
}

bool BLLManager::start()
{
  logAt(LogImpl::debug) << ">>> Starting procedure has been started.\n";
  if (!parts_->state.allows(procedure_t::start))
    return false;
  const exclusiveLock_t guard;
  if (!guard.isLocked() || !parts_->state.allows(procedure_t::start))
    return false;
  logAt(LogImpl::notice) << "\nBLE init order:\n";
  const order_t order = parts_->entities.startOrder();
  for (const auto& row : order)
    logAt(LogImpl::notice) << "\n\tBLE <" << row.name << ">... \n";

  for (size_t i = 0; i < order.size(); ++i) {
    if (startEntity(order[i].name, *order[i].entity))
      continue;
    if (i > 0)
      stopStarted(order, i);
    return false;
  }
  parts_->state.completed(procedure_t::start);
  logAt(LogImpl::notice) << "\n<<< Starting procedure has been completed.\n";
  return true;
}

bool BLLManager::applyDefaultSettings()
{
  logAt(LogImpl::debug) << ">>> Applying default settings procedure has been started.\n";
  if (!parts_->state.allows(procedure_t::applyDefaultSettings))
    return false;
  const exclusiveLock_t guard;
  if (!guard.isLocked() || !parts_->state.allows(procedure_t::applyDefaultSettings))
    return false;
  for (const auto& [name, entity] : parts_->entities.startOrder()) {
    logEntity(name);
    const bool timed = parts_->durationsWanted;
    const auto begin = steadyClock_t::now();
    if (!answeredTrue(name, [e = entity] { return e->applyDefaultSettings(); })) {
      logAt(LogImpl::debug) << "error.\n";
      logAt(LogImpl::critical) << "Applying default settings procedure for " << name
                               << " BLE has been interrupted by an error.\n";
      return false;
    }
    if (timed)
      printDuration(name, steadyClock_t::now() - begin);
    logAt(LogImpl::debug) << "done.";
  }
  logAt(LogImpl::debug) << "\n<<< Applying default settings procedure has been completed.\n";
  return true;
}

void BLLManager::saveConfiguration(const std::string& file)
{
  logAt(LogImpl::debug) << ">>> Saving configuration has been started.\n";
  Storage::StorageMng store;
  Storage::StorageMng nowhere;  // for entities whose name XML does not allow: they write, and it is lost
  {
    const sharedLock_t guard;
    if (!guard.isLocked())
      return;
    for (const auto& [name, entity] : parts_->entities.startOrder()) {
      logAt(LogImpl::debug) << "\n\tBLE: <" << name << ">... ";
      const boost::shared_ptr<Storage::Setting> saved = store.addRoot(name);
      // An entity is not handed an empty handle to write to, not even when memory is short.
      const boost::shared_ptr<Storage::Setting> setting = saved ? saved : nowhere.addRoot("unsaved");
      if (setting)
        callEntity(name, [&, e = entity] { e->saveConfiguration(setting); });
      if (saved)
        logAt(LogImpl::debug) << "done.";
      else
        logAt(LogImpl::critical) << "BLE " << name << " cannot be saved under its name.\n";
    }
  }
  store.save(file);
  logAt(LogImpl::debug) << "\n<<< Saving configuration has been completed.\n";
}

void BLLManager::stop(bool save, const std::string& file)
{
  logAt(LogImpl::debug) << ">>> Stopping procedure has been started.\n";
  if (!parts_->state.allows(procedure_t::stop))
    return;
  exclusiveLock_t guard;
  while (!guard.isLocked()) {
    logAt(LogImpl::warning) << "Warning: Could not obtain exclusive lock for stopping BLL. Will try again.\n";
    guard.lock();
  }
  if (!parts_->state.allows(procedure_t::stop))
    return;
  const order_t order = parts_->entities.startOrder();
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
  parts_->state.completed(procedure_t::stop);
  logAt(LogImpl::debug) << "\n<<< Stopping procedure has been completed.\n";
}

bool BLLManager::resolveDependences(std::list<std::string>& order)
{
  return parts_->entities.resolveDependences(order);
}

// ---- Asked ----

std::string BLLManager::getBoardDescription()
{
  return parts_->board.description();
}

std::vector<std::string> BLLManager::getActiveBLEsList() const
{
  return parts_->board.entityNames();
}

bool BLLManager::checkBllEntity(const std::string& name) const
{
  return parts_->board.starts(name);
}

bool BLLManager::disableBLLEntity(const std::string& name)
{
  return parts_->board.disable(name);
}

bool BLLManager::enableBLLEntity(const std::string&)
{
  return false;
}

bool BLLManager::isFeatureSupported(const std::string& name) const
{
  return parts_->board.supports(name);
}

void BLLManager::setBllFeature(const std::string& name, bool value, std::ostream& out)
{
  parts_->board.setFeature(name, value, out);
}

void BLLManager::dumpFeatureSupport(std::ostream& out) const
{
  parts_->board.dumpFeatures(out);
}

RabbitMqInterSoc& BLLManager::interSocMq()
{
  return parts_->interSocMq;
}

void BLLManager::registerThread(const std::string& name)
{
  threadRegistry_t::instance().registerThread(name);
}

void BLLManager::unregisterThread()
{
  threadRegistry_t::instance().unregisterThread();
}

void BLLManager::showThreads(std::ostream& out) const
{
  threadRegistry_t::instance().showThreads(out);
}
