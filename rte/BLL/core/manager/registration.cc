#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/log_line.h"

bool BLLManager::registerEntity(BLEntity& entity)
{
  logAt(LogImpl::debug) << "Registering BLE <" << entity.name << ">... ";
  if (bllState_ != notConfigured) {
    logAt(LogImpl::debug) << "error.\n";
    return false;
  }
  const std::lock_guard guard(mutex_);
  const auto record = configuration_.find(entity.name);
  if (record != configuration_.end() && record->second.start) {
    entities_[entity.name] = &entity;
    logAt(LogImpl::debug) << "done.\n";
  } else {
    logAt(LogImpl::debug) << "not registered.\n";
  }
  return true;
}
