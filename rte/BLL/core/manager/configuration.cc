// Handing out and collecting the entities' configuration.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/storage_mng.h"

void BLLManager::applyConfiguration(const std::string& file)
{
  logAt(LogImpl::debug) << ">>> Applying configuration has been started (" << file << ").\n";
  const char* const refusal = "<<< Error applying configuration: BLL is not initialized.\n";
  if (!stateIs({notConfigured}, refusal))
    return;
  // The file is not read: a fresh store has no element for anybody, and an empty handle tells an entity to apply its
  // built-in configuration.
  Storage::StorageMng store;
  const exclusiveLock_t guard;
  if (!guard.isLocked() || !stateIs({notConfigured}, refusal))
    return;
  for (const auto& [name, entity] : startOrder()) {
    logAt(LogImpl::debug) << "\n\tBLE: <" << name << ">... ";
    callEntity(name, [&, e = entity, n = name] { e->applyConfiguration(store.getRoot(n)); });
    logAt(LogImpl::debug) << "done.";
  }
  bllState_ = configured;
  logAt(LogImpl::debug) << "\n<<< Applying configuration has been completed.\n";
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
    for (const auto& [name, entity] : startOrder()) {
      logAt(LogImpl::debug) << "\n\tBLE: <" << name << ">... ";
      const boost::shared_ptr<Storage::Setting> saved = store.addRoot(name);
      // An entity is not handed an empty handle to write to.
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
